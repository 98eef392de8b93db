#pragma once

#include <gmock/gmock.h>

#include <string>

#include "tav/ICurlWrapper.h"

namespace TAV::test
{

/// Queries as a test expects them, by GoogleMock. `FakeCurlWrapper` has a table of sessions, answers as it is told to,
/// and needs no GoogleMock.
///
///     ::testing::NiceMock<TAV::test::MockCurlWrapper> client;
///     EXPECT_CALL(client, initSession(3)).WillOnce(Throw(TAV::FMXException(1, "Failed to initialize curl handle")));
///     EXPECT_CALL(client, sendNetworkRequest).Times(0);
///
///     EXPECT_FALSE(Reputation(client, 3).ask("/tmp/sample"));
///
/// What is not expected gives false, as a query does that got no answer.
///
/// The program that uses it links GTest::gmock itself.
class MockCurlWrapper : public ICurlWrapper
{
public:
    MOCK_METHOD(void, initSession, (unsigned long sessionId), (override));
    MOCK_METHOD(bool, deInitSession, (unsigned long sessionId), (override));
    MOCK_METHOD(void, configureOptions, (const TAVQueryConfig& config, unsigned long sessionId), (override));
    MOCK_METHOD(
        bool,
        sendNetworkRequest,
        (TAVHTTPHeader & header, std::string payload, std::string& response, unsigned long sessionId, LumoStats& stats),
        (override));
};

} // namespace TAV::test
