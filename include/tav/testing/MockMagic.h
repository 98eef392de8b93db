#pragma once

#include <gmock/gmock.h>

#include "tav/IMagic.h"

namespace TAV::test
{

/// File types as a test expects them to be asked for, by GoogleMock. `FakeMagic` answers without expectations and needs
/// no GoogleMock.
///
///     ::testing::NiceMock<TAV::test::MockMagic> magic;
///     EXPECT_CALL(magic, magicFile(StrEq("/tmp/sample"))).WillOnce(Return("application/pdf"));
///     EXPECT_CALL(magic, magicClose());
///
///     EXPECT_TRUE(isDocument(magic, "/tmp/sample"));
///
/// What is not expected gives null, the answer of a failure. Compare paths with `StrEq`: an argument is a pointer.
///
/// The program that uses it links GTest::gmock itself.
class MockMagic : public IMagic
{
public:
    MOCK_METHOD(void, magicLoad, (const char* path), (override));
    MOCK_METHOD(const char*, magicFile, (const char* path), (override));
    MOCK_METHOD(void, magicClose, (), (override));
    MOCK_METHOD(void, magicOpen, (), (override));
    MOCK_METHOD(const char*, magicDescriptor, (int fd), (override));
};

} // namespace TAV::test
