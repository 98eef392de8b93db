#include "tav/CurlWrapper.h"

#include <utility>

#include <boost/thread/lock_guard.hpp>

#include "frame/FailureCodes.h"
#include "frame/LogLevels.h"
#include "tav/FMXException.h"

namespace TAV
{
namespace
{

constexpr const char* kNoApi = "cURL API is null";
constexpr const char* kGlobalInitResult = "Initialization failed with error message: ";
constexpr const char* kGlobalInitFailed = "cURL global intialization failure";
constexpr const char* kNotConfigured = "cURL configuration not set to perform init.";
constexpr const char* kNoCallback = "Failed to set callback function with error: ";
constexpr const char* kCommonFailed = "cURL configuration failed while setting common config.";
constexpr const char* kSslFailed = "cURL configuration failed while setting SSL config.";
constexpr const char* kProxyFailed = "cURL configuration failed while setting proxy config.";
constexpr const char* kSession = "cURL session id ";
constexpr const char* kUnknownToUpdate = " not found for curl configuration update.";
constexpr const char* kUnknownToClose = " not found for deinit.";

} // namespace

boost::mutex CurlWrapper::m_queryConfigMutex;

CurlWrapper::CurlWrapper(ILogger& logger, std::shared_ptr<ICurlAPIUtility> curlApi)
    : m_logger(logger), m_className("CurlWrapper"), m_curlApi(std::move(curlApi)),
      m_httpStatusText{
          {0, "Connection Could Not Be Established"}, // libcurl's code for no response at all
          {200, "HTTP OK"},
          {400, "Bad Request"},
          {401, "Unauthorized"},
          {402, "Payment Required"},
          {403, "Forbidden"},
          {404, "Not Found"},
          {405, "Method Not Allowed"},
          {406, "Not Acceptable"},
          {407, "Proxy Authentication Required"},
          {408, "Request Timeout"},
          {409, "Conflict"},
          {410, "Gone"},
          {411, "Length Required"},
          {412, "Precondition Failed"},
          {413, "Payload Too Large"},
          {414, "URI Too Long"},
          {415, "Unsupported Media Type"},
          {416, "Range Not Satisfiable"},
          {417, "Expectation Failed"},
          {426, "Upgrade Required"},
          {500, "Internal Server Error"},
          {501, "Not Implemented"},
          {502, "Bad Gateway"},
          {503, "Service Unavailable"},
          {504, "Gateway Timeout"},
          {505, "HTTP Version Not Supported"},
      },
      m_successCode(200)
{
    if (m_curlApi == nullptr)
        throw FMXException(kGeneralFailure, kNoApi);
    const CURLcode result = m_curlApi->curlGlobalInit(CURL_GLOBAL_ALL);
    if (result != CURLE_OK)
    {
        m_logger.log(kLogFailure, m_className, kGlobalInitResult + std::to_string(static_cast<int>(result)));
        throw FMXException(kGeneralFailure, kGlobalInitFailed);
    }
}

CurlWrapper::~CurlWrapper()
{
    // Deliberately before the sessions, which are cleaned up with the members.
    m_curlApi->curlGlobalCleanup();
}

void CurlWrapper::configureOptions(const TAVQueryConfig& config, unsigned long sessionId)
{
    const boost::lock_guard<boost::mutex> lock(m_queryConfigMutex);
    m_queryConfig = config;
    if (!m_configSet)
    {
        m_configSet = true;
        return;
    }
    const auto session = m_sessions.find(sessionId);
    if (session == m_sessions.end())
        throw FMXException(kGeneralFailure, kSession + std::to_string(sessionId) + kUnknownToUpdate);
    if (!setProxyConfigParameters(session->second.get()))
        throw FMXException(kGeneralFailure, kProxyFailed);
}

void CurlWrapper::initSession(unsigned long sessionId)
{
    if (!m_configSet)
        throw FMXException(kGeneralFailure, kNotConfigured);
    // Made before the handle, which then has an owner from its first moment. It shares the call layer, so that a
    // session can always be cleaned up.
    std::function<void(void*)> cleanUp = [api = m_curlApi](void* handle) { api->curlEasyCleanup(handle); };
    std::unique_ptr<void, std::function<void(void*)>> session(m_curlApi->curlEasyInit(), std::move(cleanUp));

    CURLcode result = m_curlApi->curlSetCallbackFuncOpt(session.get());
    if (result != CURLE_OK)
        throw FMXException(kGeneralFailure, kNoCallback + getCURLErrMsg(result));
    {
        const boost::lock_guard<boost::mutex> lock(m_queryConfigMutex);
        if (!setCommonConfigParameters(session.get()))
            throw FMXException(kGeneralFailure, kCommonFailed);
        if (!setSSLConfigParameters(session.get()))
            throw FMXException(kGeneralFailure, kSslFailed);
        if (!setProxyConfigParameters(session.get()))
            throw FMXException(kGeneralFailure, kProxyFailed);
    }
    // An id that is open keeps its session, deliberately without a word; the new one is cleaned up here.
    m_sessions.emplace(sessionId, std::move(session));
}

bool CurlWrapper::deInitSession(unsigned long sessionId)
{
    if (m_sessions.erase(sessionId) != 0)
        return true;
    m_logger.log(kLogFailure, kSession + std::to_string(sessionId) + kUnknownToClose);
    return false;
}

} // namespace TAV
