// Recipe: a query that leaves a usable session behind whatever happens.

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

#include "tav/CurlWrapper.h"
#include "tav/FMXException.h"
#include "tav/testing/FakeCurlAPIUtility.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

//! [reopened session]
/// Sends a query; if it ends with an exception, the session is closed and opened anew. No other thread may use the
/// client meanwhile.
bool ask(TAV::ICurlWrapper& client, unsigned long session, const std::string& question, std::string& response)
try
{
    TAV::TAVHTTPHeader header;
    TAV::LumoStats stats;
    return client.sendNetworkRequest(header, question, response, session, stats);
}
catch (...) // an FMXException is no std::exception
{
    client.deInitSession(session);
    client.initSession(session);
    return false;
}
//! [reopened session]

using TAV::test::FakeCurlAPIUtility;

struct Scene
{
    Scene()
    {
        api->numbers[CURLINFO_RESPONSE_CODE] = 200;
        client.configureOptions({}, 1);
        client.initSession(1);
    }

    std::shared_ptr<FakeCurlAPIUtility> api = std::make_shared<FakeCurlAPIUtility>();
    TAV::test::RecordingLogger logger;
    TAV::CurlWrapper client{logger, api};
    std::string response;
};

TEST(ReopenedSessionTest, AsksOnANewHandleAfterAnException)
{
    Scene scene;
    scene.api->onTransfer = [](std::string&) { throw std::bad_alloc(); };
    EXPECT_FALSE(ask(scene.client, 1, "a question", scene.response));
    scene.api->onTransfer = nullptr;
    scene.api->takeCalls();

    EXPECT_TRUE(ask(scene.client, 1, "a question", scene.response));
    for (const std::string& call : scene.api->calls())
        EXPECT_EQ(call.find("handle 1"), std::string::npos) << call;
}

TEST(ReopenedSessionTest, DoesTheSameAfterARefusedOption)
{
    Scene scene;
    scene.api->failCall("curlSetHeaderOpt", 1, CURLE_OUT_OF_MEMORY);

    EXPECT_FALSE(ask(scene.client, 1, "a question", scene.response));
    EXPECT_TRUE(ask(scene.client, 1, "a question", scene.response));
}

} // namespace
