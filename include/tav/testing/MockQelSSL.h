#pragma once

#include <gmock/gmock.h>

#include <string>

#include "tav/IQelSSL.h"

namespace TAV::test
{

/// Checksums and encodings as a test expects them, by GoogleMock. `FakeQelSSL` computes the real ones where it has no
/// other answer, and needs no GoogleMock.
///
///     ::testing::NiceMock<TAV::test::MockQelSSL> ssl;
///     EXPECT_CALL(ssl, getChecksumValues("/tmp/sample", TAV::INPUT_FILE_PATH, _, _, _))
///         .WillOnce(DoAll(SetArgReferee<4>("aa"), Return(true))); // the SHA-256
///
///     EXPECT_EQ(verdictOf(ssl, "/tmp/sample"), "known");
///
/// What is not expected gives false and leaves the outputs alone.
///
/// The program that uses it links GTest::gmock itself.
class MockQelSSL : public IQelSSL
{
public:
    MOCK_METHOD(bool,
                getChecksumValues,
                (std::string input, InputTypes type, std::string& md5Hex, std::string& sha1Hex, std::string& sha256Hex),
                (override));
    MOCK_METHOD(bool, getHmacSha1, (std::string data, std::string key, std::string& out), (override));
    MOCK_METHOD(bool, encodeBase64, (std::string input, std::string& out), (override));
    MOCK_METHOD(bool,
                base64EncodeInputBuffer,
                (std::string & out, const unsigned char* buffer, int length),
                (override));
    MOCK_METHOD(bool, decodeBase64, (std::string input, std::string& out), (override));
};

} // namespace TAV::test
