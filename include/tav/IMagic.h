#pragma once

#include "tav/Export.h"

namespace TAV
{

/// Tells the MIME type of a file through libmagic(3), by path or by open descriptor.
///
/// The calls go in this order: `magicOpen`, `magicLoad`, any number of `magicFile` and `magicDescriptor`, `magicClose`.
/// Nothing is logged.
///
/// **Threads.** An object belongs to one thread at a time, because libmagic's handle does: give each thread its own.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT IMagic
{
public:
    virtual ~IMagic() = default;

    /// Loads a file-type database into the opened instance, as magic_load(3) does. May be called again, also after a
    /// failure. Either way what was loaded before is gone, and so is the text of the last answer: after a failure,
    /// queries give null until a load succeeds.
    /// @param path  the database file, or several separated by colons; null selects libmagic's default database
    /// @throws FMXException  code 3 with libmagic's own error text; the instance stays open
    virtual void magicLoad(const char* path) = 0;

    /// Looks at the file at `path`, as magic_file(3) does. Reads the file, so it blocks as long as reading does (a dead
    /// mount, for instance).
    /// @param path  the file, as a zero-terminated text; null stands for standard input
    /// @return the MIME type without the character set, "text/plain" for instance, or null on failure. The text belongs
    ///         to libmagic and dies with the next query, `magicLoad` or `magicClose`: copy it. It is libmagic's answer
    ///         unchanged, and today's libmagic also answers with sentences: "cannot open ..." for a missing file,
    ///         "regular file, no read permission" for one that may not be read. Only a type has a slash in its first
    ///         word.
    virtual const char* magicFile(const char* path) = 0;

    /// Releases the instance with magic_close(3), or does nothing if none was ever opened. The object keeps the stale
    /// handle: after this call, use it only to call `magicOpen` again. A second `magicClose` in a row releases the same
    /// handle twice, which corrupts memory.
    virtual void magicClose() = 0;

    /// Makes the libmagic instance, as magic_open(3) does with the flag MAGIC_MIME_TYPE. Calling it again without
    /// `magicClose` in between loses the former instance.
    /// @throws FMXException  code 1, "Failed to create magic instance"
    virtual void magicOpen() = 0;

    /// Looks at the file behind an open descriptor, as magic_descriptor(3) does.
    /// @param fd  a descriptor that can be read; it stays open and stays the caller's. libmagic may move its position.
    ///            -1, the result of a failed open(2), is answered by "application/x-empty", not by null: check before.
    /// @return as for `magicFile`
    virtual const char* magicDescriptor(int fd) = 0;
};

} // namespace TAV
