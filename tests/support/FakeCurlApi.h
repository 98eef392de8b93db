#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tav/ICurlAPIUtility.h"

namespace TAV::test
{

/// An HTTP call layer that a test steers; libcurl is never called. Each operation, in this order: notes the call; runs
/// `onCall`; fails if the test planned so; otherwise succeeds, with the answers that the test has set.
///
///     FakeCurlApi api;
///     api.failCall("curlSetLongOpt", 2, CURLE_OUT_OF_MEMORY);       // the second number is refused, others are not
///     api.numbers[CURLINFO_RESPONSE_CODE] = 200;
///     api.onTransfer = [](std::string& response) { response += "a body"; };
///     ...
///     EXPECT_THAT(api.calls(), ElementsAre("curlEasyInit()", "curlSetLongOpt(handle 1, CURLOPT_TIMEOUT, 30)", ...));
///     EXPECT_THAT(api.problems(), IsEmpty());                       // everything was released, once
///
/// Handles and lists are numbered from 1 as they are handed out; no address is given twice. Plans and answers are made
/// while no other thread uses the object; its operations may be called from any.
class FakeCurlApi : public ICurlAPIUtility
{
public:
    enum class Lasting
    {
        Once,
        FromThenOn,
    };

    /// Makes call number `nth` of an operation, from 1 for the next one, fail with `result`. `curlEasyInit` and
    /// `curlSlistAppend`, which have no result, throw what `CurlAPIUtility` throws.
    void failCall(const std::string& operation, unsigned int nth, CURLcode result, Lasting lasting = Lasting::Once);
    /// The same for call number `nth` of all that can fail; for sweeps.
    void failAnyCall(unsigned int nth, CURLcode result, Lasting lasting = Lasting::Once);
    /// Makes an operation that gives a pointer give null from now on.
    void giveNull(const std::string& operation);
    /// Forgets the plans above.
    void succeed();
    /// Whether a planned failure took place.
    bool hasFailed() const;

    /// What `curlGetInfo` gives; it leaves the output alone for a selector that is not here.
    std::map<CURLINFO, long> numbers;
    std::map<CURLINFO, double> times;
    /// What `curlEasyStrerror` gives; "text of 28" for a result that is not here.
    std::map<CURLcode, std::string> texts;

    /// When set, called with the text of each call just as it is noted. It may block, and it may throw.
    std::function<void(const std::string&)> onCall;
    /// When set, called in a transfer with the string that the handle's response goes to.
    std::function<void(std::string&)> onTransfer;

    /// What was called, in order, with all arguments: "curlSetStringOpt(handle 1, CURLOPT_PROXY, )".
    std::vector<std::string> calls() const;
    /// The same, and forgets them.
    std::vector<std::string> takeCalls();

    /// What is wrong by now, empty if nothing is: first each use of what was no longer there, in order; then the
    /// handles and the lists that are not released. "released handle 2 used", "list 1 not released".
    std::vector<std::string> problems() const;

    CURLcode curlGlobalInit(long flags) override;
    void* curlEasyInit() override;
    void curlEasyCleanup(void* handle) override;
    void curlGlobalCleanup() override;
    curl_slist* curlSlistAppend(curl_slist* list, const char* line) override;
    CURLcode curlSetHeaderOpt(void* handle, CURLoption option, curl_slist* list) override;
    void curlSlistFreeAll(curl_slist* list) override;
    CURLcode curlSetStringOpt(void* handle, CURLoption option, std::string value) override;
    CURLcode curlSetLongOpt(void* handle, CURLoption option, long value) override;
    CURLcode curlSetCallbackFuncOpt(void* handle) override;
    CURLcode curlSetResponseString(void* handle, CURLoption option, std::string& response) override;
    CURLcode curlEasyPerform(void* handle) override;
    CURLcode curlGetInfo(void* handle, CURLINFO info, long& out) override;
    CURLcode curlGetInfo(void* handle, CURLINFO info, double& out) override;
    const char* curlEasyStrerror(CURLcode code) override;

private:
    struct Fault
    {
        unsigned int callsLeft = 0; ///< until it is due
        CURLcode result = CURLE_OK;
        Lasting lasting = Lasting::Once;
    };
    struct Handle
    {
        std::size_t number = 0;
        bool isReleased = false;
        curl_slist* headers = nullptr;
        std::string* response = nullptr;
    };
    struct Line
    {
        std::string text;
        curl_slist node;
    };
    struct List
    {
        std::size_t number = 0;
        bool isReleased = false;
        std::vector<std::unique_ptr<Line>> lines;
    };

    /// Notes a call and tells the result that it is planned to fail with.
    std::optional<CURLcode> enter(const std::string& operation, const std::string& arguments, bool canFail = true);
    static bool isDue(Fault& fault);

    Handle* find(void* handle);
    List* find(const curl_slist* list);
    /// What is named in a call; one that is released already is a problem.
    template <typename Pointer>
    std::string use(const char* kind, Pointer object);
    std::string use(void* handle) { return use("handle", handle); }
    std::string use(const curl_slist* list) { return use("list", list); }

    mutable std::mutex m_mutex;
    std::map<std::string, Fault> m_faults; ///< by operation; the empty name stands for all that can fail
    std::set<std::string> m_nulls;
    bool m_hasFailed = false;
    std::vector<std::string> m_calls;
    std::vector<std::string> m_misuses;
    std::vector<std::unique_ptr<Handle>> m_handles;
    std::vector<std::unique_ptr<List>> m_lists;
};

} // namespace TAV::test
