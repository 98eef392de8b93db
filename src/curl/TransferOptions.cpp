#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "frame/LogLevels.h"
#include "tav/CurlWrapper.h"

namespace TAV
{

/// One row of an option group: which option, what sets it from the configuration, and what is logged if libcurl
/// refuses it.
struct CurlWrapper::Option
{
    CURLoption selector;
    CURLcode (*set)(ICurlAPIUtility& api, void* handle, CURLoption selector, const TAVQueryConfig& config);
    const char* refusal;
};

namespace
{

/// The same value in every configuration.
template <long value>
CURLcode setTo(ICurlAPIUtility& api, void* handle, CURLoption selector, const TAVQueryConfig& /*config*/)
{
    return api.curlSetLongOpt(handle, selector, value);
}

template <long TAVQueryConfig::*number>
CURLcode set(ICurlAPIUtility& api, void* handle, CURLoption selector, const TAVQueryConfig& config)
{
    return api.curlSetLongOpt(handle, selector, config.*number);
}

template <std::string TAVQueryConfig::*text>
CURLcode set(ICurlAPIUtility& api, void* handle, CURLoption selector, const TAVQueryConfig& config)
{
    return api.curlSetStringOpt(handle, selector, config.*text);
}

CURLcode setUrl(ICurlAPIUtility& api, void* handle, CURLoption selector, const TAVQueryConfig& config)
{
    constexpr std::string_view kScheme = "https://";
    constexpr std::string_view kPath = "/1";
    std::string url;
    url.reserve(kScheme.size() + config.serverHost.size() + kPath.size());
    url.append(kScheme).append(config.serverHost).append(kPath);
    return api.curlSetStringOpt(handle, selector, std::move(url));
}

} // namespace

bool CurlWrapper::setOptions(void* handle, const Option* options, std::size_t count)
{
    for (const Option* option = options; option != options + count; ++option)
    {
        CURLcode result = option->set(*m_curlApi, handle, option->selector, m_queryConfig);
        if (result != CURLE_OK)
        {
            m_logger.log(kLogFailure, m_className, option->refusal + getCURLErrMsg(result));
            return false;
        }
    }
    return true;
}

// Every option is set each time, an empty or zero value too: an empty proxy, for one, means none whatever the
// environment says.

bool CurlWrapper::setCommonConfigParameters(void* handle)
{
    static constexpr Option kOptions[] = {
        {CURLOPT_TIMEOUT, &set<&TAVQueryConfig::timeout>, "Failed to set cURL timeout with error message: "},
        {CURLOPT_CUSTOMREQUEST,
         &set<&TAVQueryConfig::requestType>,
         "Failed to set cURL request type with error message: "},
        {CURLOPT_URL, &setUrl, "Failed to set cURL URL with error message: "},
    };
    return setOptions(handle, kOptions, std::size(kOptions));
}

bool CurlWrapper::setSSLConfigParameters(void* handle)
{
    static constexpr Option kOptions[] = {
        {CURLOPT_CAINFO, &set<&TAVQueryConfig::caCertPath>, "Failed to set CA certificate with error message: "},
        {CURLOPT_SSL_VERIFYPEER,
         &set<&TAVQueryConfig::sslVerifyPeer>,
         "Failed to set SSL peer verification option with error message: "},
        {CURLOPT_SSL_VERIFYHOST,
         &set<&TAVQueryConfig::sslVerifyHost>,
         "Failed to set SSL host verification option with error message: "},
        {CURLOPT_SSL_SESSIONID_CACHE,
         &set<&TAVQueryConfig::sslSessionIdCache>,
         "Failed to set SSL session-id caching option with error message: "},
        {CURLOPT_SSLVERSION, &setTo<CURL_SSLVERSION_TLSv1_2>, "Failed to set TLS 1.2: "}, // or a later one
    };
    return setOptions(handle, kOptions, std::size(kOptions));
}

bool CurlWrapper::setProxyConfigParameters(void* handle)
{
    static constexpr Option kOptions[] = {
        {CURLOPT_PROXYAUTH,
         &setTo<static_cast<long>(CURLAUTH_ANY)>,
         "Failed to set proxy authentication option with error message: "},
        {CURLOPT_HTTPPROXYTUNNEL,
         &set<&TAVQueryConfig::proxyTunnel>,
         "Failed to set http proxy tunneling option with error message: "},
        {CURLOPT_PROXY,
         &set<&TAVQueryConfig::proxyAddress>,
         "Failed to set proxy authentication URL option with error message: "},
        {CURLOPT_PROXYUSERPWD,
         &set<&TAVQueryConfig::proxyCredentials>,
         "Failed to set credentials for proxy configuration with error message: "},
    };
    return setOptions(handle, kOptions, std::size(kOptions));
}

} // namespace TAV
