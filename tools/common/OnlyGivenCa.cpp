#include "common/OnlyGivenCa.h"

namespace programs
{

void* OnlyGivenCa::curlEasyInit()
{
    void* handle = CurlAPIUtility::curlEasyInit();
    // Refused only by a libcurl that knows no such directory.
    curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
    return handle;
}

} // namespace programs
