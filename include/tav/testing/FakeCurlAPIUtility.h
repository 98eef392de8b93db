#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tav/FMXException.h"
#include "tav/ICurlAPIUtility.h"
#include "tav/testing/Fake.h"

namespace TAV::test
{

/// An HTTP call layer that a test steers; libcurl is never called. Each operation notes its call and fails if the test
/// planned so; otherwise it succeeds, with the answers that the test has set.
///
///     auto api = std::make_shared<FakeCurlAPIUtility>();
///     api->failCall("curlSetLongOpt", 2, CURLE_OUT_OF_MEMORY);       // the second number is refused, others are not
///     api->numbers[CURLINFO_RESPONSE_CODE] = 200;
///     api->onTransfer = [](std::string& response) { response += "a body"; };
///     TAV::CurlWrapper client(logger, api);
///     ...
///     EXPECT_THAT(api->calls(), ElementsAre("curlGlobalInit(3)", "curlEasyInit()",
///                                           "curlSetLongOpt(handle 1, CURLOPT_TIMEOUT, 30)", ...));
///     EXPECT_THAT(api->problems(), IsEmpty());                       // everything was released, once
///
/// **Failures.** A planned failure is the result of the operation, and its output stays as it was; a transfer that
/// fails hands its body over all the same, as one that breaks off does. `curlEasyInit` and `curlSlistAppend`, which
/// have no result, throw what `CurlAPIUtility` throws, whatever the planned number. The two that release, and
/// `curlGlobalCleanup` and `curlEasyStrerror`, cannot fail.
///
/// **In the text of a call** stand all arguments. Handles and lists are numbered from 1, each kind by itself, in the
/// order in which they were handed out; no address is given twice. Options and selectors bear their names if
/// `CurlWrapper` uses them, and are numbers otherwise. What is null is "null", and what this object did not hand out is
/// "unknown handle" or "unknown list". Proxy credentials and bodies are shown like any other text.
///
/// **Threads.** Operations may be called from any thread. What a test sets it sets while no other thread calls.
///
/// Link `tavutils::tavutils` with it.
class FakeCurlAPIUtility : public ICurlAPIUtility, public Fake
{
public:
    using Fake::Fake;

    /// Makes an operation that gives a pointer give null: `curlEasyInit`, `curlSlistAppend` or `curlEasyStrerror`. It
    /// is no failure: it is not counted, and `succeed` leaves it as it is.
    /// @param operation  its name as in the interface
    /// @param isNull     whether from now on
    void giveNull(const std::string& operation, bool isNull = true);

    /// What `curlGetInfo` gives; it leaves the output alone for a selector that is not here.
    std::map<CURLINFO, long> numbers;
    std::map<CURLINFO, double> times; ///< the same for selectors that give seconds
    /// What `curlEasyStrerror` gives; "text of 28" for a result that is not here.
    std::map<CURLcode, std::string> texts;

    /// When set, called in a transfer with the string that the handle's response goes to, if it has one.
    std::function<void(std::string&)> onTransfer;

    /// What is wrong by now, empty if nothing is. First the misuses, in order:
    ///
    /// - "released handle 2 used", "released list 1 used": a call named what was released already, be it to release it
    ///   again; or a transfer began whose list of header lines was released;
    /// - "unknown handle used", "unknown list used": a call named what this object did not hand out. Null is none.
    ///
    /// Then the handles, and after them the lists, that are not released: "handle 1 not released".
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
    using Guard = std::lock_guard<std::mutex>;

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

    /// Notes a call and tells the result that it has.
    CURLcode resultOf(const std::string& operation, const std::string& arguments)
    {
        return static_cast<CURLcode>(enter(operation, arguments).value_or(CURLE_OK));
    }
    template <typename Answers, typename Number>
    CURLcode tell(const std::string& arguments, const Answers& answers, CURLINFO info, Number& out);

    /// The names of what the library's client sets and asks; anything else goes by its number.
    static std::string nameOf(CURLoption option);
    static std::string nameOf(CURLINFO info);

    template <typename Object, typename Predicate>
    static Object* findIn(const std::vector<std::unique_ptr<Object>>& all, Predicate isIt);
    Handle* find(const void* handle);
    List* find(const curl_slist* list);

    /// What is named in a call; one that is released already is a problem.
    template <typename Pointer>
    std::string use(const std::string& kind, Pointer object);
    std::string use(const void* handle) { return use("handle", handle); }
    std::string use(const curl_slist* list) { return use("list", list); }

    /// Adds a text for each object that is not released yet.
    template <typename Object>
    static void addUnreleased(std::vector<std::string>& problems, const char* kind, const std::vector<Object>& all);

    mutable std::mutex m_mutex;
    std::set<std::string> m_nulls;
    std::vector<std::string> m_misuses;
    std::vector<std::unique_ptr<Handle>> m_handles;
    std::vector<std::unique_ptr<List>> m_lists;
};

inline void FakeCurlAPIUtility::giveNull(const std::string& operation, bool isNull)
{
    const Guard guard(m_mutex);
    if (isNull)
        m_nulls.insert(operation);
    else
        m_nulls.erase(operation);
}

inline std::vector<std::string> FakeCurlAPIUtility::problems() const
{
    const Guard guard(m_mutex);
    std::vector<std::string> problems = m_misuses;
    addUnreleased(problems, "handle ", m_handles);
    addUnreleased(problems, "list ", m_lists);
    return problems;
}

inline CURLcode FakeCurlAPIUtility::curlGlobalInit(long flags)
{
    return resultOf("curlGlobalInit", std::to_string(flags));
}

inline void* FakeCurlAPIUtility::curlEasyInit()
{
    if (enter("curlEasyInit", ""))
        throw FMXException(1, "Failed to initialize curl handle");
    const Guard guard(m_mutex);
    if (m_nulls.count("curlEasyInit") != 0)
        return nullptr;
    m_handles.push_back(std::make_unique<Handle>());
    m_handles.back()->number = m_handles.size();
    return m_handles.back().get();
}

inline void FakeCurlAPIUtility::curlEasyCleanup(void* handle)
{
    enter("curlEasyCleanup", use(handle), false);
    const Guard guard(m_mutex);
    if (Handle* found = find(handle))
        found->isReleased = true;
}

inline void FakeCurlAPIUtility::curlGlobalCleanup()
{
    enter("curlGlobalCleanup", "", false);
}

inline curl_slist* FakeCurlAPIUtility::curlSlistAppend(curl_slist* list, const char* line)
{
    if (enter("curlSlistAppend", joined({use(list), line})))
        throw FMXException(1, "Failed to append data to curl slist");
    const Guard guard(m_mutex);
    if (m_nulls.count("curlSlistAppend") != 0)
        return nullptr;
    auto added = std::make_unique<Line>(Line{line, {}});
    added->node.data = added->text.data();
    List* target = find(list);
    if (target == nullptr)
    {
        target = m_lists.emplace_back(std::make_unique<List>()).get();
        target->number = m_lists.size();
    }
    else
        target->lines.back()->node.next = &added->node;
    target->lines.push_back(std::move(added));
    return &target->lines.front()->node;
}

inline CURLcode FakeCurlAPIUtility::curlSetHeaderOpt(void* handle, CURLoption option, curl_slist* list)
{
    const CURLcode result = resultOf("curlSetHeaderOpt", joined({use(handle), nameOf(option), use(list)}));
    const Guard guard(m_mutex);
    if (Handle* found = find(handle); found != nullptr && result == CURLE_OK)
        found->headers = list;
    return result;
}

inline void FakeCurlAPIUtility::curlSlistFreeAll(curl_slist* list)
{
    enter("curlSlistFreeAll", use(list), false);
    const Guard guard(m_mutex);
    if (List* found = find(list))
        found->isReleased = true;
}

inline CURLcode FakeCurlAPIUtility::curlSetStringOpt(void* handle, CURLoption option, std::string value)
{
    return resultOf("curlSetStringOpt", joined({use(handle), nameOf(option), value}));
}

inline CURLcode FakeCurlAPIUtility::curlSetLongOpt(void* handle, CURLoption option, long value)
{
    return resultOf("curlSetLongOpt", joined({use(handle), nameOf(option), std::to_string(value)}));
}

inline CURLcode FakeCurlAPIUtility::curlSetCallbackFuncOpt(void* handle)
{
    return resultOf("curlSetCallbackFuncOpt", use(handle));
}

inline CURLcode FakeCurlAPIUtility::curlSetResponseString(void* handle, CURLoption option, std::string& response)
{
    const CURLcode result = resultOf("curlSetResponseString", joined({use(handle), nameOf(option)}));
    const Guard guard(m_mutex);
    if (Handle* found = find(handle); found != nullptr && result == CURLE_OK)
        found->response = &response;
    return result;
}

inline CURLcode FakeCurlAPIUtility::curlEasyPerform(void* handle)
{
    const CURLcode result = resultOf("curlEasyPerform", use(handle));
    Handle attached;
    {
        const Guard guard(m_mutex);
        if (const Handle* found = find(handle))
            attached = *found;
    }
    use(attached.headers);
    if (onTransfer && attached.response != nullptr)
        onTransfer(*attached.response);
    return result;
}

inline CURLcode FakeCurlAPIUtility::curlGetInfo(void* handle, CURLINFO info, long& out)
{
    return tell(joined({use(handle), nameOf(info), "long"}), numbers, info, out);
}

inline CURLcode FakeCurlAPIUtility::curlGetInfo(void* handle, CURLINFO info, double& out)
{
    return tell(joined({use(handle), nameOf(info), "double"}), times, info, out);
}

inline const char* FakeCurlAPIUtility::curlEasyStrerror(CURLcode code)
{
    const std::string number = std::to_string(static_cast<int>(code));
    enter("curlEasyStrerror", number, false);
    const Guard guard(m_mutex);
    if (m_nulls.count("curlEasyStrerror") != 0)
        return nullptr;
    return texts.emplace(code, "text of " + number).first->second.c_str();
}

template <typename Answers, typename Number>
CURLcode FakeCurlAPIUtility::tell(const std::string& arguments, const Answers& answers, CURLINFO info, Number& out)
{
    const CURLcode result = resultOf("curlGetInfo", arguments);
    const auto answer = answers.find(info);
    if (result == CURLE_OK && answer != answers.end())
        out = answer->second;
    return result;
}

inline std::string FakeCurlAPIUtility::nameOf(CURLoption option)
{
    static const std::map<CURLoption, std::string> names{
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
    };
    const auto name = names.find(option);
    return name == names.end() ? std::to_string(option) : name->second;
}

inline std::string FakeCurlAPIUtility::nameOf(CURLINFO info)
{
    static const std::map<CURLINFO, std::string> names{
        {CURLINFO_RESPONSE_CODE, "CURLINFO_RESPONSE_CODE"},
        {CURLINFO_APPCONNECT_TIME, "CURLINFO_APPCONNECT_TIME"},
        {CURLINFO_TOTAL_TIME, "CURLINFO_TOTAL_TIME"},
    };
    const auto name = names.find(info);
    return name == names.end() ? std::to_string(info) : name->second;
}

template <typename Object, typename Predicate>
Object* FakeCurlAPIUtility::findIn(const std::vector<std::unique_ptr<Object>>& all, Predicate isIt)
{
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto& object) { return isIt(*object); });
    return found == all.end() ? nullptr : found->get();
}

inline FakeCurlAPIUtility::Handle* FakeCurlAPIUtility::find(const void* handle)
{
    return findIn(m_handles, [&](const Handle& each) { return &each == handle; });
}

inline FakeCurlAPIUtility::List* FakeCurlAPIUtility::find(const curl_slist* list)
{
    return findIn(m_lists, [&](const List& each) { return &each.lines.front()->node == list; });
}

template <typename Pointer>
std::string FakeCurlAPIUtility::use(const std::string& kind, Pointer object)
{
    if (object == nullptr)
        return "null";
    const Guard guard(m_mutex);
    const auto* found = find(object);
    if (found == nullptr)
    {
        m_misuses.push_back("unknown " + kind + " used");
        return "unknown " + kind;
    }
    const std::string name = kind + " " + std::to_string(found->number);
    if (found->isReleased)
        m_misuses.push_back("released " + name + " used");
    return name;
}

template <typename Object>
void FakeCurlAPIUtility::addUnreleased(std::vector<std::string>& problems,
                                       const char* kind,
                                       const std::vector<Object>& all)
{
    for (const Object& object : all)
    {
        if (!object->isReleased)
            problems.push_back(kind + std::to_string(object->number) + " not released");
    }
}

} // namespace TAV::test
