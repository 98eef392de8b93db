#include "tav/testing/FakeCurlAPIUtility.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// "code: message" of the exception, or "nothing".
template <typename Call>
std::string thrownBy(const Call& call)
{
    try
    {
        call();
    }
    catch (const FMXException& exception)
    {
        return std::to_string(exception.code) + ": " + exception.message;
    }
    return "nothing";
}

/// The lines of a list.
std::vector<std::string> linesOf(const curl_slist* list)
{
    std::vector<std::string> lines;
    for (; list != nullptr; list = list->next)
        lines.emplace_back(list->data);
    return lines;
}

/// Has handle 1 and list 1; what is noted before a test begins is forgotten.
class FakeCurlAPIUtilityTest : public testing::Test
{
protected:
    FakeCurlAPIUtilityTest() { api.takeCalls(); }

    void endWell()
    {
        api.curlSlistFreeAll(list);
        api.curlEasyCleanup(handle);
    }

    FakeCurlAPIUtility api;
    void* handle = api.curlEasyInit();
    curl_slist* list = api.curlSlistAppend(nullptr, "A: 1");
    std::string response;
};

/// One of the operations that have a result.
struct Operation
{
    const char* name;
    const char* noted; ///< the call below
    CURLcode (*call)(FakeCurlAPIUtility& api, void* handle, curl_slist* list, std::string& response);

    friend std::ostream& operator<<(std::ostream& out, const Operation& operation) { return out << operation.name; }
};

const Operation kOperations[] = {
    {"curlGlobalInit",
     "curlGlobalInit(3)",
     [](FakeCurlAPIUtility& api, void*, curl_slist*, std::string&) { return api.curlGlobalInit(3); }},
    {"curlSetHeaderOpt",
     "curlSetHeaderOpt(handle 1, CURLOPT_HTTPHEADER, list 1)",
     [](FakeCurlAPIUtility& api, void* handle, curl_slist* list, std::string&)
     { return api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, list); }},
    {"curlSetStringOpt",
     "curlSetStringOpt(handle 1, CURLOPT_PROXY, proxy.lab:3128)",
     [](FakeCurlAPIUtility& api, void* handle, curl_slist*, std::string&)
     { return api.curlSetStringOpt(handle, CURLOPT_PROXY, "proxy.lab:3128"); }},
    {"curlSetLongOpt",
     "curlSetLongOpt(handle 1, CURLOPT_TIMEOUT, -30)",
     [](FakeCurlAPIUtility& api, void* handle, curl_slist*, std::string&)
     { return api.curlSetLongOpt(handle, CURLOPT_TIMEOUT, -30); }},
    {"curlSetCallbackFuncOpt",
     "curlSetCallbackFuncOpt(handle 1)",
     [](FakeCurlAPIUtility& api, void* handle, curl_slist*, std::string&)
     { return api.curlSetCallbackFuncOpt(handle); }},
    {"curlSetResponseString",
     "curlSetResponseString(handle 1, CURLOPT_WRITEDATA)",
     [](FakeCurlAPIUtility& api, void* handle, curl_slist*, std::string& response)
     { return api.curlSetResponseString(handle, CURLOPT_WRITEDATA, response); }},
    {"curlEasyPerform",
     "curlEasyPerform(handle 1)",
     [](FakeCurlAPIUtility& api, void* handle, curl_slist*, std::string&) { return api.curlEasyPerform(handle); }},
    {"curlGetInfo",
     "curlGetInfo(handle 1, CURLINFO_RESPONSE_CODE, long)",
     [](FakeCurlAPIUtility& api, void* handle, curl_slist*, std::string&)
     {
         long status = 0;
         return api.curlGetInfo(handle, CURLINFO_RESPONSE_CODE, status);
     }},
};

class CurlResultTest : public FakeCurlAPIUtilityTest, public testing::WithParamInterface<Operation>
{
protected:
    CURLcode call() { return GetParam().call(api, handle, list, response); }
};

TEST_P(CurlResultTest, IsNotedAndSucceedsUnlessPlannedOtherwise)
{
    EXPECT_EQ(call(), CURLE_OK);
    EXPECT_THAT(api.calls(), ElementsAre(GetParam().noted));
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
}

TEST_P(CurlResultTest, FailsAsPlanned)
{
    api.failCall(GetParam().name, 2, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(call(), CURLE_OK);
    EXPECT_EQ(call(), CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(call(), CURLE_OK);
    EXPECT_THAT(api.calls(), ElementsAre(GetParam().noted, GetParam().noted, GetParam().noted));
    api.failAnyCall(1, CURLE_RECV_ERROR);
    EXPECT_EQ(call(), CURLE_RECV_ERROR);
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Operations, CurlResultTest, testing::ValuesIn(kOperations), testing::PrintToStringParamName());

TEST_F(FakeCurlAPIUtilityTest, NumbersHandlesAndListsEachByItself)
{
    void* const second = api.curlEasyInit();
    curl_slist* const other = api.curlSlistAppend(nullptr, "B: 1");
    EXPECT_NE(second, handle);
    EXPECT_NE(other, list);
    api.curlSetHeaderOpt(second, CURLOPT_HTTPHEADER, other);
    api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, list);
    api.curlSlistFreeAll(other);
    api.curlEasyCleanup(second);
    api.curlGlobalCleanup();
    EXPECT_THAT(api.calls(),
                ElementsAre("curlEasyInit()",
                            "curlSlistAppend(null, B: 1)",
                            "curlSetHeaderOpt(handle 2, CURLOPT_HTTPHEADER, list 2)",
                            "curlSetHeaderOpt(handle 1, CURLOPT_HTTPHEADER, list 1)",
                            "curlSlistFreeAll(list 2)",
                            "curlEasyCleanup(handle 2)",
                            "curlGlobalCleanup()"));
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
}

TEST_F(FakeCurlAPIUtilityTest, GivesNoAddressTwice)
{
    endWell();
    EXPECT_NE(api.curlEasyInit(), handle);
    EXPECT_NE(api.curlSlistAppend(nullptr, "A: 1"), list);
}

TEST_F(FakeCurlAPIUtilityTest, ListsHoldCopiesOfTheirLines)
{
    std::string line = "B: 2";
    EXPECT_EQ(api.curlSlistAppend(list, line.c_str()), list) << "the head stays";
    line = "gone";
    EXPECT_EQ(api.curlSlistAppend(list, ""), list);
    EXPECT_THAT(linesOf(list), ElementsAre("A: 1", "B: 2", ""));
    EXPECT_THAT(api.calls(), ElementsAre("curlSlistAppend(list 1, B: 2)", "curlSlistAppend(list 1, )"));
}

TEST_F(FakeCurlAPIUtilityTest, WhatHasNoResultThrowsAsTheRealOneDoes)
{
    api.failCall("curlEasyInit", 1, CURLE_OUT_OF_MEMORY);
    api.failCall("curlSlistAppend", 1, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(thrownBy([&] { api.curlEasyInit(); }), "1: Failed to initialize curl handle");
    EXPECT_EQ(thrownBy([&] { api.curlSlistAppend(list, "B: 2"); }), "1: Failed to append data to curl slist");
    EXPECT_THAT(linesOf(list), ElementsAre("A: 1"));
    EXPECT_THAT(api.calls(), ElementsAre("curlEasyInit()", "curlSlistAppend(list 1, B: 2)"));
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty()) << "nothing was handed out";
}

TEST_F(FakeCurlAPIUtilityTest, WhatCannotFailIsNotCounted)
{
    api.failAnyCall(1, CURLE_OUT_OF_MEMORY);
    api.curlEasyStrerror(CURLE_OK);
    endWell();
    api.curlGlobalCleanup();
    EXPECT_FALSE(api.hasFailed());
    EXPECT_EQ(api.curlGlobalInit(0), CURLE_OUT_OF_MEMORY);
}

TEST_F(FakeCurlAPIUtilityTest, NullIsNoFailureAndLastsUntilItIsTakenBack)
{
    api.giveNull("curlEasyInit");
    api.giveNull("curlSlistAppend");
    api.giveNull("curlEasyStrerror");
    api.succeed();
    EXPECT_EQ(api.curlEasyInit(), nullptr);
    EXPECT_EQ(api.curlSlistAppend(list, "B: 2"), nullptr);
    EXPECT_EQ(api.curlEasyStrerror(CURLE_OK), nullptr);
    EXPECT_EQ(api.curlEasyStrerror(CURLE_OK), nullptr);
    EXPECT_FALSE(api.hasFailed());
    EXPECT_THAT(linesOf(list), ElementsAre("A: 1"));

    api.giveNull("curlSlistAppend", false);
    api.giveNull("curlEasyStrerror", false);
    EXPECT_EQ(api.curlSlistAppend(list, "B: 2"), list);
    EXPECT_STREQ(api.curlEasyStrerror(CURLE_OK), "text of 0");
    EXPECT_EQ(api.curlEasyInit(), nullptr) << "each by itself";
}

TEST_F(FakeCurlAPIUtilityTest, TellsTheAnswersOfTheTest)
{
    long number = -1;
    double time = -1;
    api.curlGetInfo(handle, CURLINFO_RESPONSE_CODE, number);
    api.curlGetInfo(handle, CURLINFO_TOTAL_TIME, time);
    EXPECT_EQ(number, -1) << "none was set";
    EXPECT_EQ(time, -1);
    api.numbers[CURLINFO_RESPONSE_CODE] = 404;
    api.times[CURLINFO_TOTAL_TIME] = 0.25;
    api.curlGetInfo(handle, CURLINFO_RESPONSE_CODE, number);
    api.curlGetInfo(handle, CURLINFO_TOTAL_TIME, time);
    EXPECT_EQ(number, 404);
    EXPECT_EQ(time, 0.25);
}

TEST_F(FakeCurlAPIUtilityTest, AFailedQuestionLeavesItsOutputAlone)
{
    api.numbers[CURLINFO_RESPONSE_CODE] = 404;
    api.times[CURLINFO_APPCONNECT_TIME] = 0.25;
    api.failCall("curlGetInfo", 1, CURLE_UNKNOWN_OPTION, Lasting::FromThenOn);
    long number = -1;
    double time = -1;
    EXPECT_EQ(api.curlGetInfo(handle, CURLINFO_RESPONSE_CODE, number), CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(api.curlGetInfo(handle, CURLINFO_APPCONNECT_TIME, time), CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(number, -1);
    EXPECT_EQ(time, -1);
    EXPECT_THAT(api.calls(),
                ElementsAre("curlGetInfo(handle 1, CURLINFO_RESPONSE_CODE, long)",
                            "curlGetInfo(handle 1, CURLINFO_APPCONNECT_TIME, double)"));
}

TEST_F(FakeCurlAPIUtilityTest, TextsStayWhereTheyAre)
{
    api.texts[CURLE_OPERATION_TIMEDOUT] = "Timeout was reached";
    const char* const told = api.curlEasyStrerror(CURLE_OPERATION_TIMEDOUT);
    EXPECT_STREQ(api.curlEasyStrerror(CURLE_OUT_OF_MEMORY), "text of 27");
    EXPECT_STREQ(told, "Timeout was reached");
    EXPECT_EQ(api.curlEasyStrerror(CURLE_OPERATION_TIMEDOUT), told);
    EXPECT_THAT(api.calls(), ElementsAre("curlEasyStrerror(28)", "curlEasyStrerror(27)", "curlEasyStrerror(28)"));
}

/// An option or a selector, and its name in the text of a call.
const std::vector<std::pair<CURLoption, std::string>> kOptions{
    {CURLOPT_TIMEOUT, "CURLOPT_TIMEOUT"},
    {CURLOPT_CUSTOMREQUEST, "CURLOPT_CUSTOMREQUEST"},
    {CURLOPT_URL, "CURLOPT_URL"},
    {CURLOPT_CAINFO, "CURLOPT_CAINFO"},
    {CURLOPT_SSL_VERIFYPEER, "CURLOPT_SSL_VERIFYPEER"},
    {CURLOPT_SSL_VERIFYHOST, "CURLOPT_SSL_VERIFYHOST"},
    {CURLOPT_SSLVERSION, "CURLOPT_SSLVERSION"},
    {CURLOPT_PROXYAUTH, "CURLOPT_PROXYAUTH"},
    {CURLOPT_SSL_SESSIONID_CACHE, "CURLOPT_SSL_SESSIONID_CACHE"},
    {CURLOPT_PROXY, "CURLOPT_PROXY"},
    {CURLOPT_PROXYUSERPWD, "CURLOPT_PROXYUSERPWD"},
    {CURLOPT_HTTPPROXYTUNNEL, "CURLOPT_HTTPPROXYTUNNEL"},
    {CURLOPT_HTTPHEADER, "CURLOPT_HTTPHEADER"},
    {CURLOPT_POSTFIELDSIZE, "CURLOPT_POSTFIELDSIZE"},
    {CURLOPT_COPYPOSTFIELDS, "CURLOPT_COPYPOSTFIELDS"},
    {CURLOPT_WRITEDATA, "CURLOPT_WRITEDATA"},
    {CURLOPT_VERBOSE, "41"},
};

TEST_F(FakeCurlAPIUtilityTest, NamesWhatTheClientSetsAndNumbersTheRest)
{
    for (const auto& [option, name] : kOptions)
    {
        api.curlSetLongOpt(handle, option, 1);
        EXPECT_THAT(api.takeCalls(), ElementsAre("curlSetLongOpt(handle 1, " + name + ", 1)"));
    }
    double time = 0;
    api.curlGetInfo(handle, CURLINFO_APPCONNECT_TIME, time);
    api.curlGetInfo(handle, CURLINFO_TOTAL_TIME, time);
    api.curlGetInfo(handle, CURLINFO_CONNECT_TIME, time);
    EXPECT_THAT(api.calls(),
                ElementsAre("curlGetInfo(handle 1, CURLINFO_APPCONNECT_TIME, double)",
                            "curlGetInfo(handle 1, CURLINFO_TOTAL_TIME, double)",
                            "curlGetInfo(handle 1, " + std::to_string(CURLINFO_CONNECT_TIME) + ", double)"));
}

TEST_F(FakeCurlAPIUtilityTest, ATransferFillsTheStringOfItsHandle)
{
    std::string other;
    void* const second = api.curlEasyInit();
    void* const silent = api.curlEasyInit();
    api.curlSetResponseString(handle, CURLOPT_WRITEDATA, response);
    api.curlSetResponseString(second, CURLOPT_WRITEDATA, other);
    EXPECT_EQ(api.curlEasyPerform(second), CURLE_OK) << "without a body";
    api.onTransfer = [](std::string& body) { body += "part "; };
    api.curlEasyPerform(second);
    api.curlEasyPerform(second);
    api.curlEasyPerform(silent);
    api.curlEasyPerform(handle);
    EXPECT_EQ(other, "part part ");
    EXPECT_EQ(response, "part ");
}

TEST_F(FakeCurlAPIUtilityTest, AFailedTransferHandsItsBodyOver)
{
    api.curlSetResponseString(handle, CURLOPT_WRITEDATA, response);
    api.onTransfer = [](std::string& body) { body += "half"; };
    api.failCall("curlEasyPerform", 1, CURLE_PARTIAL_FILE);
    EXPECT_EQ(api.curlEasyPerform(handle), CURLE_PARTIAL_FILE);
    EXPECT_EQ(response, "half");
}

TEST_F(FakeCurlAPIUtilityTest, WhatWasRefusedIsNotAttached)
{
    api.failCall("curlSetResponseString", 1, CURLE_OUT_OF_MEMORY);
    api.failCall("curlSetHeaderOpt", 1, CURLE_OUT_OF_MEMORY);
    api.onTransfer = [](std::string& body) { body += "body"; };
    api.curlSetResponseString(handle, CURLOPT_WRITEDATA, response);
    api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, list);
    api.curlSlistFreeAll(list);
    api.curlEasyPerform(handle);
    EXPECT_EQ(response, "");
    api.curlEasyCleanup(handle);
    EXPECT_THAT(api.problems(), IsEmpty());
}

TEST_F(FakeCurlAPIUtilityTest, NamesWhatIsNotReleased)
{
    api.curlEasyCleanup(api.curlEasyInit());
    api.curlSlistAppend(nullptr, "B: 1");
    EXPECT_THAT(api.problems(), ElementsAre("handle 1 not released", "list 1 not released", "list 2 not released"));
}

TEST_F(FakeCurlAPIUtilityTest, NoticesWhatIsReleasedTwice)
{
    endWell();
    endWell();
    EXPECT_THAT(api.problems(), ElementsAre("released list 1 used", "released handle 1 used"));
}

TEST_F(FakeCurlAPIUtilityTest, NoticesEachUseOfAReleasedHandle)
{
    api.curlSlistFreeAll(list);
    api.curlEasyCleanup(handle);
    long number = 0;
    double time = 0;
    const std::vector<std::function<void()>> uses{
        [&] { api.curlSetStringOpt(handle, CURLOPT_URL, ""); },
        [&] { api.curlSetLongOpt(handle, CURLOPT_TIMEOUT, 1); },
        [&] { api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, nullptr); },
        [&] { api.curlSetCallbackFuncOpt(handle); },
        [&] { api.curlSetResponseString(handle, CURLOPT_WRITEDATA, response); },
        [&] { api.curlEasyPerform(handle); },
        [&] { api.curlGetInfo(handle, CURLINFO_RESPONSE_CODE, number); },
        [&] { api.curlGetInfo(handle, CURLINFO_TOTAL_TIME, time); },
    };
    for (const auto& use : uses)
    {
        const std::size_t before = api.problems().size();
        use();
        ASSERT_EQ(api.problems().size(), before + 1) << api.calls().back();
        EXPECT_EQ(api.problems().back(), "released handle 1 used");
    }
}

TEST_F(FakeCurlAPIUtilityTest, NoticesEachUseOfAReleasedList)
{
    api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, list);
    api.curlSlistFreeAll(list);
    api.curlEasyPerform(handle);
    EXPECT_THAT(api.problems(), ElementsAre("released list 1 used", "handle 1 not released")) << "by the transfer";
    api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, list);
    api.curlSlistAppend(list, "B: 2");
    api.curlEasyCleanup(handle);
    EXPECT_THAT(api.problems(), ElementsAre("released list 1 used", "released list 1 used", "released list 1 used"));
}

TEST_F(FakeCurlAPIUtilityTest, NoticesWhatItDidNotHandOut)
{
    int other = 0;
    curl_slist otherList{};
    api.curlEasyPerform(&other);
    api.curlSlistFreeAll(&otherList);
    api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, list->next);
    endWell();
    EXPECT_THAT(api.problems(), ElementsAre("unknown handle used", "unknown list used"));
    EXPECT_THAT(api.calls(),
                ElementsAre("curlEasyPerform(unknown handle)",
                            "curlSlistFreeAll(unknown list)",
                            "curlSetHeaderOpt(handle 1, CURLOPT_HTTPHEADER, null)",
                            "curlSlistFreeAll(list 1)",
                            "curlEasyCleanup(handle 1)"));
}

TEST_F(FakeCurlAPIUtilityTest, SeveralThreadsMayCall)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int n = 0; n < 50; ++n)
                {
                    std::string own;
                    void* const session = api.curlEasyInit();
                    curl_slist* const lines = api.curlSlistAppend(nullptr, "A: 1");
                    api.curlSetHeaderOpt(session, CURLOPT_HTTPHEADER, lines);
                    api.curlSetResponseString(session, CURLOPT_WRITEDATA, own);
                    api.curlEasyStrerror(api.curlEasyPerform(session));
                    api.curlSlistFreeAll(lines);
                    api.curlEasyCleanup(session);
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(api.countOf("curlEasyCleanup"), 200U);
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
}

} // namespace
} // namespace TAV::test
