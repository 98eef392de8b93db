#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace endpointscan
{

/// Arguments or input files that make no sense.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Which file it is, as the kernel sees it.
struct Identity
{
    dev_t device = 0;
    ino_t inode = 0;

    friend bool operator==(const Identity& a, const Identity& b) { return a.device == b.device && a.inode == b.inode; }
};

/// What is known of a regular file.
struct FileFacts
{
    Identity identity;
    std::uint64_t size = 0; ///< bytes
    mode_t mode = 0;        ///< permission bits only
    uid_t user = 0;
    gid_t group = 0;
    struct timespec modified = {};
    std::string mimeType;
    std::string md5;
    std::string sha1;
    std::string sha256;
};

enum class Verdict
{
    Clean,       ///< examined, nothing known against it
    Denied,      ///< must not be here, and still is in its place
    SetAside,    ///< must not be here, and is in neither place, but kept in the staging directory
    Quarantined, ///< must not be here, and is in the quarantine now
    Unknown,     ///< examined, but nobody could tell whether it is denied
    Skipped,     ///< not a regular file
    Failed,      ///< could not be examined
};

/// How long a question over the network took, in milliseconds.
struct AskTimes
{
    std::uint16_t totalMs = 0;
    std::uint16_t tlsConnectMs = 0; ///< until TLS was set up; 0 over a kept connection
};

/// One entry of the scanned tree.
struct Finding
{
    std::string path; ///< below the scanned directory; the bytes of the name as they are
    Verdict verdict = Verdict::Failed;
    std::string reason; ///< why it was skipped, could not be examined, is unknown, or is still in its place
    FileFacts facts;    ///< filled in when it was examined
    std::string source; ///< who was asked for the verdict; empty if nobody was
    std::optional<AskTimes> times;
};

} // namespace endpointscan
