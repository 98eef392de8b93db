#include <climits>
#include <cstring>

#include "CurlFixture.h"

namespace TAV
{
namespace
{

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kFailed = "Failed to connect to Lumo server: ";
const std::string kLastCode = "Last HTTP response code received from Lumo server is: ";
const std::string kLastText = "Last HTTP response message received from Lumo server is: ";

class RequestTest : public CurlFixture
{
protected:
    void SetUp() override { open({1}); }

    std::string thrownBySending()
    {
        return thrownBy([&] { send(1, 200); });
    }

    void expectNothingWritten() const
    {
        EXPECT_EQ(response, "before:");
        expectStats(1, 2, 3, 4);
    }

    void expectStats(int attempts, int queued, int total, int tls) const
    {
        EXPECT_EQ(stats.attempts, attempts);
        EXPECT_EQ(stats.queueTimeMs, queued);
        EXPECT_EQ(stats.totalTimeMs, total);
        EXPECT_EQ(stats.tlsConnectTimeMs, tls);
    }
};

TEST_F(RequestTest, SuccessMakesTheseCalls)
{
    EXPECT_TRUE(send(1, 200));
    EXPECT_EQ(api->calls(),
              sendingCalls(1, 1, "payload") + Texts({"curlGetInfo(handle 1, CURLINFO_APPCONNECT_TIME, double)",
                                                     "curlGetInfo(handle 1, CURLINFO_TOTAL_TIME, double)"}));
    EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(RequestTest, AnyOtherStatusMakesTheseCalls)
{
    EXPECT_FALSE(send(1, 404));
    EXPECT_EQ(api->calls(), sendingCalls(1, 1, "payload") + Texts{"curlEasyStrerror(0)"});
}

TEST_F(RequestTest, UnknownIdIsLoggedWithoutComponentAndTouchesNothing)
{
    EXPECT_FALSE(send(2, 200));
    EXPECT_FALSE(send(ULONG_MAX, 200));
    EXPECT_THAT(logger.lines(),
                ElementsAre(untagged("cURL session id 2 not found to perform query."),
                            untagged("cURL session id 18446744073709551615 not found to perform query.")));
    EXPECT_THAT(api->calls(), IsEmpty());
    expectNothingWritten();
}

TEST_F(RequestTest, HeaderLinesGoOutInTheirOrderWithThePairsCrossed)
{
    EXPECT_TRUE(send(1, 200));
    const Texts calls = api->calls();
    EXPECT_THAT(Texts(calls.begin(), calls.begin() + 5),
                ElementsAre("curlSlistAppend(null, First: line)",
                            "curlSlistAppend(list 1, K1: v1)",
                            "curlSlistAppend(list 1, K2: v3)",
                            "curlSlistAppend(list 1, K4: v4)",
                            "curlSlistAppend(list 1, K3: v2)"));
}

TEST_F(RequestTest, HeaderRecordIsNotChanged)
{
    EXPECT_TRUE(send(1, 200));
    const auto& [first, key1, key2, key3, key4, value1, value2, value3, value4] = header;
    EXPECT_THAT(Texts({first, key1, key2, key3, key4, value1, value2, value3, value4}),
                ElementsAre("First: line", "K1: ", "K2: ", "K3: ", "K4: ", "v1", "v2", "v3", "v4"));
}

TEST_F(RequestTest, EmptyHeaderRecordStillMakesFiveLines)
{
    header = {};
    EXPECT_TRUE(send(1, 200));
    const Texts calls = api->calls();
    EXPECT_THAT(Texts(calls.begin(), calls.begin() + 5),
                ElementsAre("curlSlistAppend(null, )",
                            "curlSlistAppend(list 1, )",
                            "curlSlistAppend(list 1, )",
                            "curlSlistAppend(list 1, )",
                            "curlSlistAppend(list 1, )"));
}

TEST_F(RequestTest, EachRequestHasAListOfItsOwn)
{
    EXPECT_TRUE(send(1, 200));
    EXPECT_FALSE(send(1, 500));
    api->takeCalls();
    EXPECT_TRUE(send(1, 200, "third"));
    const Texts calls = api->calls();
    EXPECT_EQ(Texts(calls.begin(), calls.begin() + 12), sendingCalls(1, 3, "third"));
}

TEST_F(RequestTest, BodyMayBeEmpty)
{
    EXPECT_TRUE(send(1, 200, ""));
    EXPECT_THAT(api->calls(), testing::Contains("curlSetLongOpt(handle 1, CURLOPT_POSTFIELDSIZE, 0)"));
    EXPECT_THAT(api->calls(), testing::Contains("curlSetStringOpt(handle 1, CURLOPT_COPYPOSTFIELDS, )"));
}

TEST_F(RequestTest, BodyMayHoldZeroBytesAndItsSizeComesFirst)
{
    const std::string payload("\0a\0b\0", 5);
    EXPECT_TRUE(send(1, 200, payload));
    const Texts calls = api->calls();
    EXPECT_EQ(calls[6], "curlSetLongOpt(handle 1, CURLOPT_POSTFIELDSIZE, 5)");
    EXPECT_EQ(calls[7], "curlSetStringOpt(handle 1, CURLOPT_COPYPOSTFIELDS, " + payload + ")");
}

TEST_F(RequestTest, BodyFollowsWhatTheResponseHolds)
{
    for (const long status : {200L, 404L})
    {
        response = "held:";
        api->onTransfer = [](std::string& target) { target += "one"; };
        EXPECT_EQ(send(1, status), status == 200);
        api->onTransfer = [](std::string& target) { target += "two"; };
        EXPECT_EQ(send(1, status), status == 200);
        EXPECT_EQ(response, "held:onetwo");
    }
}

TEST_F(RequestTest, BodyGoesIntoTheCallersOwnString)
{
    const std::string* target = nullptr;
    api->onTransfer = [&](std::string& given) { target = &given; };
    EXPECT_TRUE(send(1, 200));
    EXPECT_EQ(target, &response);
}

TEST_F(RequestTest, ListLivesUntilTheTransferHasEnded)
{
    api->onTransfer = [&](std::string&)
    { EXPECT_THAT(api->problems(), ElementsAre("handle 1 not released", "list 1 not released")); };
    EXPECT_TRUE(send(1, 200));
    EXPECT_THAT(api->problems(), ElementsAre("handle 1 not released"));
}

TEST_F(RequestTest, ListThatACallLayerDoesNotMakeIsNotFreed)
{
    api->giveNull("curlSlistAppend");
    EXPECT_TRUE(send(1, 200));
    const Texts calls = api->calls();
    EXPECT_THAT(calls, testing::Contains("curlSetHeaderOpt(handle 1, CURLOPT_HTTPHEADER, null)"));
    EXPECT_THAT(calls, testing::Contains("curlSlistAppend(null, K3: v2)"));
    EXPECT_THAT(calls, testing::Not(testing::Contains(testing::StartsWith("curlSlistFreeAll"))));
}

/// Each line gives a head of its own.
class MovingListApi : public FakeCurlAPIUtility
{
public:
    curl_slist* curlSlistAppend(curl_slist* list, const char* /*line*/) override
    {
        given.push_back(list);
        return &heads[given.size() - 1];
    }
    CURLcode curlSetHeaderOpt(void* /*handle*/, CURLoption /*option*/, curl_slist* list) override
    {
        set = list;
        return CURLE_OK;
    }
    void curlSlistFreeAll(curl_slist* list) override { freed = list; }

    curl_slist heads[5] = {};
    std::vector<curl_slist*> given;
    curl_slist* set = nullptr;
    curl_slist* freed = nullptr;
};

TEST_F(RequestTest, NewHeadOfTheListTakesThePlaceOfTheOldOne)
{
    const auto moving = std::make_shared<MovingListApi>();
    CurlWrapper other(logger, moving);
    other.configureOptions(sampleConfig(), 1);
    other.initSession(1);
    EXPECT_FALSE(other.sendNetworkRequest(header, "", response, 1, stats));
    curl_slist* const heads = moving->heads;
    EXPECT_THAT(moving->given, ElementsAre(nullptr, &heads[0], &heads[1], &heads[2], &heads[3]));
    EXPECT_EQ(moving->set, &heads[4]);
    EXPECT_EQ(moving->freed, &heads[4]);
}

TEST_F(RequestTest, StatusAloneDecides)
{
    for (const CURLcode result : {CURLE_OK, CURLE_OPERATION_TIMEDOUT, CURLE_PARTIAL_FILE, CURLE_RECV_ERROR})
    {
        api->failCall("curlEasyPerform", 1, result);
        EXPECT_TRUE(send(1, 200)) << result;
        EXPECT_THAT(logger.lines(), IsEmpty());
    }
    for (const long status : {204L, 302L, 199L, 201L, 2000L, 0L, -200L})
        EXPECT_FALSE(send(1, status)) << status;
}

TEST_F(RequestTest, FailureIsLoggedInThreeLines)
{
    api->failCall("curlEasyPerform", 1, CURLE_COULDNT_CONNECT);
    api->texts[CURLE_COULDNT_CONNECT] = "Couldn't connect to server";
    EXPECT_FALSE(send(1, 0));
    EXPECT_THAT(logger.lines(),
                ElementsAre(line(6, kFailed + "Couldn't connect to server"),
                            line(6, kLastCode + "0"),
                            line(6, kLastText + "Connection Could Not Be Established")));
    expectNothingWritten();
}

TEST_F(RequestTest, FailureWithoutATransferErrorIsLoggedWithTheTextForSuccess)
{
    api->texts[CURLE_OK] = "No error";
    EXPECT_FALSE(send(1, 204));
    EXPECT_THAT(logger.lines(),
                ElementsAre(line(6, kFailed + "No error"), line(6, kLastCode + "204"), line(6, kLastText)));
}

TEST_F(RequestTest, FailureWithoutATextIsLoggedByItsSentenceAlone)
{
    api->giveNull("curlEasyStrerror");
    EXPECT_FALSE(send(1, 400));
    EXPECT_THAT(logger.lines(),
                ElementsAre(line(6, kFailed), line(6, kLastCode + "400"), line(6, kLastText + "Bad Request")));
}

TEST_F(RequestTest, EachStatusOfTheTableIsLoggedWithItsText)
{
    const std::map<long, std::string> texts = statusTexts(*client);
    for (const auto& [status, text] : texts)
    {
        if (status == 200)
            continue;
        const std::size_t before = logger.lines().size();
        EXPECT_FALSE(send(1, status));
        const auto lines = logger.lines();
        ASSERT_EQ(lines.size(), before + 3);
        EXPECT_EQ(lines[before + 1], line(6, kLastCode + std::to_string(status)));
        EXPECT_EQ(lines[before + 2], line(6, kLastText + text));
    }
}

TEST_F(RequestTest, StatusThatTheTableLacksHasAnEmptyTextAndIsNotInserted)
{
    const std::map<long, std::string> texts = statusTexts(*client);
    for (const long status : {302L, 204L, -1L, 999L, 100L, 304L, 418L, 425L, 499L, 506L, LONG_MAX, LONG_MIN})
    {
        for (const char* const time : {"first", "second"})
        {
            const std::size_t before = logger.lines().size();
            EXPECT_FALSE(send(1, status));
            const auto lines = logger.lines();
            ASSERT_EQ(lines.size(), before + 3);
            EXPECT_EQ(lines[before + 1], line(6, kLastCode + std::to_string(status))) << time;
            EXPECT_EQ(lines[before + 2], line(6, kLastText)) << time;
        }
    }
    EXPECT_EQ(statusTexts(*client), texts);
}

TEST_F(RequestTest, StatusThatACallLayerDoesNotFillInIsZero)
{
    EXPECT_FALSE(client->sendNetworkRequest(header, "", response, 1, stats));
    ASSERT_EQ(logger.lines().size(), 3U);
    EXPECT_EQ(logger.lines()[1], line(6, kLastCode + "0"));
}

TEST_F(RequestTest, TimesThatACallLayerDoesNotFillInAreZero)
{
    EXPECT_TRUE(send(1, 200));
    expectStats(1, 2, 0, 0);
}

TEST_F(RequestTest, TimeThatACallLayerDoesNotFillInIsZeroBesideOneThatItDoes)
{
    api->times[CURLINFO_APPCONNECT_TIME] = 0.25;
    EXPECT_TRUE(send(1, 200));
    expectStats(1, 2, 0, 250);
    api->times = {{CURLINFO_TOTAL_TIME, 0.5}};
    EXPECT_TRUE(send(1, 200));
    expectStats(1, 2, 500, 0);
}

struct Times
{
    double seconds;
    std::uint16_t milliseconds;
};

constexpr Times kTimes[] = {
    {0.0, 0},
    {0.0009, 0},
    {0.001, 1},
    {0.0019999, 1},
    {0.3, 300},
    {1.2345, 1234},
    {9.9999, 9999},
    {65.535, 65535},
    {65.5355, 65535},
    {65.536, 0},
    {65.5372, 1},
    {66.0, 464},
    {131.071, 65535},
    {131.0722, 0},
    {3600.5, 61556}, // 3,600,500 modulo 65,536
};

TEST_F(RequestTest, SuccessWritesTheTwoTimesTruncatedAndWrappedAndNothingElse)
{
    for (const Times& total : kTimes)
    {
        for (const Times& tls : kTimes)
        {
            api->times[CURLINFO_TOTAL_TIME] = total.seconds;
            api->times[CURLINFO_APPCONNECT_TIME] = tls.seconds;
            EXPECT_TRUE(send(1, 200));
            expectStats(1, 2, total.milliseconds, tls.milliseconds);
        }
    }
}

TEST_F(RequestTest, SuccessWritesNoByteBesideTheTwoTimes)
{
    constexpr std::size_t kMargin = 16;
    alignas(LumoStats) unsigned char memory[kMargin + sizeof(LumoStats) + kMargin];
    std::memset(memory, 0xA5, sizeof(memory));
    auto* surrounded = new (memory + kMargin) LumoStats{0xA5A5, 0xA5A5, 0xA5A5, 0xA5A5};
    api->numbers[CURLINFO_RESPONSE_CODE] = 200;
    EXPECT_TRUE(client->sendNetworkRequest(header, "", response, 1, *surrounded));

    unsigned char expected[sizeof(memory)];
    std::memset(expected, 0xA5, sizeof(expected));
    std::memset(expected + kMargin + offsetof(LumoStats, totalTimeMs), 0, 4);
    EXPECT_EQ(std::memcmp(memory, expected, sizeof(memory)), 0);
}

TEST_F(RequestTest, TlsTimeIsStoredBeforeTheTotalIsAskedFor)
{
    api->times[CURLINFO_APPCONNECT_TIME] = 0.25;
    api->times[CURLINFO_TOTAL_TIME] = 0.5;
    api->failCall("curlGetInfo", 3, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(thrownBySending(), "1: Parsing of cURL response code failed.");
    expectStats(1, 2, 3, 250);
}

struct Refused
{
    const char* name;
    const char* operation;
    unsigned int nth;
    const char* thrown;
    std::size_t calls; ///< how many of the calls of a success are made
    bool listIsLeft;

    friend std::ostream& operator<<(std::ostream& out, const Refused& refused) { return out << refused.name; }
};

constexpr const char* kAppend = "1: Failed to append data to curl slist";
constexpr const char* kUnreadable = "1: Parsing of cURL response code failed.";

constexpr Refused kRefused[] = {
    {"FirstLine", "curlSlistAppend", 1, kAppend, 1, false},
    {"SecondLine", "curlSlistAppend", 2, kAppend, 2, true},
    {"ThirdLine", "curlSlistAppend", 3, kAppend, 3, true},
    {"FourthLine", "curlSlistAppend", 4, kAppend, 4, true},
    {"FifthLine", "curlSlistAppend", 5, kAppend, 5, true},
    {"HeaderOption", "curlSetHeaderOpt", 1, "1: cURL HTTP header creation failed", 6, true},
    {"BodySize", "curlSetLongOpt", 1, "1: cURL payload size setting failed", 7, true},
    {"Body", "curlSetStringOpt", 1, "1: cURL payload setting failed", 8, true},
    {"ResponseTarget", "curlSetResponseString", 1, "1: cURL response string setting failed", 9, true},
    {"Status", "curlGetInfo", 1, kUnreadable, 12, false},
    {"TlsTime", "curlGetInfo", 2, kUnreadable, 13, false},
    {"TotalTime", "curlGetInfo", 3, kUnreadable, 14, false},
};

class RefusedRequestTest : public RequestTest, public testing::WithParamInterface<Refused>
{
};

TEST_P(RefusedRequestTest, ThrowsAndMakesNoFurtherCall)
{
    const Refused& refused = GetParam();
    api->failCall(refused.operation, refused.nth, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(thrownBySending(), refused.thrown);

    Texts expected = sendingCalls(1, 1, "payload") + Texts({"curlGetInfo(handle 1, CURLINFO_APPCONNECT_TIME, double)",
                                                            "curlGetInfo(handle 1, CURLINFO_TOTAL_TIME, double)"});
    expected.resize(refused.calls);
    EXPECT_EQ(api->calls(), expected);
    EXPECT_THAT(logger.lines(), IsEmpty()) << "a refusal that throws is not logged";
    if (refused.listIsLeft)
        deliberatelyLeft = {"list 1 not released"};
}

TEST_P(RefusedRequestTest, LeavesTheSessionOpen)
{
    const Refused& refused = GetParam();
    api->failCall(refused.operation, refused.nth, CURLE_OUT_OF_MEMORY);
    EXPECT_NE(thrownBySending(), "nothing");
    EXPECT_TRUE(send(1, 200));
    if (refused.listIsLeft)
        deliberatelyLeft = {"list 1 not released"};
}

TEST_P(RefusedRequestTest, WritesNoTimeButOneThatWasReadBefore)
{
    const Refused& refused = GetParam();
    api->failCall(refused.operation, refused.nth, CURLE_OUT_OF_MEMORY);
    EXPECT_NE(thrownBySending(), "nothing");
    expectStats(1, 2, 3, refused.name == std::string("TotalTime") ? 0 : 4);
    if (refused.listIsLeft)
        deliberatelyLeft = {"list 1 not released"};
}

INSTANTIATE_TEST_SUITE_P(Steps,
                         RefusedRequestTest,
                         testing::ValuesIn(kRefused),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(RequestTest, ErrorTextIsThatOfTheCallLayer)
{
    api->texts[CURLE_SSL_CACERT_BADFILE] = "Problem with the SSL CA cert";
    CURLcode code = CURLE_SSL_CACERT_BADFILE;
    EXPECT_EQ(client->getCURLErrMsg(code), "Problem with the SSL CA cert");
    EXPECT_EQ(code, CURLE_SSL_CACERT_BADFILE);
    EXPECT_THAT(api->calls(), ElementsAre("curlEasyStrerror(77)"));
}

TEST_F(RequestTest, ErrorTextIsEmptyWhereTheCallLayerHasNone)
{
    api->giveNull("curlEasyStrerror");
    CURLcode code = CURLE_OK;
    EXPECT_EQ(client->getCURLErrMsg(code), "");
}

} // namespace
} // namespace TAV
