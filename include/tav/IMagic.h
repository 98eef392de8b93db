#pragma once

#include "tav/Export.h"

namespace TAV
{

/// Tells the MIME type of a file through libmagic(3), by path or by open descriptor.
///
/// The calls go in this order: `magicOpen`, `magicLoad`, any number of `magicFile` and `magicDescriptor`, `magicClose`.
/// An object belongs to one thread at a time: give each thread its own. The order of the operations is part of the
/// binary interface.
class TAV_EXPORT IMagic
{
public:
    virtual ~IMagic() = default;

    /// Loads a file-type database into the opened instance. May be called again, also after a failure.
    /// @param path  the database file; null selects libmagic's default database
    /// @throws FMXException  code 3 with libmagic's own error text; the instance stays open
    virtual void magicLoad(const char* path) = 0;

    /// Looks at the file at `path`. Reads the file, so it blocks as long as reading does (a FIFO, a dead mount).
    /// @param path  null stands for standard input
    /// @return the MIME type without the character set, "text/plain" for instance, or null on failure. The text belongs
    ///         to libmagic and dies with the next query or `magicClose`: copy it. It is libmagic's answer unchanged,
    ///         and today's libmagic answers for a missing file with a text that begins "cannot open", not with null.
    virtual const char* magicFile(const char* path) = 0;

    /// Releases the instance, or does nothing if none was ever opened. The object keeps the stale handle: after this
    /// call, use it only to call `magicOpen` again. A second `magicClose` in a row releases the same handle twice.
    virtual void magicClose() = 0;

    /// Makes the libmagic instance. Calling it again without `magicClose` in between loses the former instance.
    /// @throws FMXException  code 1, "Failed to create magic instance"
    virtual void magicOpen() = 0;

    /// Looks at the file behind an open descriptor, which stays open and whose position libmagic may move.
    /// @return as for `magicFile`
    virtual const char* magicDescriptor(int fd) = 0;
};

} // namespace TAV
