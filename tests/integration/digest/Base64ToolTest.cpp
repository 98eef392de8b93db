#include <gtest/gtest.h>

#include <string>

#include "support/TemporaryDirectory.h"
#include "support/Tools.h"
#include "tav/QelSSLUtils.h"
#include "unit/ssl/Reference.h"

namespace TAV
{
namespace
{

class Base64ToolTest : public testing::TestWithParam<std::size_t>
{
protected:
    const test::TemporaryDirectory directory;
    const std::string bytes = test::randomBytes(GetParam(), static_cast<std::uint32_t>(GetParam()));
    QelSSLUtils ssl;
};

TEST_P(Base64ToolTest, BothEncodersAgreeWithTheTool)
{
    const std::string expected = test::outputOf({"base64", "-w0"}, directory.write("bytes", bytes));
    std::string byIterators;
    std::string byChain;
    EXPECT_EQ(ssl.encodeBase64(bytes, byIterators), !bytes.empty());
    EXPECT_TRUE(ssl.base64EncodeInputBuffer(
        byChain, reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size())));
    EXPECT_TRUE(byIterators == expected);
    EXPECT_TRUE(byChain == expected);
}

TEST_P(Base64ToolTest, ToolDecodesWhatIsEncoded)
{
    std::string text;
    ssl.encodeBase64(bytes, text);
    EXPECT_TRUE(test::outputOf({"base64", "-d"}, directory.write("text", text)) == bytes);
}

TEST_P(Base64ToolTest, DecoderTakesTheToolsText)
{
    const std::string text = test::outputOf({"base64", "-w0"}, directory.write("bytes", bytes));
    std::string decoded = "before";
    EXPECT_EQ(ssl.decodeBase64(text, decoded), !bytes.empty());
    EXPECT_TRUE(decoded == bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes,
    Base64ToolTest,
    testing::Values(
        0, 1, 2, 3, 4, 5, 6, 47, 48, 49, 57, 58, 63, 64, 65, 255, 256, 300, 1023, 1024, 1025, 100000, 1048576));

/// Random bytes that come again and again. Their number is no multiple of any block's.
std::string largeBytes(std::size_t size)
{
    constexpr std::size_t kPeriod = 999983;
    const std::string period = test::randomBytes(kPeriod);
    std::string bytes;
    bytes.reserve(size);
    while (bytes.size() < size)
        bytes.append(period, 0, size - bytes.size());
    return bytes;
}

TEST(LargeBase64Test, TextOfHundredMegabytesIsTheToolsAndComesBack)
{
    constexpr int kSize = 74999999; // gives a text with padding
    const test::TemporaryDirectory directory;
    const std::string bytes = largeBytes(kSize);
    QelSSLUtils ssl;
    std::string text;
    ASSERT_TRUE(ssl.base64EncodeInputBuffer(text, reinterpret_cast<const unsigned char*>(bytes.data()), kSize));
    EXPECT_EQ(text.size(), 100000000U);
    EXPECT_TRUE(text == test::outputOf({"base64", "-w0"}, directory.write("bytes", bytes)));
    std::string decoded;
    EXPECT_TRUE(ssl.decodeBase64(std::move(text), decoded));
    EXPECT_TRUE(decoded == bytes);
}

/// The digest of some bytes by sha1sum(1).
std::string sha1ByTool(const test::TemporaryDirectory& directory, const std::string& bytes)
{
    return test::fromHex(test::outputOf({"sha1sum"}, directory.write("bytes", bytes)).substr(0, 40));
}

/// The key with zeros up to the block of the hash, each byte combined with this one.
std::string padded(std::string key, char with)
{
    key.resize(64);
    for (char& byte : key)
        byte = static_cast<char>(byte ^ with);
    return key;
}

// RFC 2104, section 2, with a tool for the hash.
TEST(LargeHmacTest, MessageOfHundredMegabytesIsAuthenticatedWhole)
{
    const test::TemporaryDirectory directory;
    const std::string message = largeBytes(100000000);
    const std::string inner = sha1ByTool(directory, padded("key", 0x36) + message);
    const std::string expected = sha1ByTool(directory, padded("key", 0x5c) + inner);
    std::string code;
    EXPECT_TRUE(QelSSLUtils().getHmacSha1(message, "key", code));
    EXPECT_EQ(code, test::referenceBase64(expected));
}

TEST(Base64ToolLinesTest, TextInSeveralLinesIsRefused)
{
    const test::TemporaryDirectory directory;
    const std::string text = test::outputOf({"base64"}, directory.write("bytes", std::string(120, 'x')));
    ASSERT_NE(text.find('\n'), text.size() - 1) << "the tool wraps";
    std::string decoded = "before";
    EXPECT_FALSE(QelSSLUtils().decodeBase64(text, decoded));
    EXPECT_EQ(decoded, "");
}

} // namespace
} // namespace TAV
