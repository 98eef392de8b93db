#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Reference.h"
#include "support/TemporaryDirectory.h"
#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

using namespace std::string_literals;
using test::TemporaryDirectory;

struct Result
{
    bool answer = false;
    std::string md5 = "md5 before";
    std::string sha1 = "sha1 before";
    std::string sha256 = "sha256 before";

    friend bool operator==(const Result& a, const Result& b)
    {
        return a.answer == b.answer && a.md5 == b.md5 && a.sha1 == b.sha1 && a.sha256 == b.sha256;
    }
    friend std::ostream& operator<<(std::ostream& out, const Result& result)
    {
        return out << result.answer << ' ' << result.md5 << ' ' << result.sha1 << ' ' << result.sha256;
    }
};

const Result kUntouched{};
const Result kEmptyFile{true,
                        "d41d8cd98f00b204e9800998ecf8427e",
                        "da39a3ee5e6b4b0d3255bfef95601890afd80709",
                        "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"};
const Result kAbcFile{true,
                      "900150983cd24fb0d6963f7d28e17f72",
                      "a9993e364706816aba3e25717850c26c9cd0d89d",
                      "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"};

Result checksums(const std::string& input, InputTypes type)
{
    QelSSLUtils ssl;
    IQelSSL& interface = ssl;
    Result result;
    result.answer = interface.getChecksumValues(input, type, result.md5, result.sha1, result.sha256);
    return result;
}

TEST(ChecksumTest, EmptyFileGivesTheDigestsOfNothing)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(checksums(directory.write("empty", ""), INPUT_FILE_PATH), kEmptyFile);
}

TEST(ChecksumTest, FileGivesAllThreeDigests)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(checksums(directory.write("abc", "abc"), INPUT_FILE_PATH), kAbcFile);
}

TEST(ChecksumTest, ZeroBytesOfAFileAreHashedAsTheyAre)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("zeros", "a\0b"s);
    EXPECT_EQ(checksums(path, INPUT_FILE_PATH).md5, "70350f6027bce3713f6b76473084309b");
}

TEST(ChecksumTest, MissingFileGivesFalseAndTouchesNothing)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(checksums(directory.file("missing"), INPUT_FILE_PATH), kUntouched);
}

TEST(ChecksumTest, EmptyPathGivesFalseAndTouchesNothing)
{
    EXPECT_EQ(checksums("", INPUT_FILE_PATH), kUntouched);
}

TEST(ChecksumTest, PathEndsAtItsFirstZeroByte)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("abc", "abc");
    EXPECT_EQ(checksums(path + "\0never looked at"s, INPUT_FILE_PATH), kAbcFile);
}

TEST(ChecksumTest, DataGivesMd5AloneAndEmptiesTheOthers)
{
    EXPECT_EQ(checksums("abc", INPUT_DATA), (Result{true, "900150983cd24fb0d6963f7d28e17f72", "", ""}));
}

TEST(ChecksumTest, EmptyDataGivesTheDigestOfNothing)
{
    EXPECT_EQ(checksums("", INPUT_DATA), (Result{true, "d41d8cd98f00b204e9800998ecf8427e", "", ""}));
}

TEST(ChecksumTest, DataIsZeroFromItsFirstZeroByteOn)
{
    const Result cut = checksums("a\0b"s, INPUT_DATA);
    EXPECT_EQ(cut, checksums("a\0\0"s, INPUT_DATA));
    EXPECT_EQ(cut, (Result{true, "1ca9b145bfb1c624688069c2ec25bac2", "", ""}));
}

TEST(ChecksumTest, DataIsHashedAtItsFullLength)
{
    // Otherwise the zeros at the end would not count.
    EXPECT_NE(checksums("a\0"s, INPUT_DATA).md5, checksums("a", INPUT_DATA).md5);
    EXPECT_NE(checksums("a\0\0"s, INPUT_DATA).md5, checksums("a\0"s, INPUT_DATA).md5);
}

TEST(ChecksumTest, OtherTypesGiveFalseAndTouchNothing)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("abc", "abc");
    for (const int type : {0, 3, -1, 255, 1 << 30})
        EXPECT_EQ(checksums(path, static_cast<InputTypes>(type)), kUntouched) << type;
}

TEST(ChecksumTest, EightThreadsShareOneObject)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("file", test::randomBytes(50000));
    const Result expected = checksums(path, INPUT_FILE_PATH);
    QelSSLUtils ssl;
    std::atomic<int> wrong{0};
    const auto work = [&](int number)
    {
        for (int round = 0; round < 40; ++round)
        {
            Result result;
            result.answer = ssl.getChecksumValues(path, INPUT_FILE_PATH, result.md5, result.sha1, result.sha256);
            std::string text;
            std::string bytes;
            std::string hmac;
            const std::string own = test::randomBytes(3000, static_cast<std::uint32_t>(number * 100 + round + 1));
            const bool same =
                result == expected && ssl.encodeBase64(own, text) && ssl.decodeBase64(text, bytes) && bytes == own &&
                ssl.base64EncodeInputBuffer(bytes, reinterpret_cast<const unsigned char*>(own.data()), 3000) &&
                bytes == text && ssl.getHmacSha1("what do ya want for nothing?", "Jefe", hmac) &&
                hmac == "7/zfauXrL6LSdBbV8YTfnCWafHk=";
            if (!same)
                ++wrong;
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int number = 0; number < 8; ++number)
        threads.emplace_back(work, number);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace TAV
