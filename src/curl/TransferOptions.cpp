#include <functional>
#include <iterator>
#include <type_traits>
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

CURLcode setValue(ICurlAPIUtility& api, void* handle, CURLoption selector, long value)
{
    return api.curlSetLongOpt(handle, selector, value);
}

CURLcode setValue(ICurlAPIUtility& api, void* handle, CURLoption selector, std::string value)
{
    return api.curlSetStringOpt(handle, selector, std::move(value));
}

std::string urlOf(const TAVQueryConfig& config)
{
    return "https://" + config.serverHost + "/1";
}

} // namespace

bool CurlWrapper::setOptions(void* handle, const Option* options, std::size_t count)
{
    for (const Option* option = options; option != options + count; ++option)
    {
        const auto set = [&](auto source)
        {
            if constexpr (std::is_same_v<decltype(source), long>)
                return setValue(*m_curlApi, handle, option->selector, source);
            else
                return setValue(*m_curlApi, handle, option->selector, std::invoke(source, m_queryConfig));
        };
        CURLcode result = std::visit(set, option->value);
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
