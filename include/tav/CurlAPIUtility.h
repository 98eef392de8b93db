#pragma once

#include <cstddef>

#include <boost/thread/mutex.hpp>

#include "tav/ICurlAPIUtility.h"

namespace TAV
{

/// `ICurlAPIUtility` over libcurl itself.
///
/// **Threads.** It has no state of its own, but one lock for the whole process, which every run of the write callback
/// takes: two transfers never append at the same moment, even into different strings.
class TAV_EXPORT CurlAPIUtility : public ICurlAPIUtility
{
public:
    CurlAPIUtility() = default;
    CurlAPIUtility(const CurlAPIUtility&) = delete;
    CurlAPIUtility& operator=(const CurlAPIUtility&) = delete;
    ~CurlAPIUtility() override;

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

    /// libcurl's write function (CURLOPT_WRITEFUNCTION(3)): appends one chunk to the response, under the lock.
    ///
    /// It never stops a transfer, so a response may grow without limit. What it throws crosses libcurl on its way out:
    /// the handle can only be cleaned up then.
    ///
    /// @param data      the chunk's first byte; may be null if the chunk is empty
    /// @param size      bytes in an item
    /// @param nmemb     items in the chunk
    /// @param response  receives the bytes behind what it holds; not null
    /// @return `size * nmemb`
    /// @throws std::logic_error   if `data` is null and the chunk is not empty
    /// @throws std::bad_alloc     if the response cannot grow; std::length_error where no string can be as long
    /// @throws boost::lock_error  if the lock cannot be taken
    static std::size_t writeCallback(char* data, std::size_t size, std::size_t nmemb, std::string* response);

private:
    static boost::mutex m_queryWriteCallBack;
};

} // namespace TAV
