#include <cstdarg>
#include <string>
#include <vector>

#include "CurlFixture.h"
#include "tav/CurlAPIUtility.h"

namespace TAV
{
namespace
{

/// What the functions below are called with, and what they answer.
struct Libcurl
{
    std::vector<std::string> calls; ///< one text for each, with numbers and copied strings
    CURLcode result = CURLE_OK;
    void* handle = nullptr;
    curl_slist* list = nullptr;
    const char* text = nullptr;
    long number = 0;
    double seconds = 0.0;

    // The addresses that the last call was given.
    const void* givenHandle = nullptr;
    const void* givenList = nullptr;
    const void* givenPointer = nullptr;
};

Libcurl libcurl;

constexpr unsigned int kPointers = CURLOPTTYPE_OBJECTPOINT;

} // namespace
} // namespace TAV

using TAV::libcurl;

extern "C"
{

    CURLcode curl_global_init(long flags)
    {
        libcurl.calls.push_back("curl_global_init " + std::to_string(flags));
        return libcurl.result;
    }

    void curl_global_cleanup()
    {
        libcurl.calls.emplace_back("curl_global_cleanup");
    }

    CURL* curl_easy_init()
    {
        libcurl.calls.emplace_back("curl_easy_init");
        return libcurl.handle;
    }

    void curl_easy_cleanup(CURL* handle)
    {
        libcurl.calls.emplace_back("curl_easy_cleanup");
        libcurl.givenHandle = handle;
    }

    curl_slist* curl_slist_append(curl_slist* list, const char* line)
    {
        libcurl.calls.push_back(std::string("curl_slist_append ") + line);
        libcurl.givenList = list;
        libcurl.givenPointer = line;
        return libcurl.list;
    }

    void curl_slist_free_all(curl_slist* list)
    {
        libcurl.calls.emplace_back("curl_slist_free_all");
        libcurl.givenList = list;
    }

    // In C++ an enumeration may not stand before the dots.
    CURLcode setOption(CURL* handle, unsigned int option, ...) __asm__("curl_easy_setopt");
    CURLcode getInformation(CURL* handle, unsigned int info, ...) __asm__("curl_easy_getinfo");

    CURLcode setOption(CURL* handle, unsigned int option, ...)
    {
        std::va_list arguments;
        va_start(arguments, option);
        std::string call = "curl_easy_setopt " + std::to_string(option);
        libcurl.givenHandle = handle;
        if (option < TAV::kPointers)
            call += " " + std::to_string(va_arg(arguments, long));
        else
            libcurl.givenPointer = va_arg(arguments, void*);
        va_end(arguments);
        if (option == CURLOPT_URL && libcurl.givenPointer != nullptr)
            call += std::string(" ") + static_cast<const char*>(libcurl.givenPointer);
        if (option == CURLOPT_COPYPOSTFIELDS)
            call += " " + std::string(static_cast<const char*>(libcurl.givenPointer), 5);
        libcurl.calls.push_back(call);
        return libcurl.result;
    }

    CURLcode curl_easy_perform(CURL* handle)
    {
        libcurl.calls.emplace_back("curl_easy_perform");
        libcurl.givenHandle = handle;
        return libcurl.result;
    }

    CURLcode getInformation(CURL* handle, unsigned int info, ...)
    {
        std::va_list arguments;
        va_start(arguments, info);
        libcurl.calls.push_back("curl_easy_getinfo " + std::to_string(info));
        libcurl.givenHandle = handle;
        void* const out = va_arg(arguments, void*);
        va_end(arguments);
        libcurl.givenPointer = out;
        if (libcurl.result == CURLE_OK && (info & CURLINFO_TYPEMASK) == CURLINFO_LONG)
            *static_cast<long*>(out) = libcurl.number;
        if (libcurl.result == CURLE_OK && (info & CURLINFO_TYPEMASK) == CURLINFO_DOUBLE)
            *static_cast<double*>(out) = libcurl.seconds;
        return libcurl.result;
    }

    const char* curl_easy_strerror(CURLcode code)
    {
        libcurl.calls.push_back("curl_easy_strerror " + std::to_string(code));
        return libcurl.text;
    }

} // extern "C"

namespace TAV
{
namespace
{

using test::callbackLock;
using test::HeldLock;
using test::thrownBy;
using testing::ElementsAre;

class CurlCallsTest : public testing::Test
{
protected:
    CurlCallsTest() { libcurl = {}; }

    /// Compares the one call that was made.
    static void expectCall(const std::string& call)
    {
        EXPECT_THAT(libcurl.calls, ElementsAre(call));
        libcurl.calls.clear();
    }

    CurlAPIUtility api;
    int target = 0; ///< something to point at
    void* const handle = &target;
    curl_slist list = {};
    static constexpr CURLcode kResults[] = {CURLE_OK, CURLE_FAILED_INIT, CURLE_UNKNOWN_OPTION, CURLE_SSL_CONNECT_ERROR};
};

TEST_F(CurlCallsTest, GlobalInitPassesTheFlags)
{
    for (const CURLcode result : kResults)
    {
        libcurl.result = result;
        EXPECT_EQ(api.curlGlobalInit(CURL_GLOBAL_ALL), result);
        expectCall("curl_global_init 3");
        EXPECT_EQ(api.curlGlobalInit(1L << 40), result);
        expectCall("curl_global_init 1099511627776");
    }
}

TEST_F(CurlCallsTest, GlobalCleanupIsOneCall)
{
    api.curlGlobalCleanup();
    expectCall("curl_global_cleanup");
}

TEST_F(CurlCallsTest, EasyInitGivesTheHandle)
{
    libcurl.handle = handle;
    EXPECT_EQ(api.curlEasyInit(), handle);
    expectCall("curl_easy_init");
}

TEST_F(CurlCallsTest, EasyInitThrowsWithoutAHandle)
{
    EXPECT_EQ(thrownBy([&] { api.curlEasyInit(); }), "1: Failed to initialize curl handle");
    expectCall("curl_easy_init");
}

TEST_F(CurlCallsTest, EasyCleanupPassesTheHandle)
{
    api.curlEasyCleanup(handle);
    expectCall("curl_easy_cleanup");
    EXPECT_EQ(libcurl.givenHandle, handle);
}

TEST_F(CurlCallsTest, SlistAppendPassesListAndLineAndGivesTheNewHead)
{
    curl_slist head = {};
    libcurl.list = &head;
    const char line[] = "X: y";
    EXPECT_EQ(api.curlSlistAppend(&list, line), &head);
    expectCall("curl_slist_append X: y");
    EXPECT_EQ(libcurl.givenList, &list);
    EXPECT_EQ(libcurl.givenPointer, line);
}

TEST_F(CurlCallsTest, SlistAppendToNullStartsAList)
{
    libcurl.list = &list;
    libcurl.givenList = handle;
    EXPECT_EQ(api.curlSlistAppend(nullptr, ""), &list);
    EXPECT_EQ(libcurl.givenList, nullptr);
}

TEST_F(CurlCallsTest, SlistAppendThatFailsThrowsAndLeavesTheListAlone)
{
    EXPECT_EQ(thrownBy([&] { api.curlSlistAppend(&list, "X: y"); }), "1: Failed to append data to curl slist");
    expectCall("curl_slist_append X: y"); // and no curl_slist_free_all
    EXPECT_EQ(list.data, nullptr);
    EXPECT_EQ(list.next, nullptr);
}

TEST_F(CurlCallsTest, SlistFreeAllPassesTheList)
{
    api.curlSlistFreeAll(&list);
    expectCall("curl_slist_free_all");
    EXPECT_EQ(libcurl.givenList, &list);
}

TEST_F(CurlCallsTest, HeaderOptionPassesTheListItself)
{
    for (const CURLcode result : kResults)
    {
        libcurl.result = result;
        EXPECT_EQ(api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, &list), result);
        expectCall("curl_easy_setopt 10023");
        EXPECT_EQ(libcurl.givenHandle, handle);
        EXPECT_EQ(libcurl.givenPointer, &list);
    }
    EXPECT_EQ(api.curlSetHeaderOpt(handle, CURLOPT_PROXYHEADER, nullptr), libcurl.result);
    expectCall("curl_easy_setopt 10228");
    EXPECT_EQ(libcurl.givenPointer, nullptr);
}

TEST_F(CurlCallsTest, StringOptionPassesTheCharacters)
{
    for (const CURLcode result : kResults)
    {
        libcurl.result = result;
        EXPECT_EQ(api.curlSetStringOpt(handle, CURLOPT_URL, "https://host/1"), result);
        expectCall("curl_easy_setopt 10002 https://host/1");
        EXPECT_EQ(libcurl.givenHandle, handle);
    }
}

TEST_F(CurlCallsTest, StringOptionMayBeEmptyAndIsNotNull)
{
    api.curlSetStringOpt(handle, CURLOPT_URL, "");
    expectCall("curl_easy_setopt 10002 ");
    EXPECT_NE(libcurl.givenPointer, nullptr);
}

TEST_F(CurlCallsTest, StringOptionPassesWhatStandsBehindAZeroByte)
{
    api.curlSetStringOpt(handle, CURLOPT_COPYPOSTFIELDS, std::string("a\0b\0c", 5));
    expectCall("curl_easy_setopt 10165 " + std::string("a\0b\0c", 5));
}

TEST_F(CurlCallsTest, LongOptionPassesTheWholeNumber)
{
    for (const CURLcode result : kResults)
    {
        libcurl.result = result;
        EXPECT_EQ(api.curlSetLongOpt(handle, CURLOPT_TIMEOUT, 30), result);
        expectCall("curl_easy_setopt 13 30");
        EXPECT_EQ(libcurl.givenHandle, handle);
    }
    api.curlSetLongOpt(handle, CURLOPT_PROXYAUTH, -17);
    expectCall("curl_easy_setopt 111 -17");
    api.curlSetLongOpt(handle, CURLOPT_POSTFIELDSIZE, 1L << 40);
    expectCall("curl_easy_setopt 60 1099511627776");
}

TEST_F(CurlCallsTest, CallbackOptionInstallsTheOwnCallback)
{
    for (const CURLcode result : kResults)
    {
        libcurl.result = result;
        EXPECT_EQ(api.curlSetCallbackFuncOpt(handle), result);
        expectCall("curl_easy_setopt 20011");
        EXPECT_EQ(libcurl.givenHandle, handle);
        EXPECT_EQ(libcurl.givenPointer, reinterpret_cast<const void*>(&CurlAPIUtility::writeCallback));
    }
}

TEST_F(CurlCallsTest, ResponseOptionPassesTheAddressOfTheString)
{
    std::string response = "kept";
    for (const CURLcode result : kResults)
    {
        libcurl.result = result;
        EXPECT_EQ(api.curlSetResponseString(handle, CURLOPT_WRITEDATA, response), result);
        expectCall("curl_easy_setopt 10001");
        EXPECT_EQ(libcurl.givenHandle, handle);
        EXPECT_EQ(libcurl.givenPointer, &response);
    }
    api.curlSetResponseString(handle, CURLOPT_HEADERDATA, response);
    expectCall("curl_easy_setopt 10029");
    EXPECT_EQ(response, "kept");
}

TEST_F(CurlCallsTest, PerformPassesTheHandle)
{
    for (const CURLcode result : kResults)
    {
        libcurl.result = result;
        EXPECT_EQ(api.curlEasyPerform(handle), result);
        expectCall("curl_easy_perform");
        EXPECT_EQ(libcurl.givenHandle, handle);
    }
}

TEST_F(CurlCallsTest, GetInfoReadsANumber)
{
    libcurl.number = 1L << 40;
    long out = 7;
    EXPECT_EQ(api.curlGetInfo(handle, CURLINFO_RESPONSE_CODE, out), CURLE_OK);
    expectCall("curl_easy_getinfo " + std::to_string(CURLINFO_RESPONSE_CODE));
    EXPECT_EQ(libcurl.givenHandle, handle);
    EXPECT_EQ(libcurl.givenPointer, &out);
    EXPECT_EQ(out, 1L << 40);
}

TEST_F(CurlCallsTest, GetInfoReadsATime)
{
    libcurl.seconds = 1.2345;
    double out = 7.0;
    EXPECT_EQ(api.curlGetInfo(handle, CURLINFO_TOTAL_TIME, out), CURLE_OK);
    expectCall("curl_easy_getinfo " + std::to_string(CURLINFO_TOTAL_TIME));
    EXPECT_EQ(libcurl.givenHandle, handle);
    EXPECT_EQ(libcurl.givenPointer, &out);
    EXPECT_EQ(out, 1.2345);
}

TEST_F(CurlCallsTest, RefusedGetInfoLeavesTheOutput)
{
    libcurl.result = CURLE_UNKNOWN_OPTION;
    long number = 7;
    double seconds = 7.5;
    EXPECT_EQ(api.curlGetInfo(handle, CURLINFO_RESPONSE_CODE, number), CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(api.curlGetInfo(handle, CURLINFO_TOTAL_TIME, seconds), CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(seconds, 7.5);
}

TEST_F(CurlCallsTest, ErrorTextIsLibcurlsOwn)
{
    const char text[] = "Timeout was reached";
    libcurl.text = text;
    EXPECT_EQ(api.curlEasyStrerror(CURLE_OPERATION_TIMEDOUT), text);
    expectCall("curl_easy_strerror 28");
    libcurl.text = nullptr;
    EXPECT_EQ(api.curlEasyStrerror(CURLE_OK), nullptr);
}

TEST_F(CurlCallsTest, OperationsTakeNoLock)
{
    libcurl.handle = handle;
    libcurl.list = &list;
    const HeldLock held(callbackLock()); // an attempt to take it would throw
    long number = 0;
    double seconds = 0.0;
    std::string response;
    EXPECT_NO_THROW({
        api.curlGlobalInit(CURL_GLOBAL_ALL);
        api.curlSetCallbackFuncOpt(api.curlEasyInit());
        api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, api.curlSlistAppend(nullptr, ""));
        api.curlSetStringOpt(handle, CURLOPT_URL, "a text");
        api.curlSetLongOpt(handle, CURLOPT_TIMEOUT, 1);
        api.curlSetResponseString(handle, CURLOPT_WRITEDATA, response);
        api.curlEasyPerform(handle);
        api.curlGetInfo(handle, CURLINFO_RESPONSE_CODE, number);
        api.curlGetInfo(handle, CURLINFO_TOTAL_TIME, seconds);
        api.curlEasyStrerror(CURLE_OK);
        api.curlSlistFreeAll(&list);
        api.curlEasyCleanup(handle);
        api.curlGlobalCleanup();
    });
    EXPECT_EQ(libcurl.calls.size(), 15U) << "each operation was there";
}

} // namespace
} // namespace TAV
