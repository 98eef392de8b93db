// tav_query_child HOST CAFILE STEP...
//
// A process of its own for queries that need one, step by step:
//
//     ask          asks HOST over the library's client and tells the result or the exception, the length of the
//                  response, what became of the timings, and each log line
//     bare         asks with the same options, but without the lower limit of the TLS version, over libcurl alone
//     reopen       closes the session and opens it again
//     sockets      tells how many sockets the process has
//     memory=N     from here on, takes N bytes of memory at most in addition to what it has

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "QueryScene.h"

namespace
{

using TAV::test::QueryScene;

void tell(const std::string& line)
{
    static_cast<void>(std::printf("%s\n", line.c_str()));
}

std::string timingsIn(const TAV::LumoStats& stats)
{
    const TAV::LumoStats& before = TAV::test::kUntouchedStats;
    if (stats == before)
        return "untouched";
    return stats.totalTimeMs != before.totalTimeMs && stats.tlsConnectTimeMs != before.tlsConnectTimeMs
               ? "written"
               : "half written";
}

void ask(QueryScene& scene)
{
    TAV::TAVHTTPHeader header;
    TAV::LumoStats stats = TAV::test::kUntouchedStats;
    std::string response;
    std::string end;
    const std::size_t linesBefore = scene.logger.lines().size();
    try
    {
        end = scene.client.sendNetworkRequest(header, "a question", response, QueryScene::kSession, stats) ? "true"
                                                                                                           : "false";
    }
    catch (const std::exception& problem)
    {
        end = std::string("threw ") + problem.what();
    }
    tell(end + " " + std::to_string(response.size()) + " " + timingsIn(stats));
    const auto lines = scene.logger.lines();
    for (std::size_t i = linesBefore; i < lines.size(); ++i)
        tell(lines[i].message);
}

std::size_t drop(char*, std::size_t size, std::size_t count, void*)
{
    return size * count;
}

void askBare(const TAV::TAVQueryConfig& config)
{
    CURL* const handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_URL, ("https://" + config.serverHost + "/1").c_str());
    curl_easy_setopt(handle, CURLOPT_CAINFO, config.caCertPath.c_str());
    curl_easy_setopt(handle, CURLOPT_TIMEOUT, config.timeout);
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &drop);
    const CURLcode transfer = curl_easy_perform(handle);
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_cleanup(handle);
    tell(std::to_string(transfer) + " " + std::to_string(status));
}

void reopen(QueryScene& scene)
{
    scene.client.deInitSession(QueryScene::kSession);
    scene.client.initSession(QueryScene::kSession);
}

void countSockets()
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code error;
        count += std::filesystem::is_socket(entry.path(), error) ? 1 : 0;
    }
    tell("sockets " + std::to_string(count));
}

void limitMemory(std::size_t bytes)
{
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) + bytes;
    const rlimit both = {limit, limit};
    if (::setrlimit(RLIMIT_AS, &both) != 0)
        throw std::runtime_error("cannot limit the memory");
}

} // namespace

int main(int argc, char** argv)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    constexpr int kFirstStep = 3;
    if (argc < kFirstStep)
        return 2;
    TAV::TAVQueryConfig config = TAV::test::configTowards(0, argv[2]);
    config.serverHost = argv[1];
    QueryScene scene(config);
    for (int i = kFirstStep; i < argc; ++i)
    {
        const std::string step = argv[i];
        if (step == "ask")
            ask(scene);
        else if (step == "bare")
            askBare(config);
        else if (step == "reopen")
            reopen(scene);
        else if (step == "sockets")
            countSockets();
        else if (step.rfind("memory=", 0) == 0)
            limitMemory(std::stoul(step.substr(step.find('=') + 1)));
        else
            return 2;
    }
    return 0;
}
