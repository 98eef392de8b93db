#pragma once

#include <cstdint>
#include <ctime>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace tavctl::doctor
{

/// What the user asks beyond the host itself. Without server and proxy, nothing leaves the machine.
struct Questions
{
    std::string server; ///< HOST or HOST:PORT; empty for none
    std::string caFile; ///< PEM certificates of whom to trust; empty for none
    std::string proxy;  ///< HOST:PORT or a URL; empty for none
    long timeout = 10;  ///< seconds for each attempt
};

struct FileText
{
    int error = 0; ///< errno value; 0 if it could be read
    std::string text;
};

constexpr std::uint64_t kUnlimited = std::numeric_limits<std::uint64_t>::max();

struct Limit
{
    std::uint64_t soft = 0;
    std::uint64_t hard = 0;
};

struct CommandOutput
{
    bool isSuccess = false;
    std::string text;
};

struct MimeAnswer
{
    std::string error; ///< empty if there is an answer
    std::string type;
};

struct CurlFacts
{
    std::string version;
    std::string tls; ///< the backend and its version; empty for none
    bool speaksHttps = false;
    bool speaksHttp2 = false;
    bool speaksNegotiate = false; ///< SPNEGO over a GSSAPI library
};

struct KerberosFacts
{
    std::string error; ///< why the library does not start; empty if it does
    // The following from [libdefaults], as written there; empty if not.
    std::string defaultRealm;
    std::string permittedEnctypes;
    std::string allowWeakCrypto;
    std::string allowRc4;
    std::string rc4Error;        ///< why no RC4 key could be derived; empty if one was
    bool isRc4Permitted = false; ///< whether it is among the types that this configuration permits
};

/// How an attempt to reach somebody ended.
struct Attempt
{
    std::string error;     ///< why nobody answered; empty if somebody did
    long status = 0;       ///< of HTTP; 0 for none
    double seconds = 0;    ///< for all of it
    double tlsSeconds = 0; ///< of these, until TLS stood; 0 if not known
};

/// The machine as the checks see it. Tests put another one in its place.
class Host
{
public:
    virtual ~Host() = default;

    virtual std::string kernelRelease() = 0;
    virtual FileText read(const std::string& path) = 0;
    virtual bool exists(const std::string& path) = 0;
    virtual bool isWritable(const std::string& path) = 0; ///< by this user
    virtual std::optional<std::string> environment(const std::string& name) = 0;
    virtual std::time_t now() = 0;

    virtual Limit descriptorLimit() = 0;
    virtual Limit coreLimit() = 0;
    virtual int closeRangeError() = 0; ///< errno value; 0 if close_range(2) works

    virtual std::string obstacleToRun(const std::string& program) = 0;   ///< empty for none
    virtual CommandOutput run(const std::vector<std::string>& argv) = 0; ///< with its standard output

    virtual std::string hashingError() = 0; ///< which known answer was missed; empty for none
    virtual MimeAnswer mimeTypeOf(const std::string& bytes) = 0;
    virtual CurlFacts curl() = 0;
    virtual KerberosFacts kerberos() = 0;

    virtual Attempt connectTo(const std::string& proxy, long timeout) = 0;
    virtual Attempt query(const Questions& questions) = 0;
};

} // namespace tavctl::doctor
