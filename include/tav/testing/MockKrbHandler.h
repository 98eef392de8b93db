#pragma once

#include <gmock/gmock.h>

#include "tav/IkrbHandler.h"

namespace TAV::test
{

/// Kerberos tickets as a test expects them to be asked for, by GoogleMock. `FakeKrbHandler` keeps what it is given and
/// needs no GoogleMock.
///
///     ::testing::StrictMock<TAV::test::MockKrbHandler> handler;
///     EXPECT_CALL(handler, configKrbSession(Field(&TAV::TAVProxyConfig::userPrincipal, "user@A.EXAMPLE")))
///         .WillOnce(Return(false)); // and no renewal behind it
///
///     EXPECT_FALSE(ProxyLogin(handler).begin());
///
/// What is not expected gives false. Its `configKrbSession` does not call `renewTicket`, as the handler's does.
///
/// The program that uses it links GTest::gmock itself.
class MockKrbHandler : public IkrbHandler
{
public:
    MOCK_METHOD(bool, configKrbSession, (TAVProxyConfig & config), (override));
    MOCK_METHOD(bool, renewTicket, (), (override));
};

} // namespace TAV::test
