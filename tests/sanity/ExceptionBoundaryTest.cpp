// This program hides its own symbols, as daemons do. What the library throws must be caught by type all the same.
#include <pthread.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include <boost/thread/exceptions.hpp>
#include <gmock/gmock.h>

#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"
#include "tav/FMXException.h"
#include "tav/MagicUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{
namespace
{

/// Which handler takes what the constructor throws without a kernel version.
std::string handlerOfAMissingVersion()
{
    RecordingLogger logger;
    try
    {
        const TAVUtils utils(nullptr, logger, nullptr);
    }
    catch (const std::exception&)
    {
        return "std::exception";
    }
    catch (const FMXException& e)
    {
        return "FMXException " + std::to_string(e.code) + ": " + e.message;
    }
    catch (...)
    {
        return "unknown";
    }
    return "nothing thrown";
}

TEST(ExceptionBoundaryTest, IsCaughtByTypeAndNotAsStandardException)
{
    EXPECT_EQ(handlerOfAMissingVersion(), "FMXException 1: Kernel version information is null");
}

TEST(ExceptionBoundaryTest, EveryThrowIsOfTheSameType)
{
    MagicUtils magic;
    magic.magicOpen();
    EXPECT_THROW(magic.magicLoad("/nonexistent/database"), FMXException);
    magic.magicClose();
    RecordingLogger logger;
    EXPECT_THROW(CurlWrapper(logger, nullptr), FMXException);
}

TEST(ExceptionBoundaryTest, StandardExceptionsAreCaughtByType)
{
    std::string response;
    EXPECT_THROW(CurlAPIUtility::writeCallback(nullptr, 1, 1, &response), std::logic_error);
}

// An explicit instantiation may name private members; the friend that it defines carries the address out.
boost::mutex& callbackLock();
template <boost::mutex* lock>
struct CallbackLock
{
    friend boost::mutex& callbackLock() { return *lock; }
};
template struct CallbackLock<&CurlAPIUtility::m_queryWriteCallBack>;

TEST(ExceptionBoundaryTest, ExceptionsOfTheLocksAreCaughtByType)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK); // the second time fails
    ASSERT_EQ(pthread_mutex_init(callbackLock().native_handle(), &attributes), 0);
    pthread_mutexattr_destroy(&attributes);

    std::string response;
    callbackLock().lock();
    EXPECT_THROW(CurlAPIUtility::writeCallback(nullptr, 1, 0, &response), boost::lock_error);
    callbackLock().unlock();
}

TEST(ExceptionBoundaryTest, OneOfOurOwnIsTheSameType)
{
    EXPECT_THROW(throw FMXException(3, "ours"), FMXException);
}

} // namespace
} // namespace TAV::test
