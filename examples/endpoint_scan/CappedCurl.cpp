#include "endpoint_scan/CappedCurl.h"

#include <exception>

namespace endpointscan
{

CURLcode CappedCurl::curlSetCallbackFuncOpt(void* handle)
{
    return curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &CappedCurl::write);
}

std::size_t CappedCurl::write(char* data, std::size_t size, std::size_t count, std::string* answer) noexcept
{
    try
    {
        if (answer->size() > kLongestAnswer || size * count > kLongestAnswer - answer->size())
            return 0;
        return writeCallback(data, size, count, answer);
    }
    catch (const std::exception&)
    {
        return 0;
    }
}

} // namespace endpointscan
