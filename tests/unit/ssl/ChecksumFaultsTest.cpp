#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <new>
#include <string>

#include "AllocationFault.h"
#include "CryptoFaults.h"
#include "support/TemporaryDirectory.h"
#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

using test::CryptoFaults;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

/// Runs the call over outputs that hold something already.
class ChecksumFaultsTest : public testing::Test
{
protected:
    bool run(const std::string& input, InputTypes type)
    {
        md5 = "md5 before";
        sha1 = "sha1 before";
        sha256 = "sha256 before";
        return QelSSLUtils().getChecksumValues(input, type, md5, sha1, sha256);
    }

    /// Lets one call fail and looks at the outcome; false if there is no such call.
    bool failsAtCall(unsigned int nth, const std::string& path)
    {
        SCOPED_TRACE("failing call " + std::to_string(nth));
        CryptoFaults faults;
        faults.failCallNumber(nth);
        const bool succeeded = run(path, INPUT_FILE_PATH);
        EXPECT_EQ(succeeded, !faults.hasFailed());
        if (!faults.hasFailed())
            return false;
        const bool wasOpened = nth > 4;
        EXPECT_EQ(outputs(), untouched);
        EXPECT_EQ(faults.countOf("fclose"), wasOpened ? 1U : 0U);
        EXPECT_TRUE(!wasOpened || faults.positionOf("fclose") < faults.positionOf("MD5_Final"));
        return true;
    }

    std::vector<std::string> outputs() const { return {md5, sha1, sha256}; }

    const std::vector<std::string> untouched{"md5 before", "sha1 before", "sha256 before"};
    const test::TemporaryDirectory directory;
    std::string md5;
    std::string sha1;
    std::string sha256;
};

/// The calls for one piece of a file.
std::vector<std::string> piece(std::size_t size)
{
    const std::string shown = "(" + std::to_string(size) + ")";
    return {"fread(1 x 1024)", "MD5_Update" + shown, "SHA1_Update" + shown, "SHA256_Update" + shown};
}

/// The calls for a whole file.
std::vector<std::string> callsForFile(const std::string& path, const std::vector<std::size_t>& pieces)
{
    std::vector<std::string> calls{"MD5_Init", "SHA1_Init", "SHA256_Init", "fopen(" + path + ", rb)", "setvbuf"};
    for (const std::size_t size : pieces)
    {
        const auto more = piece(size);
        calls.insert(calls.end(), more.begin(), more.end());
    }
    calls.insert(calls.end(), {"fread(1 x 1024)", "fclose", "MD5_Final", "SHA1_Final", "SHA256_Final"});
    return calls;
}

TEST_F(ChecksumFaultsTest, FileIsReadInPiecesOf1024AndClosedBeforeTheDigestsAreFinished)
{
    const std::string path = directory.write("file", std::string(2500, 'x'));
    CryptoFaults faults;
    EXPECT_TRUE(run(path, INPUT_FILE_PATH));
    EXPECT_THAT(faults.calls(), ElementsAreArray(callsForFile(path, {1024, 1024, 452})));
}

TEST_F(ChecksumFaultsTest, FileOf1024BytesIsOnePieceAndOneEmptyRead)
{
    const std::string path = directory.write("file", std::string(1024, 'x'));
    CryptoFaults faults;
    EXPECT_TRUE(run(path, INPUT_FILE_PATH));
    EXPECT_THAT(faults.calls(), ElementsAreArray(callsForFile(path, {1024})));
}

TEST_F(ChecksumFaultsTest, EmptyFileIsOneEmptyRead)
{
    const std::string path = directory.write("file", "");
    CryptoFaults faults;
    EXPECT_TRUE(run(path, INPUT_FILE_PATH));
    EXPECT_THAT(faults.calls(), ElementsAreArray(callsForFile(path, {})));
}

TEST_F(ChecksumFaultsTest, ShortReadIsHashedAsItIsAndReadingGoesOn)
{
    const std::string path = directory.write("file", std::string(1500, 'x'));
    EXPECT_TRUE(run(path, INPUT_FILE_PATH));
    const auto whole = outputs();
    CryptoFaults faults;
    faults.fail("fread", 1, 100);
    EXPECT_TRUE(run(path, INPUT_FILE_PATH));
    EXPECT_THAT(faults.calls(), ElementsAreArray(callsForFile(path, {100, 1024, 376})));
    EXPECT_EQ(outputs(), whole);
}

TEST_F(ChecksumFaultsTest, ReadErrorMidwayGivesTheDigestsSoFar)
{
    const std::string beginning(1024, 'x');
    EXPECT_TRUE(run(directory.write("beginning", beginning), INPUT_FILE_PATH));
    const auto expected = outputs();
    const std::string path = directory.write("file", beginning + std::string(3000, 'y'));
    CryptoFaults faults;
    faults.fail("fread", 2);
    EXPECT_TRUE(run(path, INPUT_FILE_PATH));
    EXPECT_THAT(faults.calls(), ElementsAreArray(callsForFile(path, {1024})));
    EXPECT_EQ(outputs(), expected);
}

TEST_F(ChecksumFaultsTest, FileThatCannotBeOpenedEndsTheCall)
{
    const std::string path = directory.write("file", "content");
    CryptoFaults faults;
    faults.fail("fopen");
    EXPECT_FALSE(run(path, INPUT_FILE_PATH));
    EXPECT_EQ(outputs(), untouched);
    EXPECT_THAT(faults.calls(), ElementsAre("MD5_Init", "SHA1_Init", "SHA256_Init", "fopen(" + path + ", rb)"));
}

// Each call that can fail does so in turn, until none is left and the call succeeds.
TEST_F(ChecksumFaultsTest, EveryFailureOfAFileGivesFalseTouchesNothingAndClosesTheFile)
{
    const std::string path = directory.write("file", std::string(2500, 'x'));
    unsigned int nth = 1;
    while (failsAtCall(nth, path))
        ++nth;
    EXPECT_EQ(nth, 17U) << "3 initialisations, the opening, 9 updates, 3 finalisations";
}

TEST_F(ChecksumFaultsTest, FailedUpdateStopsTheReading)
{
    const std::string path = directory.write("file", std::string(2500, 'x'));
    CryptoFaults faults;
    faults.fail("SHA1_Update", 2);
    EXPECT_FALSE(run(path, INPUT_FILE_PATH));
    EXPECT_EQ(faults.countOf("fread"), 2U);
    EXPECT_EQ(faults.countOf("SHA256_Update"), 1U);
    EXPECT_EQ(faults.calls().back(), "fclose");
}

TEST_F(ChecksumFaultsTest, DataIsFedToMd5Alone)
{
    CryptoFaults faults;
    EXPECT_TRUE(run("abc", INPUT_DATA));
    EXPECT_THAT(faults.calls(), ElementsAre("MD5_Init", "MD5_Update(3)", "MD5_Final"));
}

TEST_F(ChecksumFaultsTest, DataIsFedAsZerosFromItsFirstZeroByteOn)
{
    CryptoFaults faults;
    EXPECT_TRUE(run(std::string("ab\0cde", 6), INPUT_DATA));
    EXPECT_EQ(faults.md5Input(), std::string("ab\0\0\0\0", 6));
}

TEST_F(ChecksumFaultsTest, EveryFailureOfDataLeavesMd5AndEmptiesTheOthers)
{
    for (const char* function : {"MD5_Update", "MD5_Final"})
    {
        CryptoFaults faults;
        faults.fail(function);
        EXPECT_FALSE(run("abc", INPUT_DATA)) << function;
        EXPECT_THAT(outputs(), ElementsAre("md5 before", "", "")) << function;
    }
}

TEST_F(ChecksumFaultsTest, FailedMd5BeginningGivesFalseForEveryTypeAndTouchesNothing)
{
    for (const int type : {1, 2, 0, 3})
    {
        CryptoFaults faults;
        faults.fail("MD5_Init");
        EXPECT_FALSE(run("/dev/null", static_cast<InputTypes>(type))) << type;
        EXPECT_EQ(outputs(), untouched) << type;
        EXPECT_THAT(faults.calls(), ElementsAre("MD5_Init")) << type;
    }
}

#if OPENSSL_VERSION_MAJOR >= 3

TEST(ChecksumProviderTest, ChecksumsAreComputedWhereOnlyApprovedDigestsMayBeAskedFor)
{
    ASSERT_EQ(EVP_default_properties_enable_fips(nullptr, 1), 1);
    EVP_MD* const asked = EVP_MD_fetch(nullptr, "MD5", nullptr);
    std::string md5;
    std::string sha1;
    std::string sha256;
    EXPECT_TRUE(QelSSLUtils().getChecksumValues("/dev/null", INPUT_FILE_PATH, md5, sha1, sha256));
    EVP_default_properties_enable_fips(nullptr, 0);
    EXPECT_EQ(asked, nullptr) << "MD5 is not approved";
    EVP_MD_free(asked);
    EXPECT_EQ(md5, "d41d8cd98f00b204e9800998ecf8427e");
}

#endif

#if !defined(TAV_NO_ALLOCATION_FAULTS)

/// For each allocation of the call: the outputs when it fails. The last entry is the success.
class ChecksumMemoryFaultsTest : public ChecksumFaultsTest
{
protected:
    std::vector<std::vector<std::string>> outputsWithoutMemory(const std::string& input, InputTypes type)
    {
        std::vector<std::vector<std::string>> outcomes;
        for (bool failed = true; failed;)
        {
            failed = failsAtAllocation(static_cast<unsigned int>(outcomes.size()) + 1, input, type);
            outcomes.push_back(outputs());
        }
        return outcomes;
    }

private:
    bool failsAtAllocation(unsigned int nth, std::string input, InputTypes type)
    {
        md5 = "md5 before";
        sha1 = "sha1 before";
        sha256 = "sha256 before";
        QelSSLUtils ssl;
        try
        {
            const test::AllocationFault fault(nth);
            EXPECT_TRUE(ssl.getChecksumValues(std::move(input), type, md5, sha1, sha256));
            return false;
        }
        catch (const std::bad_alloc&)
        {
            return true;
        }
    }
};

TEST_F(ChecksumMemoryFaultsTest, WantOfMemoryForAnyOfTheThreeTextsTouchesNoOutput)
{
    const std::string path = directory.write("file", "content");
    ASSERT_TRUE(run(path, INPUT_FILE_PATH));
    const auto whole = outputs();
    EXPECT_THAT(outputsWithoutMemory(path, INPUT_FILE_PATH), ElementsAre(untouched, untouched, untouched, whole));
}

TEST_F(ChecksumMemoryFaultsTest, WantOfMemoryForDataLeavesMd5AndEmptiesTheOthers)
{
    ASSERT_TRUE(run("content", INPUT_DATA));
    const auto whole = outputs();
    auto outcomes = outputsWithoutMemory("content", INPUT_DATA);
    EXPECT_EQ(outcomes.back(), whole);
    outcomes.pop_back();
    EXPECT_THAT(outcomes, AllOf(Not(IsEmpty()), Each(ElementsAre("md5 before", "", ""))));
}

#endif

TEST_F(ChecksumFaultsTest, UnknownTypeIsRefusedAfterMd5Began)
{
    CryptoFaults faults;
    EXPECT_FALSE(run("/dev/null", static_cast<InputTypes>(3)));
    EXPECT_EQ(outputs(), untouched);
    EXPECT_THAT(faults.calls(), ElementsAre("MD5_Init"));
}

} // namespace
} // namespace TAV
