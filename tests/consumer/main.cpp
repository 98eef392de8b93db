// A program outside the tree: it sees only what was installed, and needs something of every service.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"
#include "tav/FMXException.h"
#include "tav/ILogger.h"
#include "tav/KrbAPIWrapper.h"
#include "tav/KrbHandler.h"
#include "tav/MagicUtils.h"
#include "tav/QelArchiveUtils.h"
#include "tav/QelSSLUtils.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

namespace
{

class PrintingLogger : public TAV::ILogger
{
public:
    void log(int level, std::string message) override { std::printf("%d %s\n", level, message.c_str()); }
    void log(int level, std::string component, const std::string& message) override
    {
        std::printf("%d %s: %s\n", level, component.c_str(), message.c_str());
    }
};

bool expect(bool holds, const char* what)
{
    std::printf("%s: %s\n", holds ? "ok" : "FAILED", what);
    return holds;
}

bool runsACommand(PrintingLogger& logger)
{
    const auto system = std::make_shared<TAV::TAVSystemUtils>();
    const auto kernel = std::make_shared<TAV::kernelVersion>(TAV::kernelVersion{5, 10, 0});
    const auto utils = std::make_shared<TAV::TAVUtils>(system, logger, kernel);
    const TAV::QelArchiveUtils archive(logger, utils);
    const pid_t before = getpid();
    const bool ok = utils->executeSystemCommand({"/bin/true"}, nullptr);
    if (getpid() != before)
    {
        const ssize_t told = write(STDERR_FILENO, "not started\n", 12);
        _exit(told < 0 ? 126 : 127);
    }
    return expect(ok, "runs a command");
}

bool hashes()
{
    TAV::QelSSLUtils ssl;
    std::string md5;
    std::string sha1;
    std::string sha256;
    const bool ok = ssl.getChecksumValues("abc", TAV::INPUT_DATA, md5, sha1, sha256);
    return expect(ok && md5 == "900150983cd24fb0d6963f7d28e17f72", "hashes");
}

bool tellsTypes(const char* program)
{
    TAV::MagicUtils magic;
    magic.magicOpen();
    magic.magicLoad(nullptr);
    const char* answer = magic.magicFile(program);
    const std::string type = answer != nullptr ? answer : "";
    magic.magicClose();
    return expect(type.rfind("application/x-", 0) == 0, "tells the type of a file");
}

bool reachesLibcurl(PrintingLogger& logger)
{
    TAV::CurlWrapper curl(logger, std::make_shared<TAV::CurlAPIUtility>());
    CURLcode code = CURLE_COULDNT_CONNECT;
    return expect(curl.getCURLErrMsg(code) == curl_easy_strerror(code), "reaches libcurl");
}

bool reachesKerberos(PrintingLogger& logger)
{
    const auto calls = std::make_shared<TAV::KrbAPIWrapper>();
    std::string cache = "/nonexistent/cache";
    std::string keytab = "/nonexistent/keytab";
    const TAV::KrbHandler handler(logger, std::make_shared<TAV::TAVSystemUtils>(), cache, keytab, calls);
    char name[] = "arcfour-hmac-md5";
    krb5_enctype type = 0;
    const bool ok = calls->krb5StringToEnctype(name, &type) == 0 && type == ENCTYPE_ARCFOUR_HMAC;
    return expect(ok && std::getenv("KRB5CCNAME") == cache, "reaches the Kerberos library");
}

bool catchesByType(PrintingLogger& logger)
{
    try
    {
        const TAV::TAVUtils utils(nullptr, logger, nullptr);
    }
    catch (const TAV::FMXException& e)
    {
        return expect(e.code == 1, "catches the exception by its type");
    }
    return expect(false, "catches the exception by its type");
}

} // namespace

int main(int /*argc*/, char** argv)
{
    PrintingLogger logger;
    bool good = runsACommand(logger);
    good = hashes() && good;
    good = tellsTypes(argv[0]) && good;
    good = reachesLibcurl(logger) && good;
    good = reachesKerberos(logger) && good;
    good = catchesByType(logger) && good;
    good = expect(TAV::kLoopbackInterfaceName == "lo", "reads the constants") && good;
    return good ? 0 : 1;
}
