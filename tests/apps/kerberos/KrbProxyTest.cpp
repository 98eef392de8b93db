// tavctl query and endpoint_scan as they are, through a proxy that asks for tickets.

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "apps/ProgramRun.h"
#include "apps/ReputationProcess.h"
#include "support/NegotiateProxy.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

using namespace TAV::test;
using nlohmann::json;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

namespace
{

constexpr const char* kUser = "user@TEST.EXAMPLE";
constexpr const char* kOther = "other@TEST.EXAMPLE";
constexpr const char* kNoTicket = "no ticket for user@TEST.EXAMPLE: wrong password";

std::string missing()
{
    for (const std::string& what : {Kdc::missing(), SquidProxy::missing()})
    {
        if (!what.empty())
            return what;
    }
    return ::access(ARCHIVE_TOOL, X_OK) == 0 ? "" : "the archive tool is not at " ARCHIVE_TOOL;
}

/// A KDC with two accounts, a proxy for its users, and the reputation server.
struct Scene
{
    Scene() : proxy(negotiateProxy(kdc, kdc.addService("HTTP/localhost")))
    {
        kdc.addUser("user", "secret");
        kdc.addUser("other", "secret");
    }

    Kdc kdc;
    SquidProxy proxy;
    ReputationProcess server;
};

class KrbProxyTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (const std::string what = missing(); !what.empty())
            GTEST_SKIP() << what;
        m_scene = std::make_unique<Scene>();
        m_place.write("right", "secret\n");
        m_place.write("wrong", "guessed\n");
        m_place.write("pw", "archive password");
        fs::create_directory(m_place.file("tmp"));
        fs::create_directory(m_place.file("files"));
        for (int i = 0; i < kFiles; ++i)
            m_place.write("files/" + std::to_string(i), "text " + std::to_string(i));
    }

    ProgramResult through(std::vector<std::string> argv, const std::string& user, const std::string& password) const
    {
        const Scene& scene = *m_scene;
        argv.insert(argv.end(), {"--server", scene.server.address(), "--ca", scene.server.caFile()});
        argv.insert(argv.end(), {"--proxy", scene.proxy.address()});
        if (!user.empty())
            argv.insert(argv.end(), {"--krb-principal", user, "--krb-password-file", m_place.file(password)});
        ProgramRun run;
        run.argv = argv;
        run.environment = {{"KRB5_CONFIG", scene.kdc.clientConfig()}, {"TMPDIR", m_place.file("tmp")}};
        return run.run();
    }

    ProgramResult
    query(const std::string& user, const std::string& password = "right", std::vector<std::string> more = {}) const
    {
        more.insert(more.begin(), {TAVCTL, "query", "--data", R"({"sha256": ")" + std::string(64, 'a') + R"("})"});
        return through(more, user, password);
    }

    ProgramResult
    scan(const std::string& user, const std::string& password = "right", std::vector<std::string> more = {}) const
    {
        more.insert(more.begin(), {ENDPOINT_SCAN, "scan", m_place.file("files"), "--threads", "3"});
        more.insert(more.end(), {"--quarantine", m_place.file("q"), "--password-file", m_place.file("pw")});
        more.insert(more.end(), {"--json", m_place.file("report")});
        return through(more, user, password);
    }

    json report() const { return json::parse(readFile(m_place.file("report"))); }

    /// Who had tunnels through the proxy, in their order; waits until there are so many.
    std::vector<std::string> usersLetThrough(std::size_t expected) const
    {
        std::vector<std::string> users;
        eventually(
            [&]
            {
                users.clear();
                for (const SquidRequest& request : m_scene->proxy.requests(0))
                {
                    if (request.result == "TCP_TUNNEL/200")
                        users.push_back(request.user);
                }
                return users.size() >= expected;
            });
        return users;
    }

    bool nothingIsLeft() const { return fs::is_empty(m_place.file("tmp")); }

    static constexpr int kFiles = 12;
    TemporaryDirectory m_place;
    std::unique_ptr<Scene> m_scene;
};

TEST_F(KrbProxyTest, QueryPassesUnderTheNameOfWhoeverHasATicket)
{
    EXPECT_EQ(query("").exitCode, 3);
    for (const char* user : {kUser, kOther})
    {
        const ProgramResult result = query(user);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_THAT(result.out, AllOf(HasSubstr("success: HTTP 200"), HasSubstr("\"verdict\"")));
    }
    const ProgramResult refused = query(kUser, "wrong");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.out, IsEmpty());
    EXPECT_THAT(refused.err, HasSubstr(std::string("tavctl: query: ") + kNoTicket + ". Give the account's password."));
    EXPECT_THAT(usersLetThrough(2), ElementsAre(kUser, kOther));
    EXPECT_TRUE(nothingIsLeft());
}

TEST_F(KrbProxyTest, QueryUsesGivenPathsAndLeavesNothingThere)
{
    const std::string keytab = m_place.file("k");
    const std::string cache = m_place.file("c");
    EXPECT_EQ(query(kUser, "right", {"--krb-keytab", keytab, "--krb-cache", cache, "--repeat", "3"}).exitCode, 0);
    EXPECT_FALSE(fs::exists(keytab));
    EXPECT_FALSE(fs::exists(cache));
    const ProgramResult foreign = query(kUser, "right", {"--krb-keytab", m_place.file("pw")});
    EXPECT_EQ(foreign.exitCode, 1);
    EXPECT_THAT(foreign.err, HasSubstr("exists and is no keytab"));
    EXPECT_EQ(readFile(m_place.file("pw")), "archive password");
}

TEST_F(KrbProxyTest, ScanPassesWithATicketAndLeavesNothingOfIt)
{
    const ProgramResult result = scan(kUser);
    EXPECT_EQ(result.exitCode, 0) << result.err << result.out;
    EXPECT_EQ(report().at("proxy"), m_scene->proxy.address());
    EXPECT_EQ(report().at("summary").at("clean"), kFiles);
    EXPECT_THAT(usersLetThrough(1), Each(kUser));
    EXPECT_LE(m_scene->kdc.issued(kUser, "krbtgt/TEST.EXAMPLE@TEST.EXAMPLE"), 1U + 3U)
        << "the renewal's, and GSSAPI's, for which threads that begin at the same time may each ask";
    EXPECT_TRUE(nothingIsLeft());
}

TEST_F(KrbProxyTest, ScanWithoutATicketLosesNoFile)
{
    const ProgramResult result = scan(kUser, "wrong");
    EXPECT_EQ(result.exitCode, 6) << result.err;
    EXPECT_THAT(result.err, HasSubstr(std::string("endpoint_scan: ") + kNoTicket + ". Give the account's password."));
    const json whole = report();
    EXPECT_EQ(whole.at("summary").at("unknown"), kFiles);
    for (const json& file : whole.at("files"))
    {
        EXPECT_THAT(file.at("reason").get<std::string>(),
                    AllOf(HasSubstr("no answer: "), HasSubstr(std::string("; ") + kNoTicket)));
    }
    EXPECT_EQ(m_scene->kdc.issued(kUser, "krbtgt/TEST.EXAMPLE@TEST.EXAMPLE"), 1U)
        << "the KDC gives a ticket to anybody, of use with the password only; but nobody asks it again and again";
    EXPECT_TRUE(nothingIsLeft());
}

TEST_F(KrbProxyTest, ScanThroughADeadProxyLosesNoFile)
{
    m_scene->proxy.stop();
    EXPECT_EQ(scan(kUser).exitCode, 6);
    EXPECT_EQ(report().at("summary").at("unknown"), kFiles);
    EXPECT_EQ(m_scene->kdc.issued(kUser, "krbtgt/TEST.EXAMPLE@TEST.EXAMPLE"), 2U) << "the first, and one renewal";
}

TEST(KrbOptionsTest, BadArgumentsAreRefusedBeforeAnything)
{
    const TemporaryDirectory place;
    const std::string ca = place.write("ca", "");
    const std::string pw = place.write("pw", "secret");
    const std::vector<std::string> query{TAVCTL, "query", "--server", "localhost:1", "--ca", ca};
    const std::vector<std::string> scan{ENDPOINT_SCAN,
                                        "scan",
                                        place.path(),
                                        "--server",
                                        "localhost:1",
                                        "--ca",
                                        ca,
                                        "--quarantine",
                                        place.file("q"),
                                        "--password-file",
                                        pw};
    struct Case
    {
        std::vector<std::string> program;
        std::vector<std::string> arguments;
        const char* reason;
    };
    const std::vector<Case> cases{
        {query, {"--krb-principal", kUser, "--krb-password-file", pw}, "--proxy"},
        {query, {"--proxy", "p:1", "--krb-principal", kUser}, "where its password comes from"},
        {query, {"--proxy", "p:1", "--krb-principal", "", "--krb-password-file", pw}, "the name is missing"},
        {query, {"--proxy", "p:1", "--krb-password-file", pw}, "--krb-principal"},
        {query, {"--proxy", "p:1", "--krb-keytab", "k"}, "--krb-principal"},
        {query,
         {"--proxy", "p:1", "--krb-principal", kUser, "--krb-password-file", pw, "--krb-cache", "FILE:/c"},
         "--krb-cache: FILE:/c: what stands"},
        {scan, {"--krb-principal", kUser, "--krb-password-file", pw}, "--proxy"},
        {scan, {"--proxy", "p:1", "--krb-principal", kUser}, "--krb-password-file"},
        {scan, {"--proxy", "p:1", "--krb-password-file", pw}, "--krb-principal"},
        {scan,
         {"--proxy", "p:1", "--krb-principal", kUser, "--krb-password-file", pw, "--krb-cache", "FILE:/c"},
         "--krb-cache: FILE:/c: what stands"},
        {scan, {"--proxy", "http://p:1"}, "not HOST or HOST:PORT"},
        {scan, {"--proxy", ""}, "the host is missing"},
        {scan, {"--proxy", "p:1", "--krb-principal", kUser, "--krb-password-file", ca}, "the secret is empty"},
        {scan,
         {"--proxy", "p:1", "--krb-principal", kUser, "--krb-password-file", pw, "--krb-keytab", ca},
         "exists and is no keytab"},
    };
    for (const Case& c : cases)
    {
        std::vector<std::string> argv = c.program;
        argv.insert(argv.end(), c.arguments.begin(), c.arguments.end());
        const ProgramResult result = runProgram(argv);
        EXPECT_EQ(result.exitCode, 2) << ::testing::PrintToString(argv) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.reason)) << ::testing::PrintToString(argv);
    }
    EXPECT_EQ(readFile(ca), "");
    EXPECT_FALSE(fs::exists(place.file("q")));
}

} // namespace
