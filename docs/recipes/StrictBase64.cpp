// Recipe: accept only the one base64 text that the encoder makes of some bytes.

#include <gtest/gtest.h>

#include "tav/QelSSLUtils.h"

namespace
{

//! [strict base64]
/// Decodes a text that is exactly what `encodeBase64` makes of the result; any other text is refused.
bool decodeStrictly(TAV::IQelSSL& ssl, const std::string& text, std::string& bytes)
{
    std::string decoded;
    std::string again;
    if (!ssl.decodeBase64(text, decoded) || !ssl.encodeBase64(decoded, again) || again != text)
        return false;
    bytes = decoded;
    return true;
}
//! [strict base64]

TEST(StrictBase64Test, RefusesOddTextsThatThePlainCallAccepts)
{
    TAV::QelSSLUtils ssl;
    for (const char* text : {"====", "=AAA", "Zg==Zg==", "Zm9vx", "Zm9vYmFy\n", "Zm9="})
    {
        std::string plain;
        std::string strict = "as it was";
        EXPECT_TRUE(ssl.decodeBase64(text, plain)) << text;
        EXPECT_FALSE(decodeStrictly(ssl, text, strict)) << text;
        EXPECT_EQ(strict, "as it was") << text;
    }
}

TEST(StrictBase64Test, AcceptsWhatTheEncoderMakes)
{
    TAV::QelSSLUtils ssl;
    for (const std::string& bytes : {std::string("f"), std::string("fo"), std::string("foo"), std::string("\0\xff", 2)})
    {
        std::string text;
        std::string decoded;
        ASSERT_TRUE(ssl.encodeBase64(bytes, text));
        EXPECT_TRUE(decodeStrictly(ssl, text, decoded));
        EXPECT_EQ(decoded, bytes);
    }
}

} // namespace
