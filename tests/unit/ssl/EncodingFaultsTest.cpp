#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>

#include "CryptoFaults.h"
#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

using test::CryptoFaults;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// Blocks that libcrypto holds.
std::atomic<long> liveBlocks{0};

void* countedMalloc(std::size_t size, const char*, int)
{
    void* block = std::malloc(size);
    liveBlocks += block != nullptr ? 1 : 0;
    return block;
}

void countedFree(void* block, const char*, int)
{
    liveBlocks -= block != nullptr ? 1 : 0;
    std::free(block);
}

void* countedRealloc(void* block, std::size_t size, const char* file, int line)
{
    if (block == nullptr)
        return countedMalloc(size, file, line);
    if (size != 0)
        return std::realloc(block, size);
    countedFree(block, file, line);
    return nullptr;
}

// Only possible before libcrypto's first allocation.
const bool counting = CRYPTO_set_mem_functions(countedMalloc, countedRealloc, countedFree) == 1;

class EncodingFaultsTest : public testing::Test
{
protected:
    EncodingFaultsTest()
    {
        // What libcrypto sets up once is not counted.
        std::string ignored;
        encode(ignored);
        ssl.getHmacSha1("data", "key", ignored);
    }

    bool encode(std::string& text, int length = 9)
    {
        return ssl.base64EncodeInputBuffer(text, reinterpret_cast<const unsigned char*>("some data"), length);
    }

    void freeBlock(BUF_MEM* block) const { BUF_MEM_free(block); }

    QelSSLUtils ssl;
    std::string out = "before";
};

TEST_F(EncodingFaultsTest, EncodingMakesTheseCallsInOrder)
{
    CryptoFaults faults;
    EXPECT_TRUE(encode(out));
    EXPECT_THAT(faults.calls(),
                ElementsAre("BIO_new(base64)",
                            "BIO_new(memory)",
                            "BIO_push",
                            "BIO_set_flags(256)",
                            "BIO_write(9)",
                            "BIO_flush",
                            "BIO_get_mem_ptr",
                            "BIO_set_close(0)",
                            "BIO_free_all"));
    EXPECT_EQ(out, "c29tZSBkYXRh");
    freeBlock(faults.encodedBlock());
}

TEST_F(EncodingFaultsTest, EncodingNothingWritesNothing)
{
    CryptoFaults faults;
    EXPECT_TRUE(encode(out, 0));
    EXPECT_EQ(faults.countOf("BIO_write"), 0U);
    EXPECT_EQ(faults.countOf("BIO_free_all"), 1U);
    EXPECT_EQ(out, "");
    freeBlock(faults.encodedBlock());
}

TEST_F(EncodingFaultsTest, FreesTheWholeChainAfterEncoding)
{
    CryptoFaults faults;
    EXPECT_TRUE(encode(out));
    EXPECT_THAT(faults.aliveBios(), IsEmpty());
    freeBlock(faults.encodedBlock());
}

// The block and what it holds: two allocations that nobody releases.
TEST_F(EncodingFaultsTest, KeepsTheEncodedBlockAndNothingElse)
{
    ASSERT_TRUE(counting);
    CryptoFaults faults;
    const long before = liveBlocks;
    EXPECT_TRUE(encode(out));
    EXPECT_EQ(liveBlocks - before, 2);
    ASSERT_NE(faults.encodedBlock(), nullptr);
    EXPECT_EQ(std::string(faults.encodedBlock()->data, faults.encodedBlock()->length), out);
    freeBlock(faults.encodedBlock());
    EXPECT_EQ(liveBlocks, before);
}

TEST_F(EncodingFaultsTest, FilterThatCannotBeMadeEndsTheEncoding)
{
    CryptoFaults faults;
    faults.fail("BIO_new(base64)");
    const long before = liveBlocks;
    EXPECT_FALSE(encode(out));
    EXPECT_EQ(out, "before");
    EXPECT_EQ(faults.countOf("BIO_free"), 0U);
    EXPECT_THAT(faults.aliveBios(), IsEmpty());
    EXPECT_EQ(liveBlocks, before);
}

TEST_F(EncodingFaultsTest, MemoryThatCannotBeMadeLeavesTheFilterAsItIs)
{
    CryptoFaults faults;
    faults.fail("BIO_new(memory)");
    EXPECT_FALSE(encode(out));
    EXPECT_EQ(out, "before");
    EXPECT_THAT(faults.calls(), ElementsAre("BIO_new(base64)", "BIO_new(memory)"));
    ASSERT_THAT(faults.aliveBios(), SizeIs(1));
    EXPECT_EQ(BIO_free(*faults.aliveBios().begin()), 1) << "the filter is still whole";
}

struct ChainFault
{
    const char* function;
    int result;
    const char* lastCallBeforeTheRelease;

    friend void PrintTo(const ChainFault& fault, std::ostream* stream)
    {
        *stream << fault.function << " gives " << fault.result;
    }
};

class EncodingChainFaultTest : public EncodingFaultsTest, public testing::WithParamInterface<ChainFault>
{
};

TEST_P(EncodingChainFaultTest, GivesFalseTouchesNothingAndFreesTheChain)
{
    const long before = liveBlocks;
    CryptoFaults faults;
    faults.fail(GetParam().function, 1, GetParam().result);
    EXPECT_FALSE(encode(out));
    EXPECT_TRUE(faults.hasFailed());
    EXPECT_EQ(out, "before");
    const auto calls = faults.calls();
    ASSERT_GE(calls.size(), 2U);
    EXPECT_EQ(calls[calls.size() - 2], GetParam().lastCallBeforeTheRelease);
    EXPECT_EQ(calls.back(), "BIO_free_all");
    EXPECT_EQ(faults.countOf("BIO_free_all"), 1U);
    EXPECT_THAT(faults.aliveBios(), IsEmpty());
    EXPECT_EQ(liveBlocks, before) << "the block is still owned by the chain";
}

INSTANTIATE_TEST_SUITE_P(EachStep,
                         EncodingChainFaultTest,
                         testing::Values(ChainFault{"BIO_write", 0, "BIO_write(9)"},
                                         ChainFault{"BIO_write", -1, "BIO_write(9)"},
                                         ChainFault{"BIO_write", 8, "BIO_write(9)"},
                                         ChainFault{"BIO_flush", 0, "BIO_flush"},
                                         ChainFault{"BIO_flush", -1, "BIO_flush"},
                                         ChainFault{"BIO_set_close", 0, "BIO_set_close(0)"}),
                         [](const auto& tested) { return "Case" + std::to_string(tested.index); });

TEST_F(EncodingFaultsTest, MissingBlockGivesFalseAfterTheChainIsSetToKeepIt)
{
    CryptoFaults faults;
    faults.fail("BIO_get_mem_ptr");
    EXPECT_FALSE(encode(out));
    EXPECT_EQ(out, "before");
    EXPECT_EQ(faults.countOf("BIO_set_close(0)"), 1U);
    EXPECT_EQ(faults.calls().back(), "BIO_free_all");
    EXPECT_THAT(faults.aliveBios(), IsEmpty());
}

TEST_F(EncodingFaultsTest, LargeInputIsEncodedAlsoWhenNoRoomIsMadeBeforehand)
{
    const std::string large(100000, 'x');
    CryptoFaults faults;
    faults.fail("BIO_get_mem_ptr");
    EXPECT_TRUE(ssl.base64EncodeInputBuffer(out, reinterpret_cast<const unsigned char*>(large.data()), 100000));
    EXPECT_TRUE(faults.hasFailed());
    EXPECT_EQ(out.size(), 133336U);
    EXPECT_EQ(out.substr(0, 8), "eHh4eHh4");
    freeBlock(faults.encodedBlock());
}

TEST_F(EncodingFaultsTest, DecodingMakesTheseCallsInOrder)
{
    CryptoFaults faults;
    const long before = liveBlocks;
    EXPECT_TRUE(ssl.decodeBase64("Zm9vYmE=", out));
    EXPECT_THAT(
        faults.calls(),
        ElementsAre(
            "BIO_new_mem_buf(-1)", "BIO_new(base64)", "BIO_push", "BIO_set_flags(256)", "BIO_read(8)", "BIO_free_all"));
    EXPECT_EQ(out, "fooba");
    EXPECT_THAT(faults.aliveBios(), IsEmpty());
    EXPECT_EQ(liveBlocks, before);
}

TEST_F(EncodingFaultsTest, TooShortTextIsRefusedBeforeAnyCall)
{
    CryptoFaults faults;
    EXPECT_FALSE(ssl.decodeBase64("Zg=", out));
    EXPECT_THAT(faults.calls(), IsEmpty());
    EXPECT_EQ(out, "");
}

TEST_F(EncodingFaultsTest, DecodingWithoutAFilterGivesFalseAndLeavesTheMemoryAsItIs)
{
    CryptoFaults faults;
    faults.fail("BIO_new(base64)");
    EXPECT_FALSE(ssl.decodeBase64("Zm9v", out));
    EXPECT_EQ(out, "");
    EXPECT_THAT(faults.calls(), ElementsAre("BIO_new_mem_buf(-1)", "BIO_new(base64)"));
    ASSERT_THAT(faults.aliveBios(), SizeIs(1));
    EXPECT_EQ(BIO_free(*faults.aliveBios().begin()), 1);
}

TEST_F(EncodingFaultsTest, DecodingWithoutAMemoryGivesFalseAndFreesTheFilter)
{
    CryptoFaults faults;
    faults.fail("BIO_new_mem_buf");
    const long before = liveBlocks;
    EXPECT_FALSE(ssl.decodeBase64("Zm9v", out));
    EXPECT_EQ(out, "");
    EXPECT_THAT(faults.aliveBios(), IsEmpty());
    EXPECT_EQ(liveBlocks, before);
}

TEST_F(EncodingFaultsTest, DecodingAcceptsExactlyTheExpectedCount)
{
    for (const int count : {-2, -1, 0, 2, 4})
    {
        CryptoFaults faults;
        faults.fail("BIO_read", 1, count);
        out = "before";
        EXPECT_FALSE(ssl.decodeBase64("Zm9v", out)) << count;
        EXPECT_EQ(out, "") << count;
        EXPECT_EQ(faults.calls().back(), "BIO_free_all");
        EXPECT_THAT(faults.aliveBios(), IsEmpty());
    }
}

TEST_F(EncodingFaultsTest, HmacIsCalledOnceWithTheCutKeyAndTheWholeData)
{
    CryptoFaults faults;
    EXPECT_TRUE(ssl.getHmacSha1(std::string("da\0ta", 5), std::string("ke\0y", 4), out));
    EXPECT_EQ(faults.calls().front(), "HMAC(key 2, data 5, length before 0)");
    EXPECT_EQ(faults.countOf("HMAC"), 1U);
    EXPECT_THAT(out, SizeIs(28));
    EXPECT_EQ(out.back(), '=');
    freeBlock(faults.encodedBlock());
}

TEST_F(EncodingFaultsTest, HmacOfAnyOtherLengthGivesFalseAndEncodesNothing)
{
    for (const int length : {0, 1, 19, 21, 32, 64})
    {
        CryptoFaults faults;
        faults.fail("HMAC", 1, length);
        EXPECT_FALSE(ssl.getHmacSha1("data", "key", out)) << length;
        EXPECT_EQ(out, "before") << length;
        EXPECT_THAT(faults.calls(), SizeIs(1)) << length;
    }
}

TEST_F(EncodingFaultsTest, HmacTellsAFailedEncodingAndLeavesTheOutput)
{
    for (const char* function : {"BIO_new(base64)", "BIO_write", "BIO_flush", "BIO_set_close"})
    {
        CryptoFaults faults;
        faults.fail(function);
        EXPECT_FALSE(ssl.getHmacSha1("data", "key", out)) << function;
        EXPECT_TRUE(faults.hasFailed());
        EXPECT_EQ(out, "before") << function;
    }
}

TEST_F(EncodingFaultsTest, IteratorsCallNothing)
{
    CryptoFaults faults;
    EXPECT_TRUE(ssl.encodeBase64("foobar", out));
    EXPECT_THAT(faults.calls(), IsEmpty());
}

} // namespace
} // namespace TAV
