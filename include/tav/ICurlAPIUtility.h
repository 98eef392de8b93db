#pragma once

#include <string>

#include <curl/curl.h>

#include "tav/Export.h"

namespace TAV
{

/// The calls into libcurl's easy interface (libcurl-easy(3)) that `CurlWrapper` makes, one operation for each, so that
/// a test can replace them.
///
/// **Handles** are untyped pointers to libcurl easy handles. Options, information selectors and results are libcurl's
/// own, and a result goes back to the caller as libcurl gave it: nothing is checked, logged or translated but where an
/// operation says so.
///
/// **Threads.** Any operation may run on any thread, as long as one handle is used by one thread at a time
/// (libcurl-thread(3)). `curlGlobalInit` and `curlGlobalCleanup` belong where no other thread uses libcurl.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT ICurlAPIUtility
{
public:
    virtual ~ICurlAPIUtility() = default;

    /// curl_global_init(3).
    /// @param flags  what to initialise, such as `CURL_GLOBAL_ALL`
    /// @return libcurl's result
    virtual CURLcode curlGlobalInit(long flags) = 0;

    /// curl_easy_init(3).
    /// @return a handle, never null; the caller owns it and gives it to `curlEasyCleanup`
    /// @throws FMXException  code 1, "Failed to initialize curl handle", if libcurl gives none
    virtual void* curlEasyInit() = 0;

    /// curl_easy_cleanup(3): closes what the handle holds open and frees it.
    /// @param handle  is no longer valid then
    virtual void curlEasyCleanup(void* handle) = 0;

    /// curl_global_cleanup(3).
    virtual void curlGlobalCleanup() = 0;

    /// curl_slist_append(3).
    /// @param list  the list so far; null starts a new one
    /// @param line  the text to add, which is copied
    /// @return the list's head, which takes the place of `list`; the caller owns it and gives it to `curlSlistFreeAll`
    /// @throws FMXException  code 1, "Failed to append data to curl slist", if libcurl gives none; `list` is then as it
    ///                       was, and still the caller's
    virtual curl_slist* curlSlistAppend(curl_slist* list, const char* line) = 0;

    /// Sets an option whose value is a list (curl_easy_setopt(3)). libcurl does not copy it: it must live until the
    /// transfer has ended.
    /// @param handle  the handle
    /// @param option  the option, such as `CURLOPT_HTTPHEADER`
    /// @param list    the list, which stays the caller's
    /// @return libcurl's result
    virtual CURLcode curlSetHeaderOpt(void* handle, CURLoption option, curl_slist* list) = 0;

    /// curl_slist_free_all(3).
    /// @param list  its head; may be null
    virtual void curlSlistFreeAll(curl_slist* list) = 0;

    /// Sets an option whose value is a text.
    /// @param handle  the handle
    /// @param option  one whose text libcurl copies, as `value` ends with the call
    /// @param value   the text, up to its first zero byte. For `CURLOPT_COPYPOSTFIELDS` libcurl takes as many bytes of
    ///                it as `CURLOPT_POSTFIELDSIZE` told before.
    /// @return libcurl's result
    virtual CURLcode curlSetStringOpt(void* handle, CURLoption option, std::string value) = 0;

    /// Sets an option whose value is a number.
    /// @param handle  the handle
    /// @param option  the option
    /// @param value   its value
    /// @return libcurl's result
    virtual CURLcode curlSetLongOpt(void* handle, CURLoption option, long value) = 0;

    /// Installs the implementation's own write callback (`CURLOPT_WRITEFUNCTION`), which appends what arrives to the
    /// string that `curlSetResponseString` named.
    /// @param handle  the handle
    /// @return libcurl's result
    virtual CURLcode curlSetCallbackFuncOpt(void* handle) = 0;

    /// Sets an option whose value is the address of a string: `CURLOPT_WRITEDATA` for the write callback.
    /// @param handle    the handle
    /// @param option    the option
    /// @param response  must live until the transfer has ended; it is not cleared
    /// @return libcurl's result
    virtual CURLcode curlSetResponseString(void* handle, CURLoption option, std::string& response) = 0;

    /// Runs the transfer (curl_easy_perform(3)) and blocks until it has ended.
    /// @param handle  the handle
    /// @return how the transfer ended
    virtual CURLcode curlEasyPerform(void* handle) = 0;

    /// Reads a number of the last transfer (curl_easy_getinfo(3)).
    /// @param handle  the handle
    /// @param info    a selector of that type, such as `CURLINFO_RESPONSE_CODE`
    /// @param out     receives it; untouched if libcurl refuses
    /// @return libcurl's result
    virtual CURLcode curlGetInfo(void* handle, CURLINFO info, long& out) = 0;

    /// Reads a time of the last transfer, in seconds.
    /// @param handle  the handle
    /// @param info    a selector of that type, such as `CURLINFO_TOTAL_TIME`
    /// @param out     receives it; untouched if libcurl refuses
    /// @return libcurl's result
    virtual CURLcode curlGetInfo(void* handle, CURLINFO info, double& out) = 0;

    /// curl_easy_strerror(3).
    /// @param code  the result
    /// @return libcurl's static text for it, which nobody frees
    virtual const char* curlEasyStrerror(CURLcode code) = 0;
};

} // namespace TAV
