#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

#include "BareCurl.h"
#include "Cases.h"
#include "NoLogger.h"
#include "Pair.h"
#include "integration/https/TestAuthority.h"
#include "peers/QueryPeers.h"
#include "support/NginxServer.h"
#include "support/TemporaryDirectory.h"
#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"

namespace TAV::bench
{
namespace
{

constexpr std::size_t kLargeBody = 10'000'000;
constexpr int kQueriesPerThread = 100;
constexpr const char* kPlain = "plain libcurl";
constexpr const char* kQuestion = R"({"sha256": "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"})";

/// An nginx that answers with few bytes or, to the case "large", with many.
class Server
{
public:
    Server() : m_nginx({site(m_directory.write("large", std::string(kLargeBody, 'x')))}) {}

    std::uint16_t port() const { return m_nginx.port(); }

private:
    static test::NginxSite site(const std::string& largeFile)
    {
        if (const std::string missing = test::NginxServer::missing(); !missing.empty())
            throw std::runtime_error(missing);
        test::NginxSite site;
        site.certificate = test::TestAuthority::shared().good().certificate;
        site.key = test::TestAuthority::shared().good().key;
        site.directives = "keepalive_requests 1000000000; keepalive_timeout 1h; access_log off;";
        site.cases = {{"large", "alias " + largeFile + ";"}};
        return site;
    }

    test::TemporaryDirectory m_directory;
    test::NginxServer m_nginx;
};

TAVQueryConfig configTowards(const Server& server, const char* method)
{
    TAVQueryConfig config;
    config.requestType = method;
    config.caCertPath = test::TestAuthority::shared().caFile();
    config.serverHost = "localhost:" + std::to_string(server.port());
    return config;
}

/// Five lines of a usual length.
TAVHTTPHeader someHeader(const char* firstLine)
{
    TAVHTTPHeader header;
    header.firstHeader = firstLine;
    header.key1 = "X-Client: ";
    header.value1 = "bench";
    header.key2 = "X-Kind: ";
    header.value3 = "sha256";
    header.key4 = "X-Version: ";
    header.value4 = "1";
    header.key3 = "X-Host: ";
    header.value2 = "localhost";
    return header;
}

peers::Question questionFor(const Server& server)
{
    return {server.port(),
            test::TestAuthority::shared().caFile(),
            {{"Content-Type", "application/json"},
             {"X-Client", "bench"},
             {"X-Kind", "sha256"},
             {"X-Version", "1"},
             {"X-Host", "localhost"}},
            kQuestion};
}

/// Runs one side in so many threads, each on a session of its own.
template <typename Ask>
void inThreads(unsigned int count, Ask ask)
{
    std::vector<std::thread> threads;
    for (unsigned int session = 0; session < count; ++session)
        threads.emplace_back(
            [&ask, session]
            {
                for (int query = 0; query < kQueriesPerThread; ++query)
                    ask(session);
            });
    for (std::thread& thread : threads)
        thread.join();
}

/// A server, and sessions of both sides towards it.
class Scene
{
public:
    Scene(unsigned int sessions, const char* method, const char* firstLine)
        : m_config(configTowards(m_server, method)), m_header(someHeader(firstLine)), m_stats(sessions)
    {
        m_client.configureOptions(m_config, 0);
        for (unsigned int session = 0; session < sessions; ++session)
        {
            m_client.initSession(session);
            m_bare.push_back(std::make_unique<BareCurl>(m_config));
        }
    }

    /// A client of another kind, which asks the same server.
    void connect(const peers::Connect& connect) { m_other = connect(questionFor(m_server)); }

    void query(unsigned long session)
    {
        std::string response;
        require(m_client.sendNetworkRequest(m_header, kQuestion, response, session, m_stats[session]), "a query");
    }
    void queryBarely(unsigned long session)
    {
        std::string response;
        require(m_bare[session]->send(m_header, kQuestion, response), "libcurl");
    }
    void queryOtherwise() const { m_other(); }

    void open()
    {
        m_client.initSession(m_bare.size());
        m_client.deInitSession(m_bare.size());
    }
    void openBarely() const { const BareCurl session(m_config); }
    /// A bare handle, kept as the client keeps its sessions: in a table of owners that share the call layer.
    void openIntoTable()
    {
        Owner session(nullptr, [api = m_api](void* handle) { api->curlEasyCleanup(handle); });
        {
            const boost::lock_guard<boost::mutex> lock(m_tableMutex);
            session.reset(BareCurl::open(m_config));
        }
        m_table.emplace(m_bare.size(), std::move(session));
        m_table.erase(m_bare.size());
    }

    void queryOnce()
    {
        m_client.initSession(m_bare.size());
        m_stats.resize(m_bare.size() + 1);
        query(m_bare.size());
        m_client.deInitSession(m_bare.size());
    }
    void queryOnceBarely() const
    {
        BareCurl session(m_config);
        std::string response;
        require(session.send(m_header, kQuestion, response), "libcurl");
    }

private:
    using Owner = std::unique_ptr<void, std::function<void(void*)>>;

    Server m_server;
    TAVQueryConfig m_config;
    TAVHTTPHeader m_header;
    NoLogger m_logger;
    std::shared_ptr<ICurlAPIUtility> m_api = std::make_shared<CurlAPIUtility>();
    CurlWrapper m_client{m_logger, m_api};
    std::map<unsigned long, Owner> m_table;
    boost::mutex m_tableMutex;
    std::vector<std::unique_ptr<BareCurl>> m_bare;
    std::vector<LumoStats> m_stats;
    Work m_other;
};

using SceneWhileMeasured = WhileMeasured<Scene>;

std::function<std::shared_ptr<void>()> smallAnswers(const SceneWhileMeasured& scene, unsigned int sessions)
{
    return scene.madeBy([sessions]
                        { return std::make_unique<Scene>(sessions, "POST", "Content-Type: application/json"); });
}

Pair plainPair(const std::string& what, double target, const SceneWhileMeasured& scene)
{
    Pair pair{what, kPlain, target};
    pair.ours = [scene] { scene->query(0); };
    pair.theirs = [scene] { scene->queryBarely(0); };
    pair.surroundings = smallAnswers(scene, 1);
    return pair;
}

void addOtherClient(const char* peer, double target, const peers::Connect& connect)
{
    const SceneWhileMeasured scene;
    Pair pair = plainPair("HTTPS query", target, scene);
    pair.peer = peer;
    pair.theirs = connect ? Work([scene] { scene->queryOtherwise(); }) : Work();
    pair.surroundings = [make = pair.surroundings, scene, connect]
    {
        auto held = make();
        scene->connect(connect);
        return held;
    };
    compare(pair);
}

void addThreads(unsigned int count)
{
    const SceneWhileMeasured scene;
    const std::string what = "HTTPS queries, " + std::to_string(count) + (count == 1 ? " thread" : " threads");
    Pair pair = plainPair(what, 1.08, scene);
    pair.ours = [scene, count] { inThreads(count, [&scene](unsigned int session) { scene->query(session); }); };
    pair.theirs = [scene, count] { inThreads(count, [&scene](unsigned int session) { scene->queryBarely(session); }); };
    pair.surroundings = smallAnswers(scene, count);
    pair.callsPerRound = 1;
    compareLatency(pair);
}

void addLargeAnswer()
{
    const SceneWhileMeasured scene;
    Pair pair = plainPair("HTTPS answer of 10 MB", 1.05, scene);
    pair.surroundings = scene.madeBy([] { return std::make_unique<Scene>(1, "GET", "X-Case: large"); });
    compare(pair);
}

using Step = std::function<void(Scene&)>;

void addOpening(const char* what, const char* peer, double target, const Step& ours, const Step& theirs)
{
    const SceneWhileMeasured scene;
    Pair pair = plainPair(what, target, scene);
    pair.peer = peer;
    pair.ours = [scene, ours] { ours(*scene); };
    pair.theirs = [scene, theirs] { theirs(*scene); };
    compare(pair);
}

} // namespace

void addQueryCases()
{
    const SceneWhileMeasured scene;
    compare(plainPair("HTTPS query", 1.08, scene));
    compareLatency(plainPair("HTTPS query, p50", 1.06, scene));
    addOtherClient("cpp-httplib", kAhead, peers::httplibClient());
    addOtherClient("Poco::Net", kNoTarget, peers::pocoClient());
    addOtherClient("Boost.Beast", kNoTarget, peers::beastClient());
    for (const unsigned int threads : {1U, 2U, 4U})
        addThreads(threads);
    addLargeAnswer();
    addOpening("open and close a session", kPlain, 1.05, &Scene::open, &Scene::openBarely);
    addOpening(
        "open and close a session", "plain libcurl in such a table", kAsFast, &Scene::open, &Scene::openIntoTable);
    addOpening("open, connect, ask and close", kPlain, kNoTarget, &Scene::queryOnce, &Scene::queryOnceBarely);
}

} // namespace TAV::bench
