// Recipe: a call layer that puts an end to answers without end.

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <string>

#include "QueryScene.h"
#include "RawTlsServer.h"
#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"

namespace
{

//! [capped answers]
/// The calls into libcurl, with an end to every answer. Besides, nothing is thrown through libcurl.
class CappedAnswers : public TAV::CurlAPIUtility
{
public:
    static constexpr std::size_t kLongest = 1'000'000; // bytes

    CURLcode curlSetCallbackFuncOpt(void* handle) override
    {
        return curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &CappedAnswers::append);
    }

private:
    static std::size_t append(char* data, std::size_t size, std::size_t count, std::string* response) noexcept
    try
    {
        if (response->size() > kLongest || size * count > kLongest - response->size())
            return 0; // fewer than there are: libcurl ends the transfer
        return writeCallback(data, size, count, response);
    }
    catch (const std::exception&)
    {
        return 0; // no memory
    }
};
//! [capped answers]

using namespace TAV::test;

/// How long the response is when a server has sent so many bytes behind what it held.
std::size_t
lengthOfAnswer(const std::shared_ptr<TAV::ICurlAPIUtility>& api, std::size_t sent, std::string response = "")
{
    RawTlsServer server({afterRequest({send(answer(std::string(sent, 'x')))})});
    RecordingLogger logger;
    TAV::CurlWrapper client(logger, api);
    client.configureOptions(configTowards(server.port(), TestAuthority::shared().caFile()), 1);
    client.initSession(1);
    TAV::TAVHTTPHeader header;
    TAV::LumoStats stats;
    client.sendNetworkRequest(header, "a question", response, 1, stats);
    return response.size();
}

constexpr std::size_t kTooLong = CappedAnswers::kLongest + 1;

TEST(CappedAnswersTest, EndAtTheLimit)
{
    EXPECT_LE(lengthOfAnswer(std::make_shared<CappedAnswers>(), kTooLong), CappedAnswers::kLongest);
}

TEST(CappedAnswersTest, AreWholeUpToTheLimit)
{
    EXPECT_EQ(lengthOfAnswer(std::make_shared<CappedAnswers>(), CappedAnswers::kLongest), CappedAnswers::kLongest);
}

TEST(CappedAnswersTest, LeaveAResponseAloneThatIsTooLongAlready)
{
    const std::string held(kTooLong, 'h');

    EXPECT_EQ(lengthOfAnswer(std::make_shared<CappedAnswers>(), 1, held), kTooLong);
}

TEST(CappedAnswersTest, CountWhatTheResponseHeldBefore)
{
    const std::string held(CappedAnswers::kLongest - 1, 'h');

    EXPECT_EQ(lengthOfAnswer(std::make_shared<CappedAnswers>(), 1, held), CappedAnswers::kLongest);
    EXPECT_EQ(lengthOfAnswer(std::make_shared<CappedAnswers>(), 2, held), CappedAnswers::kLongest - 1);
}

TEST(CappedAnswersTest, AreNeededBecauseAnAnswerGrowsWithoutLimit)
{
    EXPECT_EQ(lengthOfAnswer(std::make_shared<TAV::CurlAPIUtility>(), kTooLong), kTooLong);
}

} // namespace
