// The whole life of a client, short enough for valgrind: a few queries of every outcome, and one session still open
// when the client dies.
//
//     https_valgrind_subject PORT CA-FILE
//     https_valgrind_subject leak             loses a block instead: shows that it would be seen

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"

namespace
{

constexpr unsigned long kClosed = 1;
constexpr unsigned long kLeftOpen = 2;
constexpr unsigned long kUnknown = 3;

class SilentLogger : public TAV::ILogger
{
public:
    void log(int, std::string) override {}
    void log(int, std::string, const std::string&) override {}
};

bool ask(TAV::CurlWrapper& client, unsigned long session, const char* caseName)
{
    TAV::TAVHTTPHeader header;
    header.firstHeader = std::string("X-Case: ") + caseName;
    std::string response;
    TAV::LumoStats stats;
    return client.sendNetworkRequest(header, "a question", response, session, stats);
}

void liveOnce(const std::string& host, const char* caFile)
{
    SilentLogger logger;
    TAV::CurlWrapper client(logger, std::make_shared<TAV::CurlAPIUtility>());
    TAV::TAVQueryConfig config;
    config.requestType = "POST";
    config.serverHost = host;
    config.caCertPath = caFile;
    client.configureOptions(config, 0);
    client.initSession(kClosed);
    client.initSession(kLeftOpen);
    for (const unsigned long session : {kClosed, kLeftOpen, kUnknown})
    {
        for (const char* caseName : {"echo", "echo", "404", "444"})
            std::fputs(ask(client, session, caseName) ? "yes " : "no ", stdout);
    }
    client.deInitSession(kClosed);
}

} // namespace

int main(int count, char** arguments)
{
    if (count == 2 && std::strcmp(arguments[1], "leak") == 0)
        return std::malloc(1) == nullptr ? 2 : 0;
    if (count != 3)
        return 2;
    liveOnce(std::string("127.0.0.1:") + arguments[1], arguments[2]);
    return 0;
}
