// Recipe: a call layer under which an answer that breaks off is a failed query.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "QueryScene.h"
#include "RawTlsServer.h"
#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

//! [complete answers]
/// The calls into libcurl, with status 0 for every transfer that libcurl did not finish: the client then takes it for
/// failed, and logs libcurl's reason.
class CompleteAnswers : public TAV::CurlAPIUtility
{
public:
    CURLcode curlEasyPerform(void* handle) override { return transferred() = CurlAPIUtility::curlEasyPerform(handle); }

    CURLcode curlGetInfo(void* handle, CURLINFO info, long& out) override
    {
        const CURLcode result = CurlAPIUtility::curlGetInfo(handle, info, out);
        if (info == CURLINFO_RESPONSE_CODE && transferred() != CURLE_OK)
            out = 0;
        return result;
    }
    using CurlAPIUtility::curlGetInfo; // the one for times

private:
    static CURLcode& transferred()
    {
        thread_local CURLcode result = CURLE_OK; // a client asks for the status on the thread that sent
        return result;
    }
};
//! [complete answers]

using namespace TAV::test;

bool ask(const std::shared_ptr<TAV::ICurlAPIUtility>& api, const Script& script, RecordingLogger& logger)
{
    RawTlsServer server({afterRequest(script)});
    TAV::CurlWrapper client(logger, api);
    client.configureOptions(configTowards(server.port(), TestAuthority::shared().caFile()), 1);
    client.initSession(1);
    TAV::TAVHTTPHeader header;
    TAV::LumoStats stats;
    std::string response;
    return client.sendNetworkRequest(header, "a question", response, 1, stats);
}

const Script kCutAnswer{send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nfour"), reset()};

TEST(CompleteAnswersTest, RefuseAnAnswerThatBreaksOff)
{
    RecordingLogger logger;

    EXPECT_FALSE(ask(std::make_shared<CompleteAnswers>(), kCutAnswer, logger));
    EXPECT_EQ(logger.lines().size(), 3U);
}

TEST(CompleteAnswersTest, AreNeededBecauseTheStatusAloneDecides)
{
    RecordingLogger logger;

    EXPECT_TRUE(ask(std::make_shared<TAV::CurlAPIUtility>(), kCutAnswer, logger));
}

TEST(CompleteAnswersTest, PassAWholeAnswer)
{
    RecordingLogger logger;

    EXPECT_TRUE(ask(std::make_shared<CompleteAnswers>(), {send(answer("whole"))}, logger));
}

} // namespace
