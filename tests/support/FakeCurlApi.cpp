#include "support/FakeCurlApi.h"

#include <algorithm>
#include <utility>

#include "tav/FMXException.h"

namespace TAV::test
{
namespace
{

using Guard = std::lock_guard<std::mutex>;

/// The names of what the library's client sets and asks; anything else goes by its number.
std::string nameOf(CURLoption option)
{
#define TAV_NAMED(name)                                                                                                \
    {                                                                                                                  \
        name, #name                                                                                                    \
    }
    static const std::map<CURLoption, std::string> names{
        TAV_NAMED(CURLOPT_TIMEOUT),
        TAV_NAMED(CURLOPT_CUSTOMREQUEST),
        TAV_NAMED(CURLOPT_URL),
        TAV_NAMED(CURLOPT_CAINFO),
        TAV_NAMED(CURLOPT_SSL_VERIFYPEER),
        TAV_NAMED(CURLOPT_SSL_VERIFYHOST),
        TAV_NAMED(CURLOPT_SSLVERSION),
        TAV_NAMED(CURLOPT_PROXYAUTH),
        TAV_NAMED(CURLOPT_SSL_SESSIONID_CACHE),
        TAV_NAMED(CURLOPT_PROXY),
        TAV_NAMED(CURLOPT_PROXYUSERPWD),
        TAV_NAMED(CURLOPT_HTTPPROXYTUNNEL),
        TAV_NAMED(CURLOPT_HTTPHEADER),
        TAV_NAMED(CURLOPT_POSTFIELDSIZE),
        TAV_NAMED(CURLOPT_COPYPOSTFIELDS),
        TAV_NAMED(CURLOPT_WRITEDATA),
    };
    const auto name = names.find(option);
    return name == names.end() ? std::to_string(option) : name->second;
}

std::string nameOf(CURLINFO info)
{
    static const std::map<CURLINFO, std::string> names{
        TAV_NAMED(CURLINFO_RESPONSE_CODE),
        TAV_NAMED(CURLINFO_APPCONNECT_TIME),
        TAV_NAMED(CURLINFO_TOTAL_TIME),
    };
#undef TAV_NAMED
    const auto name = names.find(info);
    return name == names.end() ? std::to_string(info) : name->second;
}

template <typename Object, typename Predicate>
Object* findIn(const std::vector<std::unique_ptr<Object>>& all, Predicate isIt)
{
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto& object) { return isIt(*object); });
    return found == all.end() ? nullptr : found->get();
}

/// Adds a text for each object that is not released yet.
template <typename Object>
void addUnreleased(std::vector<std::string>& problems, const char* kind, const std::vector<Object>& all)
{
    for (const Object& object : all)
    {
        if (!object->isReleased)
            problems.push_back(kind + std::to_string(object->number) + " not released");
    }
}

} // namespace

void FakeCurlApi::failCall(const std::string& operation, unsigned int nth, CURLcode result, Lasting lasting)
{
    const Guard guard(m_mutex);
    m_faults[operation] = {nth, result, lasting};
}

void FakeCurlApi::failAnyCall(unsigned int nth, CURLcode result, Lasting lasting)
{
    failCall("", nth, result, lasting);
}

void FakeCurlApi::giveNull(const std::string& operation)
{
    const Guard guard(m_mutex);
    m_nulls.insert(operation);
}

void FakeCurlApi::succeed()
{
    const Guard guard(m_mutex);
    m_faults.clear();
    m_nulls.clear();
    m_hasFailed = false;
}

bool FakeCurlApi::hasFailed() const
{
    const Guard guard(m_mutex);
    return m_hasFailed;
}

std::vector<std::string> FakeCurlApi::calls() const
{
    const Guard guard(m_mutex);
    return m_calls;
}

std::vector<std::string> FakeCurlApi::takeCalls()
{
    const Guard guard(m_mutex);
    return std::exchange(m_calls, {});
}

std::vector<std::string> FakeCurlApi::problems() const
{
    const Guard guard(m_mutex);
    std::vector<std::string> problems = m_misuses;
    addUnreleased(problems, "handle ", m_handles);
    addUnreleased(problems, "list ", m_lists);
    return problems;
}

/// Counts a call; true for the one that is to fail, and for those behind it if the fault lasts.
bool FakeCurlApi::isDue(Fault& fault)
{
    if (fault.callsLeft == 0)
        return false;
    const bool due = fault.callsLeft == 1;
    if (!due || fault.lasting == Lasting::Once)
        --fault.callsLeft;
    return due;
}

std::optional<CURLcode> FakeCurlApi::enter(const std::string& operation, const std::string& arguments, bool canFail)
{
    const std::string call = operation + "(" + arguments + ")";
    std::optional<CURLcode> failure;
    {
        const Guard guard(m_mutex);
        m_calls.push_back(call);
    }
    if (onCall)
        onCall(call);
    const Guard guard(m_mutex);
    for (auto& [name, fault] : m_faults)
    {
        if ((name == operation || (name.empty() && canFail)) && isDue(fault))
            failure = fault.result;
    }
    m_hasFailed = m_hasFailed || failure;
    return failure;
}

FakeCurlApi::Handle* FakeCurlApi::find(void* handle)
{
    return findIn(m_handles, [&](const Handle& each) { return &each == handle; });
}

FakeCurlApi::List* FakeCurlApi::find(const curl_slist* list)
{
    return findIn(m_lists, [&](const List& each) { return &each.lines.front()->node == list; });
}

template <typename Pointer>
std::string FakeCurlApi::use(const char* kind, Pointer object)
{
    if (object == nullptr)
        return "null";
    const Guard guard(m_mutex);
    const auto* found = find(object);
    if (found == nullptr)
    {
        m_misuses.push_back(std::string("unknown ") + kind + " used");
        return std::string("unknown ") + kind;
    }
    const std::string name = kind + std::string(" ") + std::to_string(found->number);
    if (found->isReleased)
        m_misuses.push_back("released " + name + " used");
    return name;
}

CURLcode FakeCurlApi::curlGlobalInit(long flags)
{
    return enter("curlGlobalInit", std::to_string(flags)).value_or(CURLE_OK);
}

void* FakeCurlApi::curlEasyInit()
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

void FakeCurlApi::curlEasyCleanup(void* handle)
{
    enter("curlEasyCleanup", use(handle), false);
    const Guard guard(m_mutex);
    if (Handle* found = find(handle))
        found->isReleased = true;
}

void FakeCurlApi::curlGlobalCleanup()
{
    enter("curlGlobalCleanup", "", false);
}

curl_slist* FakeCurlApi::curlSlistAppend(curl_slist* list, const char* line)
{
    if (enter("curlSlistAppend", use(list) + ", " + line))
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

CURLcode FakeCurlApi::curlSetHeaderOpt(void* handle, CURLoption option, curl_slist* list)
{
    if (const auto failure = enter("curlSetHeaderOpt", use(handle) + ", " + nameOf(option) + ", " + use(list)))
        return *failure;
    const Guard guard(m_mutex);
    if (Handle* found = find(handle))
        found->headers = list;
    return CURLE_OK;
}

void FakeCurlApi::curlSlistFreeAll(curl_slist* list)
{
    enter("curlSlistFreeAll", use(list), false);
    const Guard guard(m_mutex);
    if (List* found = find(list))
        found->isReleased = true;
}

CURLcode FakeCurlApi::curlSetStringOpt(void* handle, CURLoption option, std::string value)
{
    return enter("curlSetStringOpt", use(handle) + ", " + nameOf(option) + ", " + value).value_or(CURLE_OK);
}

CURLcode FakeCurlApi::curlSetLongOpt(void* handle, CURLoption option, long value)
{
    return enter("curlSetLongOpt", use(handle) + ", " + nameOf(option) + ", " + std::to_string(value))
        .value_or(CURLE_OK);
}

CURLcode FakeCurlApi::curlSetCallbackFuncOpt(void* handle)
{
    return enter("curlSetCallbackFuncOpt", use(handle)).value_or(CURLE_OK);
}

CURLcode FakeCurlApi::curlSetResponseString(void* handle, CURLoption option, std::string& response)
{
    if (const auto failure = enter("curlSetResponseString", use(handle) + ", " + nameOf(option)))
        return *failure;
    const Guard guard(m_mutex);
    if (Handle* found = find(handle))
        found->response = &response;
    return CURLE_OK;
}

CURLcode FakeCurlApi::curlEasyPerform(void* handle)
{
    const auto failure = enter("curlEasyPerform", use(handle));
    Handle attached;
    {
        const Guard guard(m_mutex);
        if (const Handle* found = find(handle))
            attached = *found;
    }
    use(attached.headers);
    if (onTransfer && attached.response != nullptr)
        onTransfer(*attached.response);
    return failure.value_or(CURLE_OK);
}

CURLcode FakeCurlApi::curlGetInfo(void* handle, CURLINFO info, long& out)
{
    const auto failure = enter("curlGetInfo", use(handle) + ", " + nameOf(info) + ", long");
    const auto answer = numbers.find(info);
    if (!failure && answer != numbers.end())
        out = answer->second;
    return failure.value_or(CURLE_OK);
}

CURLcode FakeCurlApi::curlGetInfo(void* handle, CURLINFO info, double& out)
{
    const auto failure = enter("curlGetInfo", use(handle) + ", " + nameOf(info) + ", double");
    const auto answer = times.find(info);
    if (!failure && answer != times.end())
        out = answer->second;
    return failure.value_or(CURLE_OK);
}

const char* FakeCurlApi::curlEasyStrerror(CURLcode code)
{
    const auto number = static_cast<int>(code);
    enter("curlEasyStrerror", std::to_string(number), false);
    const Guard guard(m_mutex);
    if (m_nulls.count("curlEasyStrerror") != 0)
        return nullptr;
    return texts.emplace(code, "text of " + std::to_string(number)).first->second.c_str();
}

} // namespace TAV::test
