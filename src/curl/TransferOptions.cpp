#include <iterator>
#include <string_view>
#include <variant>

#include "frame/LogLevels.h"
#include "tav/CurlWrapper.h"

namespace TAV
{

/// One row of an option group: which option, where its value comes from, and what is logged if libcurl refuses it.
struct CurlWrapper::Option
{
    CURLoption selector;
    std::variant<long,                                   // the same in every configuration
                 long TAVQueryConfig::*,                 // a field
                 std::string TAVQueryConfig::*,          // a field
                 std::string (*)(const TAVQueryConfig&)> // computed
        value;
    const char* refusal;
};

namespace
{

std::string urlOf(const TAVQueryConfig& config)
{
    constexpr std::string_view kScheme = "https://";
    constexpr std::string_view kPath = "/1";
    std::string url;
    url.reserve(kScheme.size() + config.serverHost.size() + kPath.size());
    return url.append(kScheme).append(config.serverHost).append(kPath);
}

/// Sets one option of a handle from whatever its value comes from.
struct Setter
{
    ICurlAPIUtility& api;
    void* handle;
    CURLoption selector;
    const TAVQueryConfig& config;

    CURLcode operator()(long value) const { return api.curlSetLongOpt(handle, selector, value); }
    CURLcode operator()(long TAVQueryConfig::*field) const
    {
        return api.curlSetLongOpt(handle, selector, config.*field);
    }
    CURLcode operator()(std::string TAVQueryConfig::*field) const
    {
        return api.curlSetStringOpt(handle, selector, config.*field);
    }
    CURLcode operator()(std::string (*make)(const TAVQueryConfig&)) const
    {
        return api.curlSetStringOpt(handle, selector, make(config));
    }
};

} // namespace

bool CurlWrapper::setOptions(void* handle, const Option* options, std::size_t count)
{
    for (const Option* option = options; option != options + count; ++option)
    {
        CURLcode result = std::visit(Setter{*m_curlApi, handle, option->selector, m_queryConfig}, option->value);
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
        {CURLOPT_TIMEOUT, &TAVQueryConfig::timeout, "Failed to set cURL timeout with error message: "},
        {CURLOPT_CUSTOMREQUEST, &TAVQueryConfig::requestType, "Failed to set cURL request type with error message: "},
        {CURLOPT_URL, &urlOf, "Failed to set cURL URL with error message: "},
    };
    return setOptions(handle, kOptions, std::size(kOptions));
}

bool CurlWrapper::setSSLConfigParameters(void* handle)
{
    static constexpr Option kOptions[] = {
        {CURLOPT_CAINFO, &TAVQueryConfig::caCertPath, "Failed to set CA certificate with error message: "},
        {CURLOPT_SSL_VERIFYPEER,
         &TAVQueryConfig::sslVerifyPeer,
         "Failed to set SSL peer verification option with error message: "},
        {CURLOPT_SSL_VERIFYHOST,
         &TAVQueryConfig::sslVerifyHost,
         "Failed to set SSL host verification option with error message: "},
        {CURLOPT_SSL_SESSIONID_CACHE,
         &TAVQueryConfig::sslSessionIdCache,
         "Failed to set SSL session-id caching option with error message: "},
        {CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2}, "Failed to set TLS 1.2: "}, // or a later one
    };
    return setOptions(handle, kOptions, std::size(kOptions));
}

bool CurlWrapper::setProxyConfigParameters(void* handle)
{
    static constexpr Option kOptions[] = {
        {CURLOPT_PROXYAUTH,
         static_cast<long>(CURLAUTH_ANY),
         "Failed to set proxy authentication option with error message: "},
        {CURLOPT_HTTPPROXYTUNNEL,
         &TAVQueryConfig::proxyTunnel,
         "Failed to set http proxy tunneling option with error message: "},
        {CURLOPT_PROXY,
         &TAVQueryConfig::proxyAddress,
         "Failed to set proxy authentication URL option with error message: "},
        {CURLOPT_PROXYUSERPWD,
         &TAVQueryConfig::proxyCredentials,
         "Failed to set credentials for proxy configuration with error message: "},
    };
    return setOptions(handle, kOptions, std::size(kOptions));
}

} // namespace TAV
