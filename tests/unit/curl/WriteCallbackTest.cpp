#include <boost/thread/exceptions.hpp>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>

#include "CurlFixture.h"
#include "tav/CurlAPIUtility.h"

namespace TAV
{
namespace
{

using test::callbackLock;
using test::HeldLock;
using test::isFree;

class WriteCallbackTest : public testing::Test
{
protected:
    std::size_t write(std::string chunk, std::size_t size = 1)
    {
        return CurlAPIUtility::writeCallback(chunk.data(), size, chunk.size() / size, &response);
    }

    std::string response = "before:";
};

TEST_F(WriteCallbackTest, AppendsAChunkOfAnyLengthWhole)
{
    for (const std::size_t length : {0U, 1U, 2U, 15U, 16U, 17U, 300U, 1U << 20U})
    {
        std::string chunk;
        for (std::size_t i = 0; i < length; ++i)
            chunk += static_cast<char>(i * 7);
        response = "before:";
        EXPECT_EQ(write(chunk), length);
        EXPECT_TRUE(response == "before:" + chunk) << length;
    }
}

TEST_F(WriteCallbackTest, LengthIsItemsTimesTheirSize)
{
    EXPECT_EQ(write("abcdefghijkl", 3), 12U);
    EXPECT_EQ(response, "before:abcdefghijkl");
    EXPECT_EQ(write("mnop", 4), 4U);
    EXPECT_EQ(response, "before:abcdefghijklmnop");
}

TEST_F(WriteCallbackTest, NothingTimesAnythingAppendsNothing)
{
    char data[] = "abc";
    EXPECT_EQ(CurlAPIUtility::writeCallback(data, 0, 3, &response), 0U);
    EXPECT_EQ(CurlAPIUtility::writeCallback(data, 3, 0, &response), 0U);
    EXPECT_EQ(response, "before:");
}

TEST_F(WriteCallbackTest, ChunksFollowOneAnother)
{
    for (const char* const chunk : {"one,", "", "two,", "a chunk of more than fifteen bytes,", "3"})
        write(chunk);
    EXPECT_EQ(response, "before:one,two,a chunk of more than fifteen bytes,3");
}

TEST_F(WriteCallbackTest, ZeroBytesArePartOfAChunk)
{
    EXPECT_EQ(write(std::string("\0a\0", 3)), 3U);
    EXPECT_EQ(response, std::string("before:\0a\0", 10));
}

TEST_F(WriteCallbackTest, NullOfNoLengthAppendsNothing)
{
    EXPECT_EQ(CurlAPIUtility::writeCallback(nullptr, 1, 0, &response), 0U);
    EXPECT_EQ(CurlAPIUtility::writeCallback(nullptr, 0, 1, &response), 0U);
    EXPECT_EQ(response, "before:");
}

TEST_F(WriteCallbackTest, NullOfSomeLengthIsALogicErrorAndReleasesTheLock)
{
    for (const std::size_t length : {std::size_t{1}, std::size_t{16}, response.max_size() + 1})
    {
        try
        {
            CurlAPIUtility::writeCallback(nullptr, 1, length, &response);
            ADD_FAILURE() << length << " did not throw";
        }
        catch (const std::logic_error& error)
        {
            EXPECT_EQ(typeid(error), typeid(std::logic_error)) << length;
        }
        EXPECT_EQ(response, "before:");
        EXPECT_TRUE(isFree(callbackLock()));
    }
}

TEST_F(WriteCallbackTest, ChunkThatNoStringCanHoldIsALengthErrorAndReleasesTheLock)
{
    char data = 'x';
    const std::size_t tooMuch = response.max_size() - response.size() + 1;
    EXPECT_THROW(CurlAPIUtility::writeCallback(&data, 1, tooMuch, &response), std::length_error);
    EXPECT_EQ(response, "before:");
    EXPECT_TRUE(isFree(callbackLock()));
}

#if !defined(TAV_NO_ALLOCATION_HOOK)

std::size_t allocations = 0;
bool lockWasHeld = false;

TEST_F(WriteCallbackTest, HoldsTheLockWhileTheResponseGrows)
{
    std::string chunk(100000, 'x');
    allocations = 0;
    lockWasHeld = true;
    test::onAllocation = [](std::size_t size)
    {
        if (size < 100000)
            return;
        ++allocations;
        lockWasHeld = lockWasHeld && !isFree(callbackLock());
    };
    CurlAPIUtility::writeCallback(chunk.data(), 1, chunk.size(), &response);
    test::onAllocation = nullptr;
    EXPECT_GT(allocations, 0U);
    EXPECT_TRUE(lockWasHeld) << "at each allocation";
    EXPECT_TRUE(isFree(callbackLock()));
}

TEST_F(WriteCallbackTest, ResponseThatCannotGrowKeepsItsTextAndReleasesTheLock)
{
    std::string chunk(100000, 'x');
    test::onAllocation = [](std::size_t)
    {
        test::onAllocation = nullptr;
        throw std::bad_alloc();
    };
    EXPECT_THROW(CurlAPIUtility::writeCallback(chunk.data(), 1, chunk.size(), &response), std::bad_alloc);
    EXPECT_EQ(response, "before:");
    EXPECT_TRUE(isFree(callbackLock()));
}

#endif

TEST_F(WriteCallbackTest, LockIsTakenBeforeTheChunkIsLookedAt)
{
    const HeldLock held(callbackLock());
    EXPECT_THROW(CurlAPIUtility::writeCallback(nullptr, 1, 1, &response), boost::lock_error);
    EXPECT_THROW(CurlAPIUtility::writeCallback(nullptr, 1, 0, &response), boost::lock_error);
}

TEST_F(WriteCallbackTest, LockThatCannotBeTakenIsTheLibrarysOwnErrorAndAppendsNothing)
{
    const HeldLock held(callbackLock());
    try
    {
        write("chunk");
        ADD_FAILURE() << "did not throw";
    }
    catch (const boost::lock_error& error)
    {
        EXPECT_THAT(error.what(), testing::HasSubstr("boost: mutex lock failed in pthread_mutex_lock"));
    }
    EXPECT_EQ(response, "before:");
}

// A lost lock is a race that ThreadSanitizer reports, and a torn text elsewhere.
TEST_F(WriteCallbackTest, ThreadsAppendWholeChunks)
{
    constexpr std::size_t kChunks = 2000;
    response.clear();
    const auto append = [this](char letter)
    {
        for (std::size_t i = 0; i < kChunks; ++i)
            write(std::string(20, letter));
    };
    std::thread other(append, 'a');
    append('b');
    other.join();
    ASSERT_EQ(response.size(), 2 * kChunks * 20);
    for (std::size_t start = 0; start < response.size(); start += 20)
        ASSERT_EQ(response.compare(start, 20, std::string(20, response[start])), 0) << start;
}

} // namespace
} // namespace TAV
