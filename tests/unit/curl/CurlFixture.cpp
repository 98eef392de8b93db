#include "CurlFixture.h"

#include <pthread.h>

#include <cstdlib>
#include <new>

#include "tav/CurlAPIUtility.h"

namespace TAV::test
{

TAVQueryConfig sampleConfig()
{
    TAVQueryConfig config;
    config.requestType = "POST";
    config.caCertPath = "/etc/ca.pem";
    config.sslVerifyHost = 11;
    config.sslVerifyPeer = 12;
    config.sslSessionIdCache = 13;
    config.timeout = 14;
    config.serverHost = "lumo.example:8443";
    config.auxValue = 15;
    config.proxyAddress = "proxy.example:3128";
    config.proxyCredentials = "user:secret";
    config.proxyTunnel = 16;
    return config;
}

TAVQueryConfig otherConfig()
{
    return {"PUT", "/other.pem", 21, 22, 23, 24, "other.example", 25, "10.0.0.1:8080", "other:word", 26};
}

Texts fieldsOf(const TAVQueryConfig& config)
{
    return {config.requestType,
            config.caCertPath,
            std::to_string(config.sslVerifyHost),
            std::to_string(config.sslVerifyPeer),
            std::to_string(config.sslSessionIdCache),
            std::to_string(config.timeout),
            config.serverHost,
            std::to_string(config.auxValue),
            config.proxyAddress,
            config.proxyCredentials,
            std::to_string(config.proxyTunnel)};
}

TAVHTTPHeader sampleHeader()
{
    return {"First: line", "K1: ", "K2: ", "K3: ", "K4: ", "v1", "v2", "v3", "v4"};
}

namespace
{

std::string setLong(int handle, const std::string& option, long value)
{
    return "curlSetLongOpt(handle " + std::to_string(handle) + ", CURLOPT_" + option + ", " + std::to_string(value) +
           ")";
}

std::string setString(int handle, const std::string& option, const std::string& value)
{
    return "curlSetStringOpt(handle " + std::to_string(handle) + ", CURLOPT_" + option + ", " + value + ")";
}

} // namespace

Texts commonCalls(int handle, const TAVQueryConfig& config)
{
    return {setLong(handle, "TIMEOUT", config.timeout),
            setString(handle, "CUSTOMREQUEST", config.requestType),
            setString(handle, "URL", "https://" + config.serverHost + "/1")};
}

Texts sslCalls(int handle, const TAVQueryConfig& config)
{
    return {setString(handle, "CAINFO", config.caCertPath),
            setLong(handle, "SSL_VERIFYPEER", config.sslVerifyPeer),
            setLong(handle, "SSL_VERIFYHOST", config.sslVerifyHost),
            setLong(handle, "SSL_SESSIONID_CACHE", config.sslSessionIdCache),
            setLong(handle, "SSLVERSION", 6)};
}

Texts proxyCalls(int handle, const TAVQueryConfig& config)
{
    return {setLong(handle, "PROXYAUTH", ~16L),
            setLong(handle, "HTTPPROXYTUNNEL", config.proxyTunnel),
            setString(handle, "PROXY", config.proxyAddress),
            setString(handle, "PROXYUSERPWD", config.proxyCredentials)};
}

Texts openingCalls(int handle, const TAVQueryConfig& config)
{
    return Texts{"curlEasyInit()", "curlSetCallbackFuncOpt(handle " + std::to_string(handle) + ")"} +
           commonCalls(handle, config) + sslCalls(handle, config) + proxyCalls(handle, config);
}

Texts sendingCalls(int handle, int list, const std::string& payload)
{
    const std::string onHandle = "(handle " + std::to_string(handle);
    const std::string listName = "list " + std::to_string(list);
    return {"curlSlistAppend(null, First: line)",
            "curlSlistAppend(" + listName + ", K1: v1)",
            "curlSlistAppend(" + listName + ", K2: v3)",
            "curlSlistAppend(" + listName + ", K4: v4)",
            "curlSlistAppend(" + listName + ", K3: v2)",
            "curlSetHeaderOpt" + onHandle + ", CURLOPT_HTTPHEADER, " + listName + ")",
            setLong(handle, "POSTFIELDSIZE", static_cast<long>(payload.size())),
            setString(handle, "COPYPOSTFIELDS", payload),
            "curlSetResponseString" + onHandle + ", CURLOPT_WRITEDATA)",
            "curlEasyPerform" + onHandle + ")",
            "curlSlistFreeAll(" + listName + ")",
            "curlGetInfo" + onHandle + ", CURLINFO_RESPONSE_CODE, long)"};
}

Texts operator+(Texts first, const Texts& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

namespace
{

// An explicit instantiation may name private members; the friend that it defines carries the address out.
template <typename Tag, typename Tag::Type member>
struct Reach
{
    friend typename Tag::Type reach(Tag /*unused*/) { return member; }
};

struct ConfigurationLock
{
    using Type = boost::mutex*;
    friend Type reach(ConfigurationLock);
};
template struct Reach<ConfigurationLock, &CurlWrapper::m_queryConfigMutex>;

struct CallbackLock
{
    using Type = boost::mutex*;
    friend Type reach(CallbackLock);
};
template struct Reach<CallbackLock, &CurlAPIUtility::m_queryWriteCallBack>;

struct StoredConfig
{
    using Type = TAVQueryConfig CurlWrapper::*;
    friend Type reach(StoredConfig);
};
template struct Reach<StoredConfig, &CurlWrapper::m_queryConfig>;

struct StatusTexts
{
    using Type = std::map<long, std::string> CurlWrapper::*;
    friend Type reach(StatusTexts);
};
template struct Reach<StatusTexts, &CurlWrapper::m_httpStatusText>;

void remake(boost::mutex& lock, int kind)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, kind);
    EXPECT_EQ(pthread_mutex_destroy(lock.native_handle()), 0);
    EXPECT_EQ(pthread_mutex_init(lock.native_handle(), &attributes), 0);
    pthread_mutexattr_destroy(&attributes);
}

} // namespace

boost::mutex& configurationLock()
{
    return *reach(ConfigurationLock{});
}

boost::mutex& callbackLock()
{
    return *reach(CallbackLock{});
}

const TAVQueryConfig& storedConfig(const CurlWrapper& client)
{
    return client.*reach(StoredConfig{});
}

const std::map<long, std::string>& statusTexts(const CurlWrapper& client)
{
    return client.*reach(StatusTexts{});
}

bool isFree(boost::mutex& lock)
{
    const bool taken = lock.try_lock();
    if (taken)
        lock.unlock();
    return taken;
}

HeldLock::HeldLock(boost::mutex& lock) : m_lock(lock)
{
    remake(m_lock, PTHREAD_MUTEX_ERRORCHECK);
    m_lock.lock();
}

HeldLock::~HeldLock()
{
    m_lock.unlock();
    remake(m_lock, PTHREAD_MUTEX_NORMAL);
}

void CurlFixture::TearDown()
{
    client.reset();
    EXPECT_EQ(api->problems(), deliberatelyLeft);
}

void CurlFixture::open(const std::vector<unsigned long>& ids)
{
    client->configureOptions(sampleConfig(), 0);
    for (const unsigned long id : ids)
        client->initSession(id);
    api->takeCalls();
}

bool CurlFixture::send(unsigned long id, long status, const std::string& payload)
{
    api->numbers[CURLINFO_RESPONSE_CODE] = status;
    return client->sendNetworkRequest(header, payload, response, id, stats);
}

} // namespace TAV::test

#if !defined(TAV_NO_ALLOCATION_HOOK)

thread_local void (*TAV::test::onAllocation)(std::size_t size) = nullptr;

void* operator new(std::size_t size)
{
    if (TAV::test::onAllocation != nullptr)
        TAV::test::onAllocation(size);
    if (void* block = std::malloc(size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}

#endif
