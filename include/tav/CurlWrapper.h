#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>

#include <boost/thread/mutex.hpp>

#include "tav/ICurlAPIUtility.h"
#include "tav/ICurlWrapper.h"
#include "tav/ILogger.h"

namespace TAV
{

/// `ICurlWrapper` over the calls of an `ICurlAPIUtility`; logs under the component name "CurlWrapper".
///
/// **Process.** Each object initialises libcurl when it is made and cleans it up when it dies. Make one, before other
/// threads start.
///
/// **Threads.** One lock for the whole process guards the stored configuration while it is replaced and while the
/// options of a session are set from it; `boost::lock_error` leaves both if it cannot be taken. The table of sessions
/// has none, see `ICurlWrapper`.
class TAV_EXPORT CurlWrapper : public ICurlWrapper
{
public:
    /// Initialises libcurl (`CURL_GLOBAL_ALL`).
    /// @param logger   kept by reference: it must outlive this object
    /// @param curlApi  the calls into libcurl; shared with the caller and with every session
    /// @throws FMXException  code 1: "cURL API is null"; or "cURL global intialization failure", after a log line
    ///                       (level 2) with libcurl's number for the failure
    CurlWrapper(ILogger& logger, std::shared_ptr<ICurlAPIUtility> curlApi);
    CurlWrapper(const CurlWrapper&) = delete;
    CurlWrapper& operator=(const CurlWrapper&) = delete;

    /// Cleans libcurl up, and after that, deliberately in this order, the sessions that are still open.
    ~CurlWrapper() override;

    void initSession(unsigned long sessionId) override;
    bool deInitSession(unsigned long sessionId) override;
    void configureOptions(const TAVQueryConfig& config, unsigned long sessionId) override;
    bool sendNetworkRequest(TAVHTTPHeader& header,
                            std::string payload,
                            std::string& response,
                            unsigned long sessionId,
                            LumoStats& stats) override;

    /// @name The option groups
    /// Each sets its options of a handle from the stored configuration, up to the first one that libcurl refuses. Not
    /// locked: call them while no other thread configures a client.
    /// @{

    /// Time limit, method, URL.
    /// @param handle  of libcurl; not checked
    /// @return false if an option was refused, which is logged (level 2)
    bool setCommonConfigParameters(void* handle);

    /// CA file, verifications, session cache, TLS 1.2 or later.
    /// @param handle  of libcurl; not checked
    /// @return false if an option was refused, which is logged (level 2)
    bool setSSLConfigParameters(void* handle);

    /// Every way to authenticate, tunnel, address, credentials.
    /// @param handle  of libcurl; not checked
    /// @return false if an option was refused, which is logged (level 2)
    bool setProxyConfigParameters(void* handle);
    /// @}

    /// libcurl's text for a result. Any thread.
    /// @param code  the result; not changed
    /// @return the text; empty if the call layer has none
    std::string getCURLErrMsg(CURLcode& code);

private:
    struct Option;
    bool setOptions(void* handle, const Option* options, std::size_t count);

    std::map<unsigned long, std::unique_ptr<void, std::function<void(void*)>>> m_sessions;
    TAVQueryConfig m_queryConfig;
    bool m_configSet = false;
    ILogger& m_logger;
    std::string m_className;
    std::shared_ptr<ICurlAPIUtility> m_curlApi;
    std::map<long, std::string> m_httpStatusText;
    long m_successCode = 0;

    static boost::mutex m_queryConfigMutex;
};

} // namespace TAV
