// Data members of the Kerberos handler and of its configuration, for programs that derive from the one and hold the
// other by value.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>

#include "tav/KrbHandler.h"
#include "tav/TAVSystemUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{
namespace
{

/// A member of this type.
template <typename Type>
using Member = Type KrbHandler::*;

/// All members in order. A reference has no member pointer: null stands for the logger's.
using Members = std::tuple<Member<TAVProxyConfig>,
                           Member<krb5_context>,
                           Member<krb5_keytab_entry*>,
                           Member<krb5_enctype>,
                           Member<krb5_data>,
                           Member<krb5_data>,
                           Member<krb5_keytab>,
                           Member<krb5_principal>,
                           Member<krb5_timestamp>,
                           Member<krb5_ccache>,
                           Member<krb5_creds>,
                           Member<std::string>,
                           Member<std::string>,
                           Member<krb5_keyblock>,
                           Member<std::shared_ptr<IkrbAPIWrapper>>,
                           std::nullptr_t,
                           Member<std::string>,
                           Member<std::shared_ptr<ITAVSystemUtils>>,
                           Member<std::string>,
                           Member<std::string>,
                           Member<std::string>,
                           Member<std::int32_t>>;

// An explicit instantiation may name private members; the friend that it defines carries the pointers out.
Members allMembers();
template <auto... members>
struct Reach
{
    friend Members allMembers() { return {members...}; }
};
template struct Reach<&KrbHandler::m_proxyConfig,
                      &KrbHandler::m_context,
                      &KrbHandler::m_keytabEntry,
                      &KrbHandler::m_enctype,
                      &KrbHandler::m_passwordData,
                      &KrbHandler::m_saltData,
                      &KrbHandler::m_keytab,
                      &KrbHandler::m_principal,
                      &KrbHandler::m_timestamp,
                      &KrbHandler::m_ccache,
                      &KrbHandler::m_creds,
                      &KrbHandler::m_cacheFilePath,
                      &KrbHandler::m_keytabFilePath,
                      &KrbHandler::m_keyblock,
                      &KrbHandler::m_krbApi,
                      nullptr,
                      &KrbHandler::m_componentName,
                      &KrbHandler::m_systemUtils,
                      &KrbHandler::m_keytabEnvName,
                      &KrbHandler::m_cacheEnvName,
                      &KrbHandler::m_enctypeName,
                      &KrbHandler::m_keyVersion>;

constexpr std::size_t aligned(std::size_t offset, std::size_t alignment)
{
    return (offset + alignment - 1) / alignment * alignment;
}

/// Expects the member where the one before it ends, and moves that end.
template <typename Type>
void expectNext(const KrbHandler& object, Member<Type> member, std::size_t& end)
{
    const auto offset = reinterpret_cast<const char*>(&(object.*member)) - reinterpret_cast<const char*>(&object);
    EXPECT_EQ(static_cast<std::size_t>(offset), aligned(end, alignof(Type)));
    end = static_cast<std::size_t>(offset) + sizeof(Type);
}

void expectNext(const KrbHandler& /*object*/, std::nullptr_t, std::size_t& end)
{
    end = aligned(end, alignof(void*)) + sizeof(void*);
}

class KrbHandlerShapeTest : public testing::Test
{
protected:
    template <std::size_t number>
    auto& member() const
    {
        return object.*std::get<number - 1>(allMembers());
    }

    static bool isZeroed(const krb5_data& data) { return data.magic == 0 && data.length == 0 && data.data == nullptr; }

    std::string cache = "/nonexistent/cache";
    std::string keytab = "/nonexistent/keytab";
    RecordingLogger logger;
    std::shared_ptr<ITAVSystemUtils> system = std::make_shared<TAVSystemUtils>();
    KrbHandler object{logger, system, cache, keytab, nullptr};
};

TEST_F(KrbHandlerShapeTest, MembersStandInOrder)
{
    std::size_t end = sizeof(void*); // the virtual table's
    std::apply([&](auto... members) { (expectNext(object, members, end), ...); }, allMembers());
    EXPECT_EQ(sizeof(KrbHandler), aligned(end, alignof(KrbHandler)));
}

TEST_F(KrbHandlerShapeTest, KerberosMembersStartWithNothing)
{
    EXPECT_EQ(member<2>(), nullptr) << "context";
    EXPECT_EQ(member<3>(), nullptr) << "entry";
    EXPECT_EQ(member<4>(), 0) << "encryption type";
    EXPECT_TRUE(isZeroed(member<5>())) << "password";
    EXPECT_TRUE(isZeroed(member<6>())) << "salt";
    EXPECT_EQ(member<7>(), nullptr) << "keytab";
    EXPECT_EQ(member<8>(), nullptr) << "principal";
    EXPECT_EQ(member<9>(), 0) << "time";
    EXPECT_EQ(member<10>(), nullptr) << "cache";
    EXPECT_EQ(member<11>().client, nullptr) << "credentials";
    EXPECT_EQ(member<11>().ticket.data, nullptr);
    EXPECT_EQ(member<14>().enctype, 0) << "key";
    EXPECT_EQ(member<14>().length, 0U);
    EXPECT_EQ(member<14>().contents, nullptr);
}

TEST_F(KrbHandlerShapeTest, OtherMembersStartWithTheArgumentsAndTheNames)
{
    EXPECT_EQ(member<1>().userPrincipal + member<1>().password, "");
    EXPECT_EQ(member<12>(), cache);
    EXPECT_EQ(member<13>(), keytab);
    EXPECT_EQ(member<15>(), nullptr);
    EXPECT_EQ(member<17>(), "KrbHandler");
    EXPECT_EQ(member<18>(), system);
    EXPECT_EQ(member<19>(), "KRB5_CLIENT_KTNAME");
    EXPECT_EQ(member<20>(), "KRB5CCNAME");
    EXPECT_EQ(member<21>(), "arcfour-hmac-md5");
    EXPECT_EQ(member<22>(), 2);
}

TEST_F(KrbHandlerShapeTest, TakesLoggerSystemCachePathKeytabPathAndCallLayerInThatOrder)
{
    EXPECT_TRUE((std::is_constructible_v<KrbHandler,
                                         ILogger&,
                                         std::shared_ptr<ITAVSystemUtils>,
                                         std::string&,
                                         std::string&,
                                         std::shared_ptr<IkrbAPIWrapper>>));
    EXPECT_FALSE((std::is_constructible_v<KrbHandler,
                                          ILogger&,
                                          std::shared_ptr<ITAVSystemUtils>,
                                          const std::string&,
                                          const std::string&,
                                          std::shared_ptr<IkrbAPIWrapper>>));
    EXPECT_FALSE(std::is_default_constructible_v<KrbHandler>);
}

TEST(KrbHandlerTypesTest, StepsTellWhetherTheyWorked)
{
    EXPECT_TRUE((std::is_same_v<decltype(&KrbHandler::addKeyAndPricipal), bool (KrbHandler::*)()>));
    EXPECT_TRUE((std::is_same_v<decltype(&KrbHandler::generateKrbKeyTabAndCache), bool (KrbHandler::*)()>));
    EXPECT_TRUE((std::is_same_v<decltype(&KrbHandler::initKrb), bool (KrbHandler::*)()>));
    EXPECT_TRUE((std::is_same_v<decltype(&KrbHandler::freeKrbMemory), void (KrbHandler::*)()>));
    EXPECT_TRUE((std::is_same_v<decltype(&IkrbHandler::configKrbSession), bool (IkrbHandler::*)(TAVProxyConfig&)>));
    EXPECT_TRUE((std::is_same_v<decltype(&IkrbHandler::renewTicket), bool (IkrbHandler::*)()>));
}

struct ProxyConfigLayout
{
    std::uint8_t flag1;
    std::uint8_t flag2;
    std::string text1;
    std::string text2;
    std::vector<std::string> list;
    std::uint8_t flag3;
    std::string user;
    std::string password;
};

TEST(ProxyConfigShapeTest, FieldsStandInOrder)
{
    EXPECT_EQ(sizeof(TAVProxyConfig), sizeof(ProxyConfigLayout));
    EXPECT_EQ(offsetof(TAVProxyConfig, proxyFlag1), offsetof(ProxyConfigLayout, flag1));
    EXPECT_EQ(offsetof(TAVProxyConfig, proxyFlag2), offsetof(ProxyConfigLayout, flag2));
    EXPECT_EQ(offsetof(TAVProxyConfig, proxyText1), offsetof(ProxyConfigLayout, text1));
    EXPECT_EQ(offsetof(TAVProxyConfig, proxyText2), offsetof(ProxyConfigLayout, text2));
    EXPECT_EQ(offsetof(TAVProxyConfig, proxyList), offsetof(ProxyConfigLayout, list));
    EXPECT_EQ(offsetof(TAVProxyConfig, proxyFlag3), offsetof(ProxyConfigLayout, flag3));
    EXPECT_EQ(offsetof(TAVProxyConfig, userPrincipal), offsetof(ProxyConfigLayout, user));
    EXPECT_EQ(offsetof(TAVProxyConfig, password), offsetof(ProxyConfigLayout, password));
}

TEST(ProxyConfigShapeTest, FieldsHaveTheirTypes)
{
    EXPECT_TRUE((std::is_same_v<decltype(TAVProxyConfig::proxyFlag1), bool>));
    EXPECT_TRUE((std::is_same_v<decltype(TAVProxyConfig::proxyFlag2), bool>));
    EXPECT_TRUE((std::is_same_v<decltype(TAVProxyConfig::proxyText1), std::string>));
    EXPECT_TRUE((std::is_same_v<decltype(TAVProxyConfig::proxyText2), std::string>));
    EXPECT_TRUE((std::is_same_v<decltype(TAVProxyConfig::proxyList), std::vector<std::string>>));
    EXPECT_TRUE((std::is_same_v<decltype(TAVProxyConfig::proxyFlag3), bool>));
    EXPECT_TRUE((std::is_same_v<decltype(TAVProxyConfig::userPrincipal), std::string>));
    EXPECT_TRUE((std::is_same_v<decltype(TAVProxyConfig::password), std::string>));
}

TEST(ProxyConfigShapeTest, IsARecordThatCopiesAllItsFields)
{
    EXPECT_TRUE(std::is_aggregate_v<TAVProxyConfig>);
    TAVProxyConfig config{true, true, "1", "2", {"3", "4"}, true, "user", "secret"};
    TAVProxyConfig copy;
    copy = config;
    const auto& self = copy;
    copy = self;
    EXPECT_TRUE(copy.proxyFlag1 && copy.proxyFlag2 && copy.proxyFlag3);
    EXPECT_EQ(copy.proxyText1 + copy.proxyText2 + copy.userPrincipal + copy.password, "12usersecret");
    EXPECT_THAT(copy.proxyList, testing::ElementsAre("3", "4"));
}

TEST(ProxyConfigShapeTest, IsEmptyAtFirst)
{
    const TAVProxyConfig config;
    EXPECT_FALSE(config.proxyFlag1 || config.proxyFlag2 || config.proxyFlag3);
    EXPECT_EQ(config.proxyText1 + config.proxyText2 + config.userPrincipal + config.password, "");
    EXPECT_THAT(config.proxyList, testing::IsEmpty());
}

} // namespace
} // namespace TAV::test
