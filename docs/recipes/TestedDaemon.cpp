// Recipe: test a piece of a daemon with the ready-made test doubles, every failing call included.

#include <gmock/gmock.h>

#include <memory>
#include <string>

//! [includes]
#include "tav/FMXException.h"
#include "tav/testing/FakeCurlWrapper.h"
#include "tav/testing/FakeKrbHandler.h"
#include "tav/testing/FakeQelSSL.h"
//! [includes]
#include "tav/testing/MockKrbHandler.h"

namespace
{

//! [daemon]
/// What the server says of a file: "clean", "malicious", or "unknown" whatever goes wrong. A proxy that refuses shows
/// as a failed query, so the ticket is renewed and the question asked once more.
std::string verdictOn(const std::string& path, TAV::IQelSSL& ssl, TAV::ICurlWrapper& client, TAV::IkrbHandler& tickets)
try
{
    std::string md5;
    std::string sha1;
    std::string sha256;
    if (!ssl.getChecksumValues(path, TAV::INPUT_FILE_PATH, md5, sha1, sha256))
        return "unknown";
    TAV::TAVHTTPHeader header;
    TAV::LumoStats stats;
    std::string answer;
    if (!client.sendNetworkRequest(header, sha256, answer, 0, stats))
    {
        answer.clear(); // a failed query may have brought a body, too
        if (!tickets.renewTicket() || !client.sendNetworkRequest(header, sha256, answer, 0, stats))
            return "unknown";
    }
    return answer == "clean" || answer == "malicious" ? answer : "unknown";
}
catch (const TAV::FMXException&)
{
    return "unknown";
}
//! [daemon]

//! [scene]
using namespace TAV::test;

/// A file, a proxy that lets nobody pass without a new ticket, and a server that calls everything clean.
struct Scene
{
    explicit Scene(std::shared_ptr<FaultPlan> plan = std::make_shared<FaultPlan>())
        : ssl(plan), client(plan), tickets(plan)
    {
        ssl.checksums["/sample"] = {"", "", "ba7816bf"}; // no such file is needed
        client.configureOptions({}, 0);
        client.initSession(0);
        client.onRequest = [this](const CurlRequest&)
        {
            CurlAnswer answer;
            answer.status = tickets.countOf("renewTicket") == 0 ? 0 : 200;
            answer.body = answer.status == 0 ? "<html>" : "clean";
            return answer;
        };
    }

    std::string verdict() { return verdictOn("/sample", ssl, client, tickets); }

    FakeQelSSL ssl;
    FakeCurlWrapper client;
    FakeKrbHandler tickets;
};
//! [scene]

//! [tests]
TEST(VerdictTest, ARefusedQuestionIsAskedAgainWithANewTicket)
{
    Scene scene;
    EXPECT_EQ(scene.verdict(), "clean");
    EXPECT_EQ(scene.tickets.countOf("renewTicket"), 1U);
    ASSERT_EQ(scene.client.requests().size(), 2U);
    EXPECT_EQ(scene.client.requests()[1].payload, "ba7816bf");
}

TEST(VerdictTest, AFileThatCannotBeReadIsNotAskedAbout)
{
    Scene scene;
    scene.ssl.failCall("getChecksumValues", 1);
    EXPECT_EQ(scene.verdict(), "unknown");
    EXPECT_TRUE(scene.client.requests().empty());
}

TEST(VerdictTest, NoFailureMakesAFileClean)
{
    for (unsigned int nth = 1;; ++nth)
    {
        const auto plan = std::make_shared<FaultPlan>();
        Scene scene(plan);
        plan->failAnyCall(nth); // counted from here on, through all three fakes
        const std::string verdict = scene.verdict();
        if (!plan->hasFailed())
        {
            EXPECT_EQ(nth, 5U) << "the checksum, a query, a ticket, a query";
            EXPECT_EQ(verdict, "clean");
            break;
        }
        EXPECT_EQ(verdict, "unknown") << "when call " << nth << " fails";
    }
}
//! [tests]

//! [mock]
TEST(VerdictTest, AnAnswerCostsNoTicket)
{
    Scene scene;
    scene.client.onRequest = nullptr;
    scene.client.answer.body = "malicious";
    ::testing::StrictMock<MockKrbHandler> tickets; // any call fails the test
    EXPECT_EQ(verdictOn("/sample", scene.ssl, scene.client, tickets), "malicious");
}
//! [mock]

} // namespace
