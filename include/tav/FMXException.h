#pragma once

#include <string>

#include "tav/Export.h"

/// Everything that the library declares.
namespace TAV
{

/// The only exception type that this library throws.
///
/// It is a plain class: it has no base class and no `what()`, so a handler for `std::exception` does not catch it. It
/// is thrown by value; catch it by type and read the two fields:
///
///     try { magic.magicOpen(); }
///     catch (const TAV::FMXException& e) { report(e.code, e.message); }
///
/// It is thrown only when an object cannot be used at all (a collaborator is missing, an outside library refuses to
/// start). Every other failure is a return value. Exceptions of the standard library, those of Boost's locks, and those
/// of the objects that the caller handed in, pass through unchanged.
class TAV_EXPORT FMXException
{
public:
    /// @param failureCode  the kind of failure: 1 for every failure but a failed load of the file-type database, which
    ///                     is 3
    /// @param reason       what went wrong, as a text for people
    FMXException(int failureCode, std::string reason);

    int code;            ///< the kind of failure: 1 in general, 3 for a file-type database that cannot be loaded
    std::string message; ///< what went wrong, for people; the text may come from an outside library
};

} // namespace TAV
