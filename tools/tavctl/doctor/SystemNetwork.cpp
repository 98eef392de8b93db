// Whom this machine reaches.
#include <chrono>
#include <memory>

#include "common/QueryLog.h"
#include "common/StandardDescriptors.h"
#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"
#include "tavctl/doctor/SystemHost.h"

namespace tavctl::doctor
{
namespace
{

constexpr unsigned long kSession = 1;
constexpr long kSuccess = 200;
constexpr double kMsPerSecond = 1000;

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// libcurl itself, for as long as it lives.
class GlobalCurl
{
public:
    explicit GlobalCurl(TAV::CurlAPIUtility& api) : m_api(api) { m_api.curlGlobalInit(CURL_GLOBAL_ALL); }
    GlobalCurl(const GlobalCurl&) = delete;
    GlobalCurl& operator=(const GlobalCurl&) = delete;
    ~GlobalCurl() { m_api.curlGlobalCleanup(); }

private:
    TAV::CurlAPIUtility& m_api;
};

/// The proxy as the address of a plain connection. libcurl's port for a proxy is 1080 unless one is named.
std::string addressOf(const std::string& proxy)
{
    const std::size_t scheme = proxy.find("://");
    std::string host = scheme == std::string::npos ? proxy : proxy.substr(scheme + 3);
    host = host.substr(0, host.find('/'));
    const bool hasPort = host.find(':', host.front() == '[' ? host.find(']') : 0) != std::string::npos;
    return "http://" + host + (hasPort ? "" : ":1080");
}

Attempt judge(bool isAnswered, const TAV::LumoStats& stats, const std::vector<programs::QueryLine>& lines)
{
    Attempt attempt;
    if (isAnswered)
    {
        attempt.status = kSuccess;
        attempt.tlsSeconds = stats.tlsConnectTimeMs / kMsPerSecond;
        return attempt;
    }
    const programs::QueryFailure failure = programs::failureIn(lines);
    attempt.status = failure.status;
    attempt.error = failure.status == 0 ? failure.cause() : "";
    return attempt;
}

} // namespace

Attempt SystemHost::connectTo(const std::string& proxy, long timeout)
{
    programs::ignoreBrokenPipes();
    TAV::CurlAPIUtility api;
    const GlobalCurl global(api);
    const std::unique_ptr<void, void (*)(void*)> handle(api.curlEasyInit(), curl_easy_cleanup);
    api.curlSetStringOpt(handle.get(), CURLOPT_URL, addressOf(proxy));
    api.curlSetStringOpt(handle.get(), CURLOPT_PROXY, ""); // not through another one that the environment names
    api.curlSetLongOpt(handle.get(), CURLOPT_CONNECT_ONLY, 1);
    api.curlSetLongOpt(handle.get(), CURLOPT_TIMEOUT, timeout);
    const auto start = Clock::now();
    const CURLcode code = api.curlEasyPerform(handle.get());
    Attempt attempt;
    attempt.seconds = secondsSince(start);
    attempt.error = code == CURLE_OK ? "" : api.curlEasyStrerror(code);
    return attempt;
}

Attempt SystemHost::query(const Questions& questions)
{
    programs::ignoreBrokenPipes();
    TAV::TAVQueryConfig config;
    config.requestType = "POST";
    config.serverHost = questions.server;
    config.caCertPath = questions.caFile;
    config.proxyAddress = questions.proxy;
    config.timeout = questions.timeout;
    programs::QueryLog log(m_context.logger);
    TAV::CurlWrapper client(log, std::make_shared<TAV::CurlAPIUtility>());
    client.configureOptions(config, kSession);
    client.initSession(kSession);
    TAV::TAVHTTPHeader header;
    std::string response;
    TAV::LumoStats stats;
    const auto start = Clock::now();
    const bool isAnswered = client.sendNetworkRequest(header, "", response, kSession, stats);
    const double seconds = secondsSince(start);
    client.deInitSession(kSession);
    Attempt attempt = judge(isAnswered, stats, log.takeLines());
    attempt.seconds = seconds;
    return attempt;
}

} // namespace tavctl::doctor
