#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/thread/mutex.hpp>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tav/CurlWrapper.h"
#include "tav/FMXException.h"
#include "tav/testing/FakeCurlAPIUtility.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{

using Texts = std::vector<std::string>;

/// A line of CurlWrapper as its logger must get it.
inline LogLine line(int level, const std::string& message)
{
    return {level, "CurlWrapper", message};
}

inline LogLine untagged(const std::string& message)
{
    return {2, std::nullopt, message};
}

/// What an action throws, as "1: the text".
template <typename Action>
std::string thrownBy(Action action)
{
    try
    {
        action();
    }
    catch (const FMXException& exception)
    {
        return std::to_string(exception.code) + ": " + exception.message;
    }
    return "nothing";
}

/// A record whose fields all differ from each other and from their defaults.
TAVQueryConfig sampleConfig();
/// Another one, alike.
TAVQueryConfig otherConfig();
/// All fields in order, for comparing.
Texts fieldsOf(const TAVQueryConfig& config);

/// A header record whose nine texts tell their field.
TAVHTTPHeader sampleHeader();

/// The calls that set an option group of a handle, as `FakeCurlAPIUtility` notes them.
Texts commonCalls(int handle, const TAVQueryConfig& config);
Texts sslCalls(int handle, const TAVQueryConfig& config);
Texts proxyCalls(int handle, const TAVQueryConfig& config);
/// The calls that open a session.
Texts openingCalls(int handle, const TAVQueryConfig& config);
/// The calls that send a request with `sampleHeader` up to the reading of the status.
Texts sendingCalls(int handle, int list, const std::string& payload);

Texts operator+(Texts first, const Texts& second);

// Private members, to see what has no other trace or to hold what no operation holds long enough.
boost::mutex& configurationLock();
boost::mutex& callbackLock();
const TAVQueryConfig& storedConfig(const CurlWrapper& client);
const std::map<long, std::string>& statusTexts(const CurlWrapper& client);

/// Whether nobody holds it.
bool isFree(boost::mutex& lock);

/// While it lives, this thread holds the lock, and taking it once more fails instead of waiting for ever.
class HeldLock
{
public:
    explicit HeldLock(boost::mutex& lock);
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;
    ~HeldLock();

private:
    boost::mutex& m_lock;
};

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TAV_NO_ALLOCATION_HOOK // clang's ThreadSanitizer does not let a program replace operator new
#endif
#endif

#if !defined(TAV_NO_ALLOCATION_HOOK)
/// When set, runs before each allocation of this thread with its size; may throw.
extern thread_local void (*onAllocation)(std::size_t size);
#endif

/// A client over a fake call layer. Behind each test all that was handed out must be released, once.
class CurlFixture : public testing::Test
{
protected:
    void SetUp() override { api->takeCalls(); }
    void TearDown() override;

    /// Opens sessions with the sample configuration and forgets the calls.
    void open(const std::vector<unsigned long>& ids);
    /// Sends a request over a session that answers with this status.
    bool send(unsigned long id, long status, const std::string& payload = "payload");

    RecordingLogger logger;
    std::shared_ptr<FakeCurlAPIUtility> api = std::make_shared<FakeCurlAPIUtility>();
    std::unique_ptr<CurlWrapper> client = std::make_unique<CurlWrapper>(logger, api);
    TAVHTTPHeader header = sampleHeader();
    std::string response = "before:";
    LumoStats stats{1, 2, 3, 4};
    Texts deliberatelyLeft; ///< "list 1 not released"
};

} // namespace TAV::test
