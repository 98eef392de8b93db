#include "BareCurl.h"

#include <curl/curl.h>

namespace TAV::bench
{
namespace
{

std::size_t append(char* data, std::size_t size, std::size_t count, std::string* response)
{
    response->append(data, size * count);
    return size * count;
}

curl_slist* linesOf(const TAVHTTPHeader& header)
{
    curl_slist* lines = curl_slist_append(nullptr, header.firstHeader.c_str());
    lines = curl_slist_append(lines, (header.key1 + header.value1).c_str());
    lines = curl_slist_append(lines, (header.key2 + header.value3).c_str());
    lines = curl_slist_append(lines, (header.key4 + header.value4).c_str());
    return curl_slist_append(lines, (header.key3 + header.value2).c_str());
}

} // namespace

void* BareCurl::open(const TAVQueryConfig& config)
{
    void* handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &append);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT, config.timeout);
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, config.requestType.c_str());
    curl_easy_setopt(handle, CURLOPT_URL, ("https://" + config.serverHost + "/1").c_str());
    curl_easy_setopt(handle, CURLOPT_CAINFO, config.caCertPath.c_str());
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, config.sslVerifyPeer);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, config.sslVerifyHost);
    curl_easy_setopt(handle, CURLOPT_SSL_SESSIONID_CACHE, config.sslSessionIdCache);
    curl_easy_setopt(handle, CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2);
    curl_easy_setopt(handle, CURLOPT_PROXYAUTH, CURLAUTH_ANY);
    curl_easy_setopt(handle, CURLOPT_HTTPPROXYTUNNEL, config.proxyTunnel);
    curl_easy_setopt(handle, CURLOPT_PROXY, config.proxyAddress.c_str());
    curl_easy_setopt(handle, CURLOPT_PROXYUSERPWD, config.proxyCredentials.c_str());
    return handle;
}

BareCurl::~BareCurl()
{
    curl_easy_cleanup(m_handle);
}

bool BareCurl::send(const TAVHTTPHeader& header, const std::string& payload, std::string& response)
{
    curl_slist* lines = linesOf(header);
    curl_easy_setopt(m_handle, CURLOPT_HTTPHEADER, lines);
    curl_easy_setopt(m_handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(payload.size()));
    curl_easy_setopt(m_handle, CURLOPT_COPYPOSTFIELDS, payload.c_str());
    curl_easy_setopt(m_handle, CURLOPT_WRITEDATA, &response);
    curl_easy_perform(m_handle);
    curl_slist_free_all(lines);

    long code = 0;
    double tlsSeconds = 0;
    double totalSeconds = 0;
    curl_easy_getinfo(m_handle, CURLINFO_RESPONSE_CODE, &code);
    curl_easy_getinfo(m_handle, CURLINFO_APPCONNECT_TIME, &tlsSeconds);
    curl_easy_getinfo(m_handle, CURLINFO_TOTAL_TIME, &totalSeconds);
    return code == 200;
}

} // namespace TAV::bench
