#include <climits>
#include <utility>

#include "CurlFixture.h"

namespace TAV
{
namespace
{

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

/// The request's calls that show which handle an id stands for.
Texts handlesIn(const Texts& calls)
{
    Texts performed;
    for (const std::string& call : calls)
    {
        if (call.find("curlEasyPerform") == 0)
            performed.push_back(call);
    }
    return performed;
}

TEST(QueryConfigTest, DefaultsAreThoseOfARecordThatNobodyFilled)
{
    EXPECT_THAT(fieldsOf(TAVQueryConfig()), ElementsAre("", "", "2", "1", "1", "0", "", "0", "", "", "0"));
}

TEST(QueryConfigTest, CopiesHoldEveryField)
{
    const TAVQueryConfig original = sampleConfig();
    const TAVQueryConfig copy = original;
    TAVQueryConfig assigned = otherConfig();
    assigned = original;
    EXPECT_EQ(fieldsOf(copy), fieldsOf(original));
    EXPECT_EQ(fieldsOf(assigned), fieldsOf(original));
}

TEST(QueryConfigTest, AssigningItToItselfChangesNothing)
{
    TAVQueryConfig config = sampleConfig();
    const TAVQueryConfig& same = config;
    config = same;
    EXPECT_EQ(fieldsOf(config), fieldsOf(sampleConfig()));
}

TEST(HeaderTest, IsEmptyByDefault)
{
    const auto [first, key1, key2, key3, key4, value1, value2, value3, value4] = TAVHTTPHeader();
    EXPECT_EQ(first + key1 + key2 + key3 + key4 + value1 + value2 + value3 + value4, "");
}

TEST(StatsTest, AreZeroByDefault)
{
    const auto [attempts, queueTimeMs, totalTimeMs, tlsConnectTimeMs] = LumoStats();
    EXPECT_EQ(attempts, 0);
    EXPECT_EQ(queueTimeMs, 0);
    EXPECT_EQ(totalTimeMs, 0);
    EXPECT_EQ(tlsConnectTimeMs, 0);
}

class ConstructionTest : public testing::Test
{
protected:
    void construct() { const CurlWrapper client(logger, api); }

    RecordingLogger logger;
    std::shared_ptr<FakeCurlAPIUtility> api = std::make_shared<FakeCurlAPIUtility>();
};

TEST_F(ConstructionTest, InitialisesEverythingOfLibcurlAndTheDestructorCleansUp)
{
    construct();
    EXPECT_THAT(api->calls(), ElementsAre("curlGlobalInit(3)", "curlGlobalCleanup()"));
    EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(ConstructionTest, RefusesToExistWithoutACallLayer)
{
    api = nullptr;
    EXPECT_EQ(thrownBy([&] { construct(); }), "1: cURL API is null");
    EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(ConstructionTest, LogsTheResultOfAFailedInitialisationInDecimal)
{
    for (const int result : {2, 27, 127})
    {
        RecordingLogger own;
        api->failCall("curlGlobalInit", 1, static_cast<CURLcode>(result));
        EXPECT_EQ(thrownBy([&] { const CurlWrapper client(own, api); }), "1: cURL global intialization failure");
        EXPECT_THAT(own.lines(),
                    ElementsAre(line(2, "Initialization failed with error message: " + std::to_string(result))));
        EXPECT_THAT(api->takeCalls(), ElementsAre("curlGlobalInit(3)")) << "no text is asked for, nothing cleaned up";
    }
}

#if !defined(TAV_CHECKED_ENUMERATIONS)
TEST_F(ConstructionTest, LogsANegativeResultWithItsSign)
{
    volatile int negative = -7;
    api->failCall("curlGlobalInit", 1, static_cast<CURLcode>(negative));
    EXPECT_EQ(thrownBy([&] { construct(); }), "1: cURL global intialization failure");
    EXPECT_THAT(logger.lines(), ElementsAre(line(2, "Initialization failed with error message: -7")));
}
#endif

TEST_F(ConstructionTest, FailedOneGivesItsShareOfTheCallLayerBack)
{
    api->failCall("curlGlobalInit", 1, CURLE_FAILED_INIT);
    EXPECT_THROW(construct(), FMXException);
    EXPECT_EQ(api.use_count(), 1);
}

class SessionTest : public CurlFixture
{
};

TEST_F(SessionTest, OpeningBeforeAnyConfigurationIsRefusedWithoutACall)
{
    EXPECT_EQ(thrownBy([&] { client->initSession(1); }), "1: cURL configuration not set to perform init.");
    EXPECT_THAT(api->calls(), IsEmpty());
    EXPECT_THAT(logger.lines(), IsEmpty());
    EXPECT_FALSE(client->deInitSession(1));
}

TEST_F(SessionTest, FirstConfigurationOnlyStoresTheRecord)
{
    client->configureOptions(sampleConfig(), 4711);
    EXPECT_THAT(api->calls(), IsEmpty());
    EXPECT_THAT(logger.lines(), IsEmpty());
    EXPECT_EQ(fieldsOf(storedConfig(*client)), fieldsOf(sampleConfig()));
}

TEST_F(SessionTest, RecordStartsWithItsDefaults)
{
    EXPECT_EQ(fieldsOf(storedConfig(*client)), fieldsOf(TAVQueryConfig()));
}

TEST_F(SessionTest, StoredRecordIsACopy)
{
    TAVQueryConfig config = sampleConfig();
    client->configureOptions(config, 1);
    config = otherConfig();
    client->initSession(1);
    EXPECT_EQ(api->calls(), openingCalls(1, sampleConfig()));
}

TEST_F(SessionTest, LaterConfigurationSetsOnlyTheProxyOptionsOfThatOneHandle)
{
    open({1, 2, 3});
    client->configureOptions(otherConfig(), 2);
    EXPECT_EQ(api->calls(), proxyCalls(2, otherConfig()));
    EXPECT_EQ(fieldsOf(storedConfig(*client)), fieldsOf(otherConfig()));
    EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(SessionTest, LaterConfigurationSetsTheProxyOptionsAlsoWhenTheyAreTheSame)
{
    open({1});
    client->configureOptions(sampleConfig(), 1);
    EXPECT_EQ(api->calls(), proxyCalls(1, sampleConfig()));
}

TEST_F(SessionTest, SessionsOpenedLaterUseTheNewRecordInFull)
{
    open({1});
    client->configureOptions(otherConfig(), 1);
    api->takeCalls();
    client->initSession(2);
    EXPECT_EQ(api->calls(), openingCalls(2, otherConfig()));
}

TEST_F(SessionTest, LaterConfigurationOfAnUnknownIdThrowsButHasReplacedTheRecord)
{
    for (const auto& [id, text] : {std::pair(7UL, "7"), {0UL, "0"}, {ULONG_MAX, "18446744073709551615"}})
    {
        client->configureOptions(sampleConfig(), 1);
        const auto configure = [&, unknown = id] { client->configureOptions(otherConfig(), unknown); };
        EXPECT_EQ(thrownBy(configure),
                  std::string("1: cURL session id ") + text + " not found for curl configuration update.");
        EXPECT_EQ(fieldsOf(storedConfig(*client)), fieldsOf(otherConfig()));
        EXPECT_THAT(api->calls(), IsEmpty());
        EXPECT_THAT(logger.lines(), IsEmpty()) << "a refusal that throws is not logged";
        client = std::make_unique<CurlWrapper>(logger, api);
        api->takeCalls();
    }
}

TEST_F(SessionTest, RefusedProxyOptionOfALaterConfigurationThrowsButHasReplacedTheRecord)
{
    open({1});
    api->failCall("curlSetStringOpt", 1, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(thrownBy([&] { client->configureOptions(otherConfig(), 1); }),
              "1: cURL configuration failed while setting proxy config.");
    EXPECT_THAT(logger.lines(),
                ElementsAre(line(2, "Failed to set proxy authentication URL option with error message: text of 27")));
    EXPECT_EQ(fieldsOf(storedConfig(*client)), fieldsOf(otherConfig()));
    EXPECT_TRUE(client->deInitSession(1)) << "the session stays open";
}

TEST_F(SessionTest, OpeningMakesAHandleInstallsTheCallbackAndSetsAllOptions)
{
    client->configureOptions(sampleConfig(), 1);
    client->initSession(1);
    EXPECT_EQ(api->calls(), openingCalls(1, sampleConfig()));
    EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(SessionTest, FailedHandleIsToldByTheCallLayersOwnException)
{
    client->configureOptions(sampleConfig(), 1);
    api->failCall("curlEasyInit", 1, CURLE_OK);
    EXPECT_EQ(thrownBy([&] { client->initSession(1); }), "1: Failed to initialize curl handle");
    EXPECT_THAT(api->calls(), ElementsAre("curlEasyInit()"));
    EXPECT_THAT(logger.lines(), IsEmpty());
    EXPECT_FALSE(client->deInitSession(1));
}

TEST_F(SessionTest, RefusedCallbackThrowsItsTextAndCleansTheHandleUp)
{
    client->configureOptions(sampleConfig(), 1);
    api->failCall("curlSetCallbackFuncOpt", 1, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(thrownBy([&] { client->initSession(1); }), "1: Failed to set callback function with error: text of 48");
    EXPECT_THAT(
        api->calls(),
        ElementsAre(
            "curlEasyInit()", "curlSetCallbackFuncOpt(handle 1)", "curlEasyStrerror(48)", "curlEasyCleanup(handle 1)"));
    EXPECT_THAT(logger.lines(), IsEmpty());
    EXPECT_FALSE(client->deInitSession(1));
}

TEST_F(SessionTest, RefusedCallbackWithoutATextThrowsTheSentenceAlone)
{
    client->configureOptions(sampleConfig(), 1);
    api->failCall("curlSetCallbackFuncOpt", 1, CURLE_UNKNOWN_OPTION);
    api->giveNull("curlEasyStrerror");
    EXPECT_EQ(thrownBy([&] { client->initSession(1); }), "1: Failed to set callback function with error: ");
}

TEST_F(SessionTest, NullHandleOfACallLayerGoesThroughTheSameStepsAndIsNeverCleanedUp)
{
    client->configureOptions(sampleConfig(), 1);
    api->giveNull("curlEasyInit");
    api->failCall("curlSetLongOpt", 1, CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(thrownBy([&] { client->initSession(1); }), "1: cURL configuration failed while setting common config.");
    EXPECT_THAT(api->calls(),
                ElementsAre("curlEasyInit()",
                            "curlSetCallbackFuncOpt(null)",
                            "curlSetLongOpt(null, CURLOPT_TIMEOUT, 14)",
                            "curlEasyStrerror(43)"));
}

TEST_F(SessionTest, OpeningAnIdTwiceTakesEveryStepAndKeepsTheFirstHandle)
{
    open({1});
    client->initSession(1);
    EXPECT_EQ(api->takeCalls(), openingCalls(2, sampleConfig()) + Texts{"curlEasyCleanup(handle 2)"});
    EXPECT_THAT(logger.lines(), IsEmpty());

    EXPECT_TRUE(send(1, 200));
    EXPECT_THAT(handlesIn(api->takeCalls()), ElementsAre("curlEasyPerform(handle 1)"));
    EXPECT_TRUE(client->deInitSession(1));
    EXPECT_THAT(api->calls(), ElementsAre("curlEasyCleanup(handle 1)"));
}

TEST_F(SessionTest, OpeningAnOpenIdInVainKeepsTheFirstHandle)
{
    open({1});
    api->failCall("curlSetLongOpt", 3, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(thrownBy([&] { client->initSession(1); }), "1: cURL configuration failed while setting SSL config.");
    api->takeCalls();
    EXPECT_TRUE(send(1, 200));
    EXPECT_THAT(handlesIn(api->takeCalls()), ElementsAre("curlEasyPerform(handle 1)"));
}

TEST_F(SessionTest, EachIdHasItsOwnHandle)
{
    open({5, ULONG_MAX, 0});
    for (const unsigned long id : {0UL, 5UL, ULONG_MAX})
        EXPECT_TRUE(send(id, 200));
    EXPECT_THAT(handlesIn(api->calls()),
                ElementsAre("curlEasyPerform(handle 3)", "curlEasyPerform(handle 1)", "curlEasyPerform(handle 2)"));
}

TEST_F(SessionTest, ClosingCleansThatOneHandleUp)
{
    open({1, 2});
    EXPECT_TRUE(client->deInitSession(1));
    EXPECT_THAT(api->calls(), ElementsAre("curlEasyCleanup(handle 1)"));
    EXPECT_THAT(logger.lines(), IsEmpty());
    EXPECT_TRUE(send(2, 200));
}

TEST_F(SessionTest, ClosingAnUnknownIdIsLoggedWithoutComponent)
{
    open({1});
    EXPECT_FALSE(client->deInitSession(0));
    EXPECT_FALSE(client->deInitSession(ULONG_MAX));
    EXPECT_THAT(logger.lines(),
                ElementsAre(untagged("cURL session id 0 not found for deinit."),
                            untagged("cURL session id 18446744073709551615 not found for deinit.")));
    EXPECT_THAT(api->calls(), IsEmpty());
}

TEST_F(SessionTest, ClosingTwiceFailsTheSecondTime)
{
    open({3});
    EXPECT_TRUE(client->deInitSession(3));
    EXPECT_FALSE(client->deInitSession(3));
    EXPECT_THAT(logger.lines(), ElementsAre(untagged("cURL session id 3 not found for deinit.")));
}

TEST_F(SessionTest, ClosedIdCanBeOpenedAgain)
{
    open({1});
    client->deInitSession(1);
    api->takeCalls();
    client->initSession(1);
    EXPECT_EQ(api->calls(), openingCalls(2, sampleConfig()));
    EXPECT_TRUE(client->deInitSession(1));
}

TEST_F(SessionTest, DestructionCleansLibcurlUpFirstAndThenEachHandle)
{
    open({1, 2, 3});
    client.reset();
    const Texts calls = api->calls();
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_EQ(calls.front(), "curlGlobalCleanup()");
    EXPECT_THAT(Texts(calls.begin() + 1, calls.end()),
                testing::UnorderedElementsAre(
                    "curlEasyCleanup(handle 1)", "curlEasyCleanup(handle 2)", "curlEasyCleanup(handle 3)"));
}

TEST_F(SessionTest, EverySessionHoldsAShareOfTheCallLayer)
{
    const long before = api.use_count();
    open({1, 2});
    EXPECT_EQ(api.use_count(), before + 2);
    client->deInitSession(1);
    EXPECT_EQ(api.use_count(), before + 1);
}

TEST_F(SessionTest, CallLayerLivesUntilTheLastSessionIsCleanedUp)
{
    open({1, 2});
    Texts calls;
    std::weak_ptr<FakeCurlAPIUtility> watched = api;
    api->onCall = [&](const std::string& call) { calls.push_back(call + (watched.expired() ? " too late" : "")); };
    api = std::make_shared<FakeCurlAPIUtility>(); // gives the test's share away
    ASSERT_FALSE(watched.expired());
    client.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(calls.size(), 3U);
    EXPECT_EQ(calls.front(), "curlGlobalCleanup()");
}

TEST_F(SessionTest, StatusTextsAreTheseAndNoOthers)
{
    const std::map<long, std::string> texts{
        {0, "Connection Could Not Be Established"},
        {200, "HTTP OK"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {402, "Payment Required"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {406, "Not Acceptable"},
        {407, "Proxy Authentication Required"},
        {408, "Request Timeout"},
        {409, "Conflict"},
        {410, "Gone"},
        {411, "Length Required"},
        {412, "Precondition Failed"},
        {413, "Payload Too Large"},
        {414, "URI Too Long"},
        {415, "Unsupported Media Type"},
        {416, "Range Not Satisfiable"},
        {417, "Expectation Failed"},
        {426, "Upgrade Required"},
        {500, "Internal Server Error"},
        {501, "Not Implemented"},
        {502, "Bad Gateway"},
        {503, "Service Unavailable"},
        {504, "Gateway Timeout"},
        {505, "HTTP Version Not Supported"},
    };
    EXPECT_EQ(texts.size(), 27U);
    EXPECT_EQ(statusTexts(*client), texts);
}

} // namespace
} // namespace TAV
