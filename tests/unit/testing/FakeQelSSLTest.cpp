#include "tav/testing/FakeQelSSL.h"

#include <gmock/gmock.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace TAV::test
{
namespace
{

/// What came of one checksum call, with outputs that were not empty before.
struct Outcome
{
    bool result = false;
    std::string outputs;
};

Outcome checksumsOf(IQelSSL& ssl, const std::string& input, InputTypes type)
{
    std::string md5 = "x";
    std::string sha1 = "y";
    std::string sha256 = "z";
    const bool result = ssl.getChecksumValues(input, type, md5, sha1, sha256);
    return {result, md5 + " " + sha1 + " " + sha256};
}

TEST(FakeQelSSLTest, ForwardsWhatNobodyAnswers)
{
    FakeQelSSL ssl;
    const unsigned char byte = 'f';
    std::string out;
    EXPECT_EQ(checksumsOf(ssl, "abc", INPUT_DATA).outputs, "900150983cd24fb0d6963f7d28e17f72  ");
    EXPECT_FALSE(checksumsOf(ssl, "/no/such/file", INPUT_FILE_PATH).result);
    EXPECT_TRUE(ssl.getHmacSha1("what do ya want for nothing?", "Jefe", out));
    EXPECT_EQ(out, "7/zfauXrL6LSdBbV8YTfnCWafHk=") << "RFC 2202, case 2";
    EXPECT_TRUE(ssl.encodeBase64("fo", out));
    EXPECT_EQ(out, "Zm8=");
    EXPECT_TRUE(ssl.base64EncodeInputBuffer(out, &byte, 1));
    EXPECT_EQ(out, "Zg==");
    EXPECT_TRUE(ssl.decodeBase64("Zm9v", out));
    EXPECT_EQ(out, "foo");
    EXPECT_THAT(ssl.calls(),
                ElementsAre("getChecksumValues(abc, 2)",
                            "getChecksumValues(/no/such/file, 1)",
                            "getHmacSha1(what do ya want for nothing?, Jefe)",
                            "encodeBase64(fo)",
                            "base64EncodeInputBuffer(1 bytes)",
                            "decodeBase64(Zm9v)"));
}

TEST(FakeQelSSLTest, GivesTheChecksumsThatTheTestMadeUp)
{
    FakeQelSSL ssl;
    ssl.checksums["/sample"] = {"1", "2", "3"};
    const Outcome ofFile = checksumsOf(ssl, "/sample", INPUT_FILE_PATH);
    EXPECT_TRUE(ofFile.result);
    EXPECT_EQ(ofFile.outputs, "1 2 3");
    const Outcome ofData = checksumsOf(ssl, "/sample", INPUT_DATA);
    EXPECT_TRUE(ofData.result);
    EXPECT_EQ(ofData.outputs, "1  ");
    const Outcome ofNeither = checksumsOf(ssl, "/sample", static_cast<InputTypes>(3));
    EXPECT_FALSE(ofNeither.result);
    EXPECT_EQ(ofNeither.outputs, "x y z");
}

TEST(FakeQelSSLTest, AsksTheTestsStandIns)
{
    FakeQelSSL ssl;
    std::vector<std::string> asked;
    const auto note = [&](const std::string& what)
    {
        asked.push_back(what);
        return true;
    };
    ssl.onGetChecksumValues = [&](const std::string& input, InputTypes, std::string&, std::string&, std::string& sha256)
    {
        sha256 = "own";
        return note(input);
    };
    ssl.onGetHmacSha1 = [&](const std::string& data, const std::string& key, std::string&) { return note(data + key); };
    ssl.onEncodeBase64 = [&](const std::string& input, std::string&) { return note(input); };
    ssl.onBase64EncodeInputBuffer = [&](std::string&, const unsigned char*, int length)
    { return note(std::to_string(length)); };
    ssl.onDecodeBase64 = [&](const std::string& input, std::string&) { return note(input); };
    std::string out;
    EXPECT_EQ(checksumsOf(ssl, "/file", INPUT_FILE_PATH).outputs, "x y own");
    EXPECT_TRUE(ssl.getHmacSha1("data", "key", out));
    EXPECT_TRUE(ssl.encodeBase64("", out));
    EXPECT_TRUE(ssl.base64EncodeInputBuffer(out, nullptr, 9));
    EXPECT_TRUE(ssl.decodeBase64("?", out));
    EXPECT_THAT(asked, ElementsAre("/file", "datakey", "", "9", "?"));
}

TEST(FakeQelSSLTest, AFailureLeavesTheChecksumsAsTheRealOneDoes)
{
    FakeQelSSL ssl;
    ssl.checksums["abc"] = {"1", "2", "3"};
    ssl.failCall("getChecksumValues", 1, 1, Lasting::FromThenOn);
    const Outcome ofFile = checksumsOf(ssl, "abc", INPUT_FILE_PATH);
    EXPECT_FALSE(ofFile.result);
    EXPECT_EQ(ofFile.outputs, "x y z");
    const Outcome ofData = checksumsOf(ssl, "abc", INPUT_DATA);
    EXPECT_FALSE(ofData.result);
    EXPECT_EQ(ofData.outputs, "x  ");
}

TEST(FakeQelSSLTest, AFailureLeavesTheTextsAsTheRealOneDoes)
{
    FakeQelSSL ssl;
    for (const char* operation : {"getHmacSha1", "encodeBase64", "base64EncodeInputBuffer", "decodeBase64"})
        ssl.failCall(operation, 1);
    const unsigned char byte = 'f';
    std::string out = "before";
    EXPECT_FALSE(ssl.getHmacSha1("data", "key", out));
    EXPECT_EQ(out, "before");
    EXPECT_FALSE(ssl.base64EncodeInputBuffer(out, &byte, 1));
    EXPECT_EQ(out, "before");
    EXPECT_FALSE(ssl.encodeBase64("text", out));
    EXPECT_EQ(out, "");
    out = "before";
    EXPECT_FALSE(ssl.decodeBase64("Zm9v", out));
    EXPECT_EQ(out, "");
    EXPECT_THAT(ssl.plan()->pending(), IsEmpty());
}

TEST(FakeQelSSLTest, ASweepPassesByWhatCannotFail)
{
    FakeQelSSL ssl;
    std::string out;
    ssl.failAnyCall(2);
    EXPECT_TRUE(ssl.getHmacSha1("data", "key", out));
    EXPECT_TRUE(ssl.encodeBase64("text", out));
    EXPECT_FALSE(ssl.decodeBase64("Zm9v", out));
}

} // namespace
} // namespace TAV::test
