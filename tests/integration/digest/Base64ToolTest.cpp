#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/TemporaryDirectory.h"
#include "support/Tools.h"
#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

class Base64ToolTest : public testing::TestWithParam<std::size_t>
{
protected:
    Base64ToolTest()
    {
        std::mt19937 generator(static_cast<std::uint32_t>(GetParam()));
        for (char& byte : bytes)
            byte = static_cast<char>(generator() & 0xffU);
    }

    const test::TemporaryDirectory directory;
    std::string bytes = std::string(GetParam(), '\0');
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
