// Recipe: a query through a proxy whose ticket is renewed when the proxy refuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tav/ICurlWrapper.h"
#include "tav/IkrbHandler.h"

namespace
{

//! [renewed ticket]
/// Sends a query. If no answer comes, renews the ticket and sends it once more: a proxy that refuses looks the same as
/// a server that is down.
bool askThroughProxy(TAV::ICurlWrapper& client,
                     TAV::IkrbHandler& kerberos,
                     unsigned long session,
                     const std::string& question,
                     std::string& response)
{
    TAV::TAVHTTPHeader header;
    TAV::LumoStats stats;
    if (client.sendNetworkRequest(header, question, response, session, stats))
        return true;
    if (!response.empty() || !kerberos.renewTicket())
        return false; // the server has answered something, or there is no ticket to be had
    return client.sendNetworkRequest(header, question, response, session, stats);
}
//! [renewed ticket]

using testing::_;
using testing::DoAll;
using testing::Return;
using testing::SetArgReferee;

class Client : public TAV::ICurlWrapper
{
public:
    MOCK_METHOD(void, initSession, (unsigned long), (override));
    MOCK_METHOD(bool, deInitSession, (unsigned long), (override));
    MOCK_METHOD(void, configureOptions, (const TAV::TAVQueryConfig&, unsigned long), (override));
    MOCK_METHOD(bool,
                sendNetworkRequest,
                (TAV::TAVHTTPHeader&, std::string, std::string&, unsigned long, TAV::LumoStats&),
                (override));
};

class Kerberos : public TAV::IkrbHandler
{
public:
    MOCK_METHOD(bool, configKrbSession, (TAV::TAVProxyConfig&), (override));
    MOCK_METHOD(bool, renewTicket, (), (override));
};

struct Scene
{
    bool ask() { return askThroughProxy(client, kerberos, 1, "a question", response); }

    testing::StrictMock<Client> client;
    testing::StrictMock<Kerberos> kerberos;
    std::string response;
};

TEST(RenewedTicketTest, IsAskedForWhenNoAnswerComes)
{
    Scene scene;
    EXPECT_CALL(scene.client, sendNetworkRequest(_, "a question", _, 1, _))
        .WillOnce(Return(false))
        .WillOnce(Return(true));
    EXPECT_CALL(scene.kerberos, renewTicket()).WillOnce(Return(true));

    EXPECT_TRUE(scene.ask());
}

TEST(RenewedTicketTest, IsNotNeededAfterAnAnswer)
{
    Scene scene;
    EXPECT_CALL(scene.client, sendNetworkRequest(_, _, _, _, _))
        .WillOnce(DoAll(SetArgReferee<2>("404 not found"), Return(false)));

    EXPECT_FALSE(scene.ask());
}

TEST(RenewedTicketTest, IsAskedForOnceOnly)
{
    Scene scene;
    EXPECT_CALL(scene.client, sendNetworkRequest(_, _, _, _, _)).WillOnce(Return(false));
    EXPECT_CALL(scene.kerberos, renewTicket()).WillOnce(Return(false));

    EXPECT_FALSE(scene.ask());
}

} // namespace
