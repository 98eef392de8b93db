#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numeric>
#include <string>

#include "support/SacrificialProcess.h"
#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

TEST(HexTest, DigitsZeroToNineMapToThemselves)
{
    QelSSLUtils ssl;
    for (unsigned int value = 0; value <= 9; ++value)
        EXPECT_EQ(ssl.hexDigitToChar(static_cast<unsigned char>(value)), "0123456789"[value]);
}

TEST(HexTest, EveryOtherValueMapsTo87More)
{
    QelSSLUtils ssl;
    for (unsigned int value = 10; value <= 255; ++value)
    {
        const auto expected = static_cast<unsigned char>((value + 87) % 256);
        EXPECT_EQ(static_cast<unsigned char>(ssl.hexDigitToChar(static_cast<unsigned char>(value))), expected) << value;
    }
}

TEST(HexTest, TenToFifteenAreLowercase)
{
    QelSSLUtils ssl;
    std::string digits;
    for (unsigned char value = 10; value <= 16; ++value)
        digits += ssl.hexDigitToChar(value);
    EXPECT_EQ(digits, "abcdefg");
}

TEST(HexTest, EveryByteIsTwoLowercaseDigitsHighHalfFirst)
{
    std::array<unsigned char, 256> bytes{};
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    std::array<char, 513> text{};
    QelSSLUtils ssl;
    ASSERT_EQ(ssl.hexEncodeBytesIntoString(bytes.data(), 256, text.data(), 513), 513);
    for (std::size_t value = 0; value < 256; ++value)
    {
        std::array<char, 3> expected{};
        static_cast<void>(std::snprintf(expected.data(), expected.size(), "%02zx", value));
        EXPECT_EQ(std::string(&text[value * 2], 2), expected.data());
    }
}

TEST(HexTest, SixteenBytesDoNotFitInto32)
{
    const std::array<unsigned char, 16> bytes{};
    std::array<char, 40> text{};
    text.fill('#');
    const auto before = text;
    EXPECT_EQ(QelSSLUtils().hexEncodeBytesIntoString(bytes.data(), 16, text.data(), 32), -1);
    EXPECT_EQ(text, before);
}

TEST(HexTest, SixteenBytesFitInto33)
{
    std::array<unsigned char, 16> bytes{};
    bytes.fill(0xa7);
    std::array<char, 40> text{};
    text.fill('#');
    EXPECT_EQ(QelSSLUtils().hexEncodeBytesIntoString(bytes.data(), 16, text.data(), 33), 33);
    EXPECT_STREQ(text.data(), "a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7");
    EXPECT_EQ(text[32], '\0');
    EXPECT_EQ(text[33], '#') << "nothing is written behind the terminator";
}

TEST(HexTest, LargerBufferChangesNothing)
{
    std::array<char, 40> text{};
    text.fill('#');
    EXPECT_EQ(QelSSLUtils().hexEncodeBytesIntoString("\x01\xfe", 2, text.data(), 40), 5);
    EXPECT_EQ(std::string(text.data(), 6), std::string("01fe\0#", 6));
}

TEST(HexTest, NoBytesGiveTheTerminatorAlone)
{
    std::array<char, 2> text{'#', '#'};
    EXPECT_EQ(QelSSLUtils().hexEncodeBytesIntoString(nullptr, 0, text.data(), 1), 1);
    EXPECT_EQ(text, (std::array<char, 2>{'\0', '#'}));
}

TEST(HexTest, NoRoomAtAllIsRefusedEvenForNoBytes)
{
    char untouched = '#';
    EXPECT_EQ(QelSSLUtils().hexEncodeBytesIntoString(nullptr, 0, &untouched, 0), -1);
    EXPECT_EQ(untouched, '#');
}

TEST(HexTest, LargestLengthWithoutWrapNeeds4294967295)
{
    char untouched = '#';
    EXPECT_EQ(QelSSLUtils().hexEncodeBytesIntoString("", 0x7fffffffU, &untouched, 0xfffffffeU), -1);
    EXPECT_EQ(QelSSLUtils().hexEncodeBytesIntoString("", 0xffffffffU, &untouched, 0xfffffffeU), -1);
    EXPECT_EQ(untouched, '#');
}

constexpr std::size_t kPage = 4096;
constexpr int kPassedTheCheck = 42;
char* guardedPage = nullptr;

/// Where the writing ran off the page: it tells that the whole page was filled first.
void onFault(int, siginfo_t* information, void*)
{
    const bool atGuard = information->si_addr == guardedPage + kPage;
    _exit(atGuard && guardedPage[0] == 'c' && guardedPage[kPage - 1] == '3' ? kPassedTheCheck : 1);
}

/// Encodes "2^31 bytes" into a page that is followed by one that nobody may touch.
void encodeUntilTheGuard(unsigned int length, unsigned int outSize)
{
    void* place = mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED)
        _exit(2);
    guardedPage = static_cast<char*>(place);
    if (mprotect(guardedPage + kPage, kPage, PROT_NONE) != 0)
        _exit(2);
    struct sigaction action = {};
    action.sa_sigaction = onFault;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, nullptr);
    const std::string bytes(kPage, '\xc3');
    QelSSLUtils().hexEncodeBytesIntoString(bytes.data(), length, guardedPage, outSize);
}

// The check is made in 32 bits: 2 x 2^31 + 1 wraps around to 1, so the call starts to write 4 GiB into any buffer. A
// page that cannot be written stops it; a refusal would come back and end the process with 0.
TEST(HexTest, LengthOfTwoToThe31WrapsAroundAndPassesTheCheck)
{
    test::SacrificialProcess process([] { encodeUntilTheGuard(0x80000000U, 1); });
    const auto status = process.wait();
    ASSERT_TRUE(status && WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), kPassedTheCheck);
}

TEST(HexTest, WrappedLengthIsStillCompared)
{
    char untouched = '#';
    // 2 x (2^31 + 8) + 1 wraps around to 17.
    EXPECT_EQ(QelSSLUtils().hexEncodeBytesIntoString("", 0x80000008U, &untouched, 16), -1);
    EXPECT_EQ(untouched, '#');
}

} // namespace
} // namespace TAV
