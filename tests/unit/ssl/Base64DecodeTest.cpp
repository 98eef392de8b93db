#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "Reference.h"
#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

using namespace std::string_literals;

struct Case
{
    std::string text;
    bool accepted;
    std::string bytes;

    friend void PrintTo(const Case& subject, std::ostream* out) { *out << testing::PrintToString(subject.text); }
};

class Base64DecodeTableTest : public testing::TestWithParam<Case>
{
};

TEST_P(Base64DecodeTableTest, GivesResultAndBytes)
{
    std::string out = "before";
    EXPECT_EQ(QelSSLUtils().decodeBase64(GetParam().text, out), GetParam().accepted);
    EXPECT_EQ(out, GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(StandardVectors,
                         Base64DecodeTableTest,
                         testing::Values(Case{"Zg==", true, "f"},
                                         Case{"Zm8=", true, "fo"},
                                         Case{"Zm9v", true, "foo"},
                                         Case{"Zm9vYg==", true, "foob"},
                                         Case{"Zm9vYmE=", true, "fooba"},
                                         Case{"Zm9vYmFy", true, "foobar"}));

INSTANTIATE_TEST_SUITE_P(TooShort,
                         Base64DecodeTableTest,
                         testing::Values(Case{"", false, ""},
                                         Case{"Z", false, ""},
                                         Case{"Zg", false, ""},
                                         Case{"Zm8", false, ""},
                                         Case{"Zg=", false, ""},
                                         Case{"===", false, ""}));

// What the decoder makes of these is odd, but its count of bytes is the one that length and padding promise.
INSTANTIATE_TEST_SUITE_P(OddButAccepted,
                         Base64DecodeTableTest,
                         testing::Values(Case{"====", true, "\0"s},
                                         Case{"A===", true, "\0"s},
                                         Case{"=AAA", true, "\0\0\0"s},
                                         Case{"Zg=v", true, "f\x00\x2f"s},
                                         Case{"Zm=v", true, "f\x60\x2f"s},
                                         Case{"Zg==Zg==", true, "f\0\0f"s},
                                         Case{"Zm9vx", true, "foo"},
                                         Case{"Zm9vYmFy\n", true, "foobar"},
                                         Case{"Zm9v\0"s, true, "foo"},
                                         Case{"Zm9v-", true, "foo"},
                                         Case{"Zm9v ", true, "foo"},
                                         Case{"Zm9v====", true, "foo\0"s},
                                         Case{"Zm9=", true, "fo"},
                                         Case{"Zh==", true, "f"}));

INSTANTIATE_TEST_SUITE_P(Refused,
                         Base64DecodeTableTest,
                         testing::Values(Case{"Zm9vYm", false, ""},
                                         Case{"Zm9vYmF", false, ""},
                                         Case{"Zm9v\nYmFy", false, ""},
                                         Case{"Zm9v\r\nYmFy", false, ""},
                                         Case{"Zm9v YmFy", false, ""},
                                         Case{"Zm9v-YmFy", false, ""},
                                         Case{"\nZm9vYmFy", false, ""},
                                         Case{"Zm9v*mFy", false, ""},
                                         Case{"\x80\x81\x82\x83", false, ""},
                                         Case{"-_-_", false, ""},
                                         Case{"    Zm9v", false, ""},
                                         Case{"Zm9v    ", false, ""},
                                         Case{"Zm9v\n\n", false, ""},
                                         Case{"Zm9v\r\n", false, ""},
                                         Case{"Zg==\n", false, ""},
                                         Case{"Zm8=\n", false, ""},
                                         Case{"Zm9vYmE=\n", false, ""},
                                         Case{"Zg==x", false, ""},
                                         Case{"Zm9v\0YmFy"s, false, ""},
                                         Case{"Zm9v\0\0\0\0"s, false, ""},
                                         Case{"\0Zm9v"s, false, ""}));

INSTANTIATE_TEST_SUITE_P(ZeroBytesInTheResult,
                         Base64DecodeTableTest,
                         testing::Values(Case{"AAAA", true, "\0\0\0"s},
                                         Case{"YQBi", true, "a\0b"s},
                                         Case{"AGE=", true, "\0a"s}));

TEST(Base64DecodeTest, EncodedRandomBytesComeBackUpTo300)
{
    QelSSLUtils ssl;
    for (unsigned int length = 1; length <= 300; ++length)
    {
        const std::string bytes = test::randomBytes(length, 5000 + length);
        std::string out;
        EXPECT_TRUE(ssl.decodeBase64(test::referenceBase64(bytes), out)) << length;
        EXPECT_EQ(out, bytes) << length;
    }
}

TEST(Base64DecodeTest, OneMebibyteInOneLineDecodesWhole)
{
    QelSSLUtils ssl;
    const std::string bytes = test::randomBytes(1U << 20U);
    std::string text;
    ASSERT_TRUE(ssl.encodeBase64(bytes, text));
    std::string out;
    EXPECT_TRUE(ssl.decodeBase64(text, out));
    EXPECT_TRUE(out == bytes);
}

TEST(Base64DecodeTest, InputMayBeTheOutput)
{
    std::string text = "Zm9vYmFy";
    EXPECT_TRUE(QelSSLUtils().decodeBase64(text, text));
    EXPECT_EQ(text, "foobar");
}

// The decoder yields one byte more than promised for this text: the scratch buffer's extra byte takes it.
TEST(Base64DecodeTest, OneByteTooManyIsRefused)
{
    std::string out = "before";
    EXPECT_FALSE(QelSSLUtils().decodeBase64("Z9z0ZZzAaZ0+z9Z9z+a==0z+=/AZ=", out));
    EXPECT_EQ(out, "");
}

TEST(Base64DecodeTest, RandomTextsOverTheAlphabetNeverOverrun)
{
    static const std::string kCharacters = "AZaz09+/==\n";
    QelSSLUtils ssl;
    for (std::uint32_t seed = 0; seed < 20000; ++seed)
    {
        std::string text = test::randomBytes(seed % 97, seed);
        for (char& character : text)
            character = kCharacters[static_cast<unsigned char>(character) % kCharacters.size()];
        std::string out = "before";
        const bool accepted = ssl.decodeBase64(text, out);
        EXPECT_EQ(accepted, !out.empty()) << text;
    }
}

} // namespace
} // namespace TAV
