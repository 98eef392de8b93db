#include <algorithm>
#include <boost/thread/exceptions.hpp>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "CurlFixture.h"

namespace TAV
{
namespace
{

using namespace test;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;

/// What a failed lock says, "nothing" if it did not fail.
template <typename Action>
std::string lockErrorOf(Action action)
{
    try
    {
        action();
    }
    catch (const boost::lock_error& error)
    {
        return error.what();
    }
    return "nothing";
}

constexpr const char* kLockFailed = "boost: mutex lock failed in pthread_mutex_lock";

class CurlLocksTest : public CurlFixture
{
protected:
    /// Notes with each call from now on whether the lock of the configuration is held.
    void watch()
    {
        api->onCall = [this](const std::string& call)
        { m_watched.push_back(call + (isFree(configurationLock()) ? " free" : " held")); };
    }

    static Texts marked(const Texts& calls, const std::string& mark)
    {
        Texts result;
        for (const std::string& call : calls)
            result.push_back(call + mark);
        return result;
    }

    Texts m_watched;
};

TEST_F(CurlLocksTest, OpeningHoldsTheLockWhileTheOptionsAreSetAndOnlyThen)
{
    client->configureOptions(sampleConfig(), 1);
    watch();
    client->initSession(1);
    client->initSession(1); // its handle is cleaned up outside the lock
    const auto opening = [](int handle)
    {
        Texts calls = marked(openingCalls(handle, sampleConfig()), " held");
        calls[0] = "curlEasyInit() free";
        calls[1] = "curlSetCallbackFuncOpt(handle " + std::to_string(handle) + ") free";
        return calls;
    };
    EXPECT_EQ(m_watched, opening(1) + opening(2) + Texts{"curlEasyCleanup(handle 2) free"});
    EXPECT_TRUE(isFree(configurationLock()));
}

#if !defined(TAV_NO_ALLOCATION_HOOK)

thread_local bool lastWasFree = false;

TEST_F(CurlLocksTest, TheNewSessionEntersTheTableOutsideTheLock)
{
    client->configureOptions(sampleConfig(), 1);
    lastWasFree = false;
    onAllocation = [](std::size_t) { lastWasFree = isFree(configurationLock()); };
    client->initSession(1);
    onAllocation = nullptr;
    EXPECT_TRUE(lastWasFree) << "the last allocation is that of the table";
}

#endif

TEST_F(CurlLocksTest, ConfiguringHoldsTheLockWhileTheProxyOptionsAreSet)
{
    open({1});
    watch();
    client->configureOptions(otherConfig(), 1);
    EXPECT_EQ(m_watched, marked(proxyCalls(1, otherConfig()), " held"));
    EXPECT_TRUE(isFree(configurationLock()));
}

TEST_F(CurlLocksTest, SendingClosingAndDestroyingTakeNoLock)
{
    open({1, 2});
    watch();
    const HeldLock held(configurationLock()); // an attempt to take it would throw
    EXPECT_TRUE(send(1, 200));
    EXPECT_FALSE(send(1, 404));
    EXPECT_TRUE(client->deInitSession(1));
    EXPECT_FALSE(client->deInitSession(1));
    client.reset();
}

TEST_F(CurlLocksTest, SendingHoldsNoLock)
{
    open({1});
    watch();
    EXPECT_TRUE(send(1, 200));
    EXPECT_FALSE(m_watched.empty());
    EXPECT_THAT(m_watched, Each(EndsWith(" free")));
}

TEST_F(CurlLocksTest, WhetherItIsConfiguredIsReadWithoutTheLock)
{
    const HeldLock held(configurationLock());
    EXPECT_EQ(thrownBy([&] { client->initSession(1); }), "1: cURL configuration not set to perform init.");
}

TEST_F(CurlLocksTest, LockThatCannotBeTakenKeepsTheRecordAsItWas)
{
    {
        const HeldLock held(configurationLock());
        EXPECT_THAT(lockErrorOf([&] { client->configureOptions(sampleConfig(), 1); }), HasSubstr(kLockFailed));
    }
    EXPECT_EQ(fieldsOf(storedConfig(*client)), fieldsOf(TAVQueryConfig()));
    EXPECT_EQ(thrownBy([&] { client->initSession(1); }), "1: cURL configuration not set to perform init.");
}

TEST_F(CurlLocksTest, LockThatCannotBeTakenKeepsTheSessionFromOpening)
{
    client->configureOptions(sampleConfig(), 1);
    {
        const HeldLock held(configurationLock());
        EXPECT_THAT(lockErrorOf([&] { client->initSession(1); }), HasSubstr(kLockFailed));
    }
    EXPECT_EQ(api->calls(), Texts({"curlEasyInit()", "curlSetCallbackFuncOpt(handle 1)", "curlEasyCleanup(handle 1)"}));
    EXPECT_TRUE(logger.lines().empty());
    EXPECT_FALSE(client->deInitSession(1));
}

TEST_F(CurlLocksTest, EveryExceptionReleasesTheLock)
{
    open({1});
    EXPECT_THROW(client->configureOptions(sampleConfig(), 2), FMXException);
    EXPECT_TRUE(isFree(configurationLock()));
    api->failCall("curlSetLongOpt", 1, CURLE_OUT_OF_MEMORY);
    EXPECT_THROW(client->configureOptions(sampleConfig(), 1), FMXException);
    EXPECT_TRUE(isFree(configurationLock()));
    for (unsigned int option = 1; option <= 12; ++option)
    {
        api->failAnyCall(2 + option, CURLE_OUT_OF_MEMORY);
        EXPECT_THROW(client->initSession(2), FMXException) << option;
        EXPECT_TRUE(isFree(configurationLock())) << option;
    }
}

/// A gate that one thread waits at until another opens it.
class Gate
{
public:
    void open()
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_open = true;
        m_opened.notify_all();
    }

    void pass()
    {
        // The limit only ends a test that has failed anyway.
        std::unique_lock<std::mutex> guard(m_mutex);
        EXPECT_TRUE(m_opened.wait_for(guard, std::chrono::seconds(40), [this] { return m_open; }));
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_opened;
    bool m_open = false;
};

/// Two clients with a call layer each. The first is stopped in the middle of its options until `go` is opened.
class TwoClientsTest : public CurlLocksTest
{
protected:
    void SetUp() override
    {
        client->configureOptions(sampleConfig(), 1);
        api->takeCalls();
        api->onCall = [this](const std::string& call)
        {
            note(call);
            if (call.find("CURLOPT_SSL_VERIFYHOST") != std::string::npos)
            {
                inside.open();
                go.pass();
            }
        };
        secondApi->onCall = [this](const std::string& call)
        {
            note("second: " + call);
            if (call.find("curlSetCallbackFuncOpt") == 0)
                waiting.open();
        };
    }

    void note(const std::string& call)
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_notes.push_back(call);
    }

    /// Lets the second client run into the lock, and only then the first one out of it.
    Texts notesOf(const std::function<void()>& second)
    {
        std::thread firstThread([this] { client->initSession(1); });
        inside.pass();
        std::thread secondThread(second);
        waiting.pass();
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // a client that does not wait shows itself
        go.open();
        firstThread.join();
        secondThread.join();
        return m_notes;
    }

    static Texts after(const Texts& notes, const std::string& note)
    {
        const auto found = std::find(notes.begin(), notes.end(), note);
        EXPECT_NE(found, notes.end()) << note;
        return {found, notes.end()};
    }

    std::mutex m_mutex;
    Texts m_notes;
    Gate inside;
    Gate waiting;
    Gate go;
    std::shared_ptr<FakeCurlAPIUtility> secondApi = std::make_shared<FakeCurlAPIUtility>();
    CurlWrapper m_second{logger, secondApi}; // last, as its end is noted too
};

TEST_F(TwoClientsTest, OneWaitsWhileTheOtherSetsItsOptions)
{
    m_second.configureOptions(otherConfig(), 1);
    const Texts notes = notesOf([this] { m_second.initSession(1); });
    const Texts secondCalls = openingCalls(1, otherConfig());
    const Texts behind = after(notes, openingCalls(1, sampleConfig()).back());
    ASSERT_EQ(behind.size(), 13U) << "all twelve options of the second come behind the first one's last";
    for (std::size_t option = 0; option < 12; ++option)
        EXPECT_EQ(behind[1 + option], "second: " + secondCalls[2 + option]);
    m_second.deInitSession(1);
    EXPECT_TRUE(secondApi->problems().empty());
}

TEST_F(TwoClientsTest, ConfiguringOneWaitsForTheOther)
{
    const Texts notes = notesOf(
        [this]
        {
            waiting.open();
            m_second.configureOptions(otherConfig(), 1);
            note("second: configured");
        });
    EXPECT_EQ(notes.back(), "second: configured");
    EXPECT_EQ(notes[notes.size() - 2], openingCalls(1, sampleConfig()).back());
}

/// The calls on one handle.
Texts callsOn(int handle, const Texts& calls)
{
    Texts own{"curlEasyInit()"};
    for (const std::string& call : calls)
    {
        const std::string name = "(handle " + std::to_string(handle);
        if (call.find(name + ",") != std::string::npos || call.find(name + ")") != std::string::npos)
            own.push_back(call);
    }
    return own;
}

// Opening an id that is open leaves the table alone, so that it may run beside a configuration.
TEST_F(CurlLocksTest, SessionIsNeverSetFromAHalfCopiedRecord)
{
    constexpr int kRounds = 100;
    open({1});
    std::thread configuring(
        [this]
        {
            for (int round = 0; round < kRounds; ++round)
                client->configureOptions(round % 2 == 0 ? otherConfig() : sampleConfig(), 1);
        });
    for (int round = 0; round < kRounds; ++round)
        client->initSession(1);
    configuring.join();

    const Texts calls = api->calls();
    for (int handle = 2; handle < 2 + kRounds; ++handle)
    {
        const Texts cleanup{"curlEasyCleanup(handle " + std::to_string(handle) + ")"};
        EXPECT_THAT(callsOn(handle, calls),
                    testing::AnyOf(openingCalls(handle, sampleConfig()) + cleanup,
                                   openingCalls(handle, otherConfig()) + cleanup));
    }
}

} // namespace
} // namespace TAV
