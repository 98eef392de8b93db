#include <gtest/gtest.h>

#include <string>

#include "Reference.h"
#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

using test::randomBytes;
using test::referenceBase64;

struct Vector
{
    const char* input;
    const char* text;
};

// RFC 4648, section 10, without the empty one.
constexpr Vector kVectors[] = {{"f", "Zg=="},
                               {"fo", "Zm8="},
                               {"foo", "Zm9v"},
                               {"foob", "Zm9vYg=="},
                               {"fooba", "Zm9vYmE="},
                               {"foobar", "Zm9vYmFy"}};

bool encodeBuffer(QelSSLUtils& ssl, std::string& out, const std::string& bytes)
{
    return ssl.base64EncodeInputBuffer(
        out, reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
}

TEST(Base64EncodeTest, StandardVectors)
{
    QelSSLUtils ssl;
    for (const Vector& vector : kVectors)
    {
        std::string out = "before";
        EXPECT_TRUE(ssl.encodeBase64(vector.input, out));
        EXPECT_EQ(out, vector.text);
    }
}

TEST(Base64EncodeTest, EmptyInputGivesFalseAndEmptiesTheOutput)
{
    std::string out = "before";
    EXPECT_FALSE(QelSSLUtils().encodeBase64("", out));
    EXPECT_EQ(out, "");
}

TEST(Base64EncodeTest, WholeAlphabetIsTheStandardOne)
{
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string bytes = test::fromHex("00108310518720928b30d38f41149351559761969b71d79f8218a39259a7a29aabb2dbaf"
                                            "c31cb3d35db7e39ebbf3dfbf");
    std::string out;
    EXPECT_TRUE(QelSSLUtils().encodeBase64(bytes, out));
    EXPECT_EQ(out, alphabet);
}

TEST(Base64EncodeTest, EveryLengthUpTo300IsExactAndInOneLine)
{
    QelSSLUtils ssl;
    for (unsigned int length = 1; length <= 300; ++length)
    {
        const std::string bytes = randomBytes(length, length);
        std::string out;
        EXPECT_TRUE(ssl.encodeBase64(bytes, out));
        EXPECT_EQ(out, referenceBase64(bytes)) << length;
        EXPECT_EQ(out.find('\n'), std::string::npos);
    }
}

TEST(Base64EncodeTest, ZeroBytesAreEncodedLikeAnyOther)
{
    std::string out;
    EXPECT_TRUE(QelSSLUtils().encodeBase64(std::string(4, '\0'), out));
    EXPECT_EQ(out, "AAAAAA==");
}

TEST(Base64EncodeTest, InputMayBeTheOutput)
{
    std::string text = "foobar";
    EXPECT_TRUE(QelSSLUtils().encodeBase64(text, text));
    EXPECT_EQ(text, "Zm9vYmFy");
}

TEST(Base64EncodeBufferTest, StandardVectors)
{
    QelSSLUtils ssl;
    for (const Vector& vector : kVectors)
    {
        std::string out = "before";
        EXPECT_TRUE(encodeBuffer(ssl, out, vector.input));
        EXPECT_EQ(out, vector.text);
    }
}

TEST(Base64EncodeBufferTest, NoBytesGiveTrueAndAnEmptyText)
{
    QelSSLUtils ssl;
    std::string out = "before";
    EXPECT_TRUE(encodeBuffer(ssl, out, ""));
    EXPECT_EQ(out, "");
    out = "before";
    EXPECT_TRUE(ssl.base64EncodeInputBuffer(out, nullptr, 0));
    EXPECT_EQ(out, "");
}

TEST(Base64EncodeBufferTest, OneByteGivesFourCharacters)
{
    QelSSLUtils ssl;
    std::string out;
    EXPECT_TRUE(encodeBuffer(ssl, out, std::string(1, '\0')));
    EXPECT_EQ(out, "AA==");
}

TEST(Base64EncodeBufferTest, NegativeLengthGivesFalseAndTouchesNothing)
{
    std::string out = "before";
    const unsigned char byte = 'x';
    EXPECT_FALSE(QelSSLUtils().base64EncodeInputBuffer(out, &byte, -1));
    EXPECT_EQ(out, "before");
}

TEST(Base64EncodeBufferTest, AgreesWithTheIteratorsUpTo300InOneLine)
{
    QelSSLUtils ssl;
    for (unsigned int length = 1; length <= 300; ++length)
    {
        const std::string bytes = randomBytes(length, 1000 + length);
        std::string byChain;
        std::string byIterators;
        EXPECT_TRUE(encodeBuffer(ssl, byChain, bytes));
        EXPECT_TRUE(ssl.encodeBase64(bytes, byIterators));
        EXPECT_EQ(byChain, byIterators) << length;
        EXPECT_EQ(byChain, referenceBase64(bytes)) << length;
    }
}

// From 64 kB on, room for the text is made beforehand.
TEST(Base64EncodeBufferTest, AgreesWithTheIteratorsAroundTheSizeThatCountsAsLarge)
{
    QelSSLUtils ssl;
    for (const unsigned int length : {65534U, 65535U, 65536U, 65537U, 65538U})
    {
        const std::string bytes = randomBytes(length);
        std::string byChain;
        std::string byIterators;
        EXPECT_TRUE(encodeBuffer(ssl, byChain, bytes));
        EXPECT_TRUE(ssl.encodeBase64(bytes, byIterators));
        EXPECT_TRUE(byChain == byIterators) << length;
    }
}

TEST(Base64EncodeBufferTest, LargeBufferIsOneLineToo)
{
    QelSSLUtils ssl;
    const std::string bytes = randomBytes(1000003);
    std::string byChain;
    std::string byIterators;
    EXPECT_TRUE(encodeBuffer(ssl, byChain, bytes));
    EXPECT_TRUE(ssl.encodeBase64(bytes, byIterators));
    EXPECT_EQ(byChain.size(), 1333340U);
    EXPECT_TRUE(byChain == byIterators);
    EXPECT_EQ(byChain.find('\n'), std::string::npos);
}

} // namespace
} // namespace TAV
