#include "tav/CurlAPIUtility.h"

#include <stdexcept>

#include <boost/thread/lock_guard.hpp>

#include "frame/FailureCodes.h"
#include "tav/FMXException.h"

namespace TAV
{
namespace
{

constexpr const char* kNoHandle = "Failed to initialize curl handle";
constexpr const char* kNotAppended = "Failed to append data to curl slist";
constexpr const char* kNullChunk = "a chunk of the response is null but not empty";

} // namespace

boost::mutex CurlAPIUtility::m_queryWriteCallBack;

CurlAPIUtility::~CurlAPIUtility() = default;

CURLcode CurlAPIUtility::curlGlobalInit(long flags)
{
    return curl_global_init(flags);
}

void* CurlAPIUtility::curlEasyInit()
{
    void* handle = curl_easy_init();
    if (handle == nullptr)
        throw FMXException(kGeneralFailure, kNoHandle);
    return handle;
}

void CurlAPIUtility::curlEasyCleanup(void* handle)
{
    curl_easy_cleanup(handle);
}

void CurlAPIUtility::curlGlobalCleanup()
{
    curl_global_cleanup();
}

curl_slist* CurlAPIUtility::curlSlistAppend(curl_slist* list, const char* line)
{
    curl_slist* head = curl_slist_append(list, line);
    if (head == nullptr)
        throw FMXException(kGeneralFailure, kNotAppended);
    return head;
}

CURLcode CurlAPIUtility::curlSetHeaderOpt(void* handle, CURLoption option, curl_slist* list)
{
    return curl_easy_setopt(handle, option, list);
}

void CurlAPIUtility::curlSlistFreeAll(curl_slist* list)
{
    curl_slist_free_all(list);
}

CURLcode CurlAPIUtility::curlSetStringOpt(void* handle, CURLoption option, std::string value)
{
    return curl_easy_setopt(handle, option, value.c_str());
}

CURLcode CurlAPIUtility::curlSetLongOpt(void* handle, CURLoption option, long value)
{
    return curl_easy_setopt(handle, option, value);
}

CURLcode CurlAPIUtility::curlSetCallbackFuncOpt(void* handle)
{
    return curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &writeCallback);
}

CURLcode CurlAPIUtility::curlSetResponseString(void* handle, CURLoption option, std::string& response)
{
    return curl_easy_setopt(handle, option, &response);
}

CURLcode CurlAPIUtility::curlEasyPerform(void* handle)
{
    return curl_easy_perform(handle);
}

CURLcode CurlAPIUtility::curlGetInfo(void* handle, CURLINFO info, long& out)
{
    return curl_easy_getinfo(handle, info, &out);
}

CURLcode CurlAPIUtility::curlGetInfo(void* handle, CURLINFO info, double& out)
{
    return curl_easy_getinfo(handle, info, &out);
}

const char* CurlAPIUtility::curlEasyStrerror(CURLcode code)
{
    return curl_easy_strerror(code);
}

std::size_t CurlAPIUtility::writeCallback(char* data, std::size_t size, std::size_t nmemb, std::string* response)
{
    const boost::lock_guard<boost::mutex> lock(m_queryWriteCallBack);
    const std::size_t length = size * nmemb;
    if (data == nullptr && length != 0)
        throw std::logic_error(kNullChunk);
    // Straight into the response: a body of many chunks is copied once.
    response->append(data, length);
    return length;
}

} // namespace TAV
