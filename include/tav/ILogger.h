#pragma once

#include <string>

#include "tav/Export.h"

namespace TAV
{

/// The logger that a daemon injects into every class that reports something.
///
/// **Ownership.** The library keeps a reference: the logger must outlive each object that it was handed to.
///
/// **Threads.** Lines come from whichever thread called the service, and from the forked child of a command too. An
/// implementation locks for itself. In a child that was forked while another thread held such a lock, the lock stays
/// taken for good: a logger that hands each line over with one write(2) avoids that.
///
/// **Failure.** An exception that a logger throws is not caught; it reaches the caller of the service.
///
/// Three levels are used, fixed for each message rather than by a global scale of severity. Their numbers are those of
/// syslog(3): critical, notice, informational.
///
/// | level | used for |
/// |---|---|
/// | 2 | a command that could not be run, waited for or read |
/// | 2 | a query client or session that could not be set up, a session id that is not open |
/// | 5 | notable state: a kernel too old for CPU limits, a renewed Kerberos ticket |
/// | 6 | the command line about to run, a child's standard error that is not available |
/// | 6 | every refusal of the CPU limits, a failed query, a failed renewal |
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT ILogger
{
public:
    virtual ~ILogger() = default;

    /// Takes one line that belongs to no component: that a query session is not open, and no other.
    /// @param level    2
    /// @param message  the complete text, without a newline; the callee's own copy
    virtual void log(int level, std::string message) = 0;

    /// Takes one line of a component.
    /// @param level      2, 5 or 6, as above
    /// @param component  name of the class that reports, for instance "TAVUtils"; a copy of its own for every line
    /// @param message    the complete text, without a newline of the library's own; it is valid during the call only.
    ///                   The line that announces a command (level 6) holds all its arguments, secrets included: mask
    ///                   them here if the log is read by others. A line that quotes a command's standard error may
    ///                   hold newlines and any other byte.
    virtual void log(int level, std::string component, const std::string& message) = 0;
};

} // namespace TAV
