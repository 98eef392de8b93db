// query HOST:PORT CA-FILE TEXT...: asks a server about each text, over one connection.
#include <csignal>
#include <iostream>
#include <memory>
#include <string>

#include "PrintingLogger.h"
#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"
#include "tav/FMXException.h"

int main(int argc, char** argv)
try
{
    if (argc < 4 || std::string(argv[1]).empty()) // libcurl would make an address of an empty host
    {
        std::cerr << "usage: query HOST:PORT CA-FILE TEXT...\n";
        return 2;
    }
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    PrintingLogger logger;
    TAV::CurlWrapper client(logger, std::make_shared<TAV::CurlAPIUtility>()); // one, before threads start
    TAV::TAVQueryConfig config;
    config.requestType = "POST";
    config.serverHost = argv[1];
    config.caCertPath = argv[2];
    config.timeout = 10; // seconds
    client.configureOptions(config, 0);

    constexpr unsigned long kSession = 1; // one for each thread
    client.initSession(kSession);
    TAV::TAVHTTPHeader header;
    header.firstHeader = "Content-Type: text/plain";
    int failures = 0;
    for (int i = 3; i < argc; ++i)
    {
        std::string answer;
        TAV::LumoStats stats;
        if (!client.sendNetworkRequest(header, argv[i], answer, kSession, stats)) // the status was not 200
            ++failures;
        std::cout << argv[i] << ": " << answer << " (" << stats.totalTimeMs << " ms)\n";
    }
    client.deInitSession(kSession);
    return failures == 0 ? 0 : 1;
}
catch (const TAV::FMXException& failure) // no std::exception
{
    std::cerr << failure.message << "\n";
    return 1;
}
