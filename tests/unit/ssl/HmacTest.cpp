#include <gtest/gtest.h>

#include <string>

#include "Reference.h"
#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

using namespace std::string_literals;
using test::fromHex;
using test::referenceBase64;

std::string hmac(const std::string& data, const std::string& key)
{
    std::string out = "before";
    EXPECT_TRUE(QelSSLUtils().getHmacSha1(data, key, out));
    return out;
}

struct Vector
{
    std::string key;
    std::string data;
    const char* digest;
};

std::string countingBytes(char last)
{
    std::string bytes;
    for (char byte = 1; byte <= last; ++byte)
        bytes += byte;
    return bytes;
}

// RFC 2202, section 3.
TEST(HmacTest, StandardVectors)
{
    const Vector vectors[] = {
        {std::string(20, '\x0b'), "Hi There", "b617318655057264e28bc0b6fb378c8ef146be00"},
        {"Jefe", "what do ya want for nothing?", "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
        {std::string(20, '\xaa'), std::string(50, '\xdd'), "125d7342b9ac11cd91a39af48aa17b4f63f175d3"},
        {countingBytes(25), std::string(50, '\xcd'), "4c9007f4026250c6bc8414f9bf50c86c2d7235da"},
        {std::string(20, '\x0c'), "Test With Truncation", "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04"},
        {std::string(80, '\xaa'),
         "Test Using Larger Than Block-Size Key - Hash Key First",
         "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
        {std::string(80, '\xaa'),
         "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
         "e8e99d0f45237d786d6bbaa7965c7808bbff1a91"},
    };
    for (const Vector& vector : vectors)
        EXPECT_EQ(hmac(vector.data, vector.key), referenceBase64(fromHex(vector.digest))) << vector.digest;
}

TEST(HmacTest, ResultIsTheBase64TextOfTheRawDigest)
{
    EXPECT_EQ(hmac("what do ya want for nothing?", "Jefe"), "7/zfauXrL6LSdBbV8YTfnCWafHk=");
}

TEST(HmacTest, DataComesFirstAndKeySecond)
{
    EXPECT_NE(hmac("Jefe", "what do ya want for nothing?"), hmac("what do ya want for nothing?", "Jefe"));
}

TEST(HmacTest, KeyWhoseThirdByteIsZeroIsATwoByteKey)
{
    EXPECT_EQ(hmac("data", "ab\0cd"s), hmac("data", "ab"));
    EXPECT_NE(hmac("data", "ab\0cd"s), hmac("data", "abcd"));
}

TEST(HmacTest, KeyThatBeginsWithZeroIsEmpty)
{
    EXPECT_EQ(hmac("data", "\0key"s), hmac("data", ""));
}

TEST(HmacTest, DataIsTakenWholeWithItsZeros)
{
    EXPECT_NE(hmac("ab\0cd"s, "key"), hmac("ab", "key"));
    EXPECT_NE(hmac("ab\0"s, "key"), hmac("ab", "key"));
    EXPECT_EQ(hmac("\0\0\0"s, "key"), referenceBase64(fromHex("b89de3084a67eef775e82df0313aefe1793b1786")));
}

TEST(HmacTest, EmptyKeyAndEmptyDataAreFine)
{
    EXPECT_EQ(hmac("", ""), referenceBase64(fromHex("fbdb1d1b18aa6c08324b7d64b71fb76370690e1d")));
}

/// Records what it gets to encode.
class OtherEncoder : public QelSSLUtils
{
public:
    bool base64EncodeInputBuffer(std::string& out, const unsigned char* buffer, int length) override
    {
        ++calls;
        outArgument = &out;
        bytes.assign(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
        if (answer)
            out = "encoded otherwise";
        return answer;
    }

    bool answer = true;
    int calls = 0;
    std::string* outArgument = nullptr;
    std::string bytes;
};

TEST(HmacTest, EncodesThroughTheVirtualOperation)
{
    OtherEncoder ssl;
    std::string out;
    EXPECT_TRUE(ssl.getHmacSha1("what do ya want for nothing?", "Jefe", out));
    EXPECT_EQ(out, "encoded otherwise");
    EXPECT_EQ(ssl.calls, 1);
    EXPECT_EQ(ssl.outArgument, &out);
    EXPECT_EQ(ssl.bytes, fromHex("effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"));
}

TEST(HmacTest, ReturnsWhatTheEncoderReturns)
{
    OtherEncoder ssl;
    ssl.answer = false;
    std::string out = "before";
    EXPECT_FALSE(ssl.getHmacSha1("data", "key", out));
    EXPECT_EQ(out, "before");
}

} // namespace
} // namespace TAV
