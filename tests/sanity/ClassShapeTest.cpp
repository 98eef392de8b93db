// Sizes and data members of the public classes: programs that derive from them or hold them by value depend on these.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <gmock/gmock.h>

#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"
#include "tav/FMXException.h"
#include "tav/ILogger.h"
#include "tav/KrbAPIWrapper.h"
#include "tav/KrbHandler.h"
#include "tav/MagicUtils.h"
#include "tav/QelArchiveUtils.h"
#include "tav/QelSSLUtils.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/FakeCurlAPIUtility.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{
namespace
{

struct ClassNames
{
    template <typename Class>
    static std::string GetName(int /*index*/)
    {
        const std::string mangled = typeid(Class).name(); // N3TAV6IMagicE
        const std::size_t start = mangled.find_first_not_of("0123456789", mangled.find("TAV") + 3);
        return mangled.substr(start, mangled.size() - start - 1);
    }
};

template <typename Class>
class InterfaceShapeTest : public testing::Test
{
};
using Interfaces = testing::Types<IMagic,
                                  ITAVUtils,
                                  IQelSSL,
                                  ICurlWrapper,
                                  ICurlAPIUtility,
                                  IkrbAPIWrapper,
                                  IkrbHandler,
                                  IQelArchiveUtils,
                                  ITAVSystemUtils,
                                  ILogger>;
TYPED_TEST_SUITE(InterfaceShapeTest, Interfaces, ClassNames);

TYPED_TEST(InterfaceShapeTest, HasNoData)
{
    EXPECT_EQ(sizeof(TypeParam), sizeof(void*));
}

TYPED_TEST(InterfaceShapeTest, IsAbstract)
{
    EXPECT_TRUE(std::is_abstract_v<TypeParam>);
}

TYPED_TEST(InterfaceShapeTest, HasAVirtualDestructor)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<TypeParam>);
}

template <typename Class>
class ImplementationShapeTest : public testing::Test
{
};
using Implementations = testing::Types<MagicUtils,
                                       TAVUtils,
                                       QelSSLUtils,
                                       CurlWrapper,
                                       CurlAPIUtility,
                                       KrbAPIWrapper,
                                       KrbHandler,
                                       QelArchiveUtils,
                                       TAVSystemUtils>;
TYPED_TEST_SUITE(ImplementationShapeTest, Implementations, ClassNames);

TYPED_TEST(ImplementationShapeTest, CannotBeCopied)
{
    EXPECT_FALSE(std::is_copy_constructible_v<TypeParam>);
    EXPECT_FALSE(std::is_copy_assignable_v<TypeParam>);
}

TYPED_TEST(ImplementationShapeTest, CannotBeMoved)
{
    EXPECT_FALSE(std::is_move_constructible_v<TypeParam>);
    EXPECT_FALSE(std::is_move_assignable_v<TypeParam>);
}

TYPED_TEST(ImplementationShapeTest, CanBeDerivedFrom)
{
    EXPECT_FALSE(std::is_final_v<TypeParam>);
}

TEST(ClassShapeTest, ServicesWithoutLoggerAreDefaultConstructed)
{
    EXPECT_TRUE(std::is_default_constructible_v<MagicUtils>);
    EXPECT_TRUE(std::is_default_constructible_v<QelSSLUtils>);
    EXPECT_TRUE(std::is_default_constructible_v<CurlAPIUtility>);
    EXPECT_TRUE(std::is_default_constructible_v<KrbAPIWrapper>);
    EXPECT_TRUE(std::is_default_constructible_v<TAVSystemUtils>);
}

TEST(ClassShapeTest, UtilsTakeSystemLoggerAndVersionInThatOrder)
{
    EXPECT_TRUE((
        std::is_constructible_v<TAVUtils, std::shared_ptr<ITAVSystemUtils>, ILogger&, std::shared_ptr<kernelVersion>>));
}

TEST(ClassShapeTest, ArchiveTakesLoggerAndUtilsInThatOrder)
{
    EXPECT_TRUE((std::is_constructible_v<QelArchiveUtils, ILogger&, std::shared_ptr<ITAVUtils>>));
}

TEST(ClassShapeTest, CurlTakesLoggerAndCallLayerInThatOrder)
{
    EXPECT_TRUE((std::is_constructible_v<CurlWrapper, ILogger&, std::shared_ptr<ICurlAPIUtility>>));
    EXPECT_FALSE(std::is_default_constructible_v<CurlWrapper>);
}

TEST(ClassShapeTest, ServicesWithoutStateHaveNoData)
{
    EXPECT_EQ(sizeof(QelSSLUtils), sizeof(void*));
    EXPECT_EQ(sizeof(CurlAPIUtility), sizeof(void*));
    EXPECT_EQ(sizeof(KrbAPIWrapper), sizeof(void*));
    EXPECT_EQ(sizeof(TAVSystemUtils), sizeof(void*));
}

TEST(ClassShapeTest, KernelVersionIsThreeBytesInOrder)
{
    EXPECT_EQ(sizeof(kernelVersion), 3U);
    EXPECT_EQ(offsetof(kernelVersion, major), 0U);
    EXPECT_EQ(offsetof(kernelVersion, minor), 1U);
    EXPECT_EQ(offsetof(kernelVersion, patch), 2U);
}

// The records as their users know them.
struct QueryConfigLayout
{
    std::string requestType;
    std::string caCertPath;
    long sslVerifyHost;
    long sslVerifyPeer;
    long sslSessionIdCache;
    long timeout;
    std::string serverHost;
    std::int32_t auxValue;
    std::string proxyAddress;
    std::string proxyCredentials;
    long proxyTunnel;
};

struct HeaderLayout
{
    std::string firstHeader;
    std::string key1;
    std::string key2;
    std::string key3;
    std::string key4;
    std::string value1;
    std::string value2;
    std::string value3;
    std::string value4;
};

struct ArchiveInputLayout
{
    std::string path;
    std::string nameInArchive;
};

#define EXPECT_SAME_FIELD(Record, Layout, field)                                                                       \
    static_assert(std::is_same_v<decltype(Record::field), decltype(Layout::field)>);                                   \
    EXPECT_EQ(offsetof(Record, field), offsetof(Layout, field)) << #field

TEST(ClassShapeTest, QueryConfigHasItsFieldsInOrder)
{
    EXPECT_EQ(sizeof(TAVQueryConfig), sizeof(QueryConfigLayout));
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, requestType);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, caCertPath);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, sslVerifyHost);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, sslVerifyPeer);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, sslSessionIdCache);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, timeout);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, serverHost);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, auxValue);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, proxyAddress);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, proxyCredentials);
    EXPECT_SAME_FIELD(TAVQueryConfig, QueryConfigLayout, proxyTunnel);
}

TEST(ClassShapeTest, HeaderHasItsFieldsInOrder)
{
    EXPECT_EQ(sizeof(TAVHTTPHeader), sizeof(HeaderLayout));
    EXPECT_SAME_FIELD(TAVHTTPHeader, HeaderLayout, firstHeader);
    EXPECT_SAME_FIELD(TAVHTTPHeader, HeaderLayout, key1);
    EXPECT_SAME_FIELD(TAVHTTPHeader, HeaderLayout, key2);
    EXPECT_SAME_FIELD(TAVHTTPHeader, HeaderLayout, key3);
    EXPECT_SAME_FIELD(TAVHTTPHeader, HeaderLayout, key4);
    EXPECT_SAME_FIELD(TAVHTTPHeader, HeaderLayout, value1);
    EXPECT_SAME_FIELD(TAVHTTPHeader, HeaderLayout, value2);
    EXPECT_SAME_FIELD(TAVHTTPHeader, HeaderLayout, value3);
    EXPECT_SAME_FIELD(TAVHTTPHeader, HeaderLayout, value4);
}

// The archive service takes these and does not look into them, so the snapshot of the binary interface lacks them.
TEST(ClassShapeTest, ArchiveInputHasItsFieldsInOrder)
{
    EXPECT_EQ(sizeof(ArchiveInputFileInfo), sizeof(ArchiveInputLayout));
    EXPECT_SAME_FIELD(ArchiveInputFileInfo, ArchiveInputLayout, path);
    EXPECT_SAME_FIELD(ArchiveInputFileInfo, ArchiveInputLayout, nameInArchive);
}

TEST(ClassShapeTest, StatsAre16BitCountsWhoseLastTwoAreTheTimes)
{
    EXPECT_TRUE((std::is_same_v<decltype(LumoStats::attempts), std::uint16_t>));
    EXPECT_TRUE((std::is_same_v<decltype(LumoStats::queueTimeMs), std::uint16_t>));
    EXPECT_TRUE((std::is_same_v<decltype(LumoStats::totalTimeMs), std::uint16_t>));
    EXPECT_TRUE((std::is_same_v<decltype(LumoStats::tlsConnectTimeMs), std::uint16_t>));
    EXPECT_EQ(offsetof(LumoStats, totalTimeMs), sizeof(LumoStats) - 4);
    EXPECT_EQ(offsetof(LumoStats, tlsConnectTimeMs), sizeof(LumoStats) - 2);
}

TEST(ClassShapeTest, RecordsAreFilledFieldByFieldAndCopied)
{
    EXPECT_TRUE(std::is_aggregate_v<TAVQueryConfig> && std::is_copy_assignable_v<TAVQueryConfig>);
    EXPECT_TRUE(std::is_aggregate_v<TAVHTTPHeader> && std::is_copy_assignable_v<TAVHTTPHeader>);
    EXPECT_TRUE(std::is_aggregate_v<LumoStats> && std::is_trivially_copyable_v<LumoStats>);
}

TEST(ClassShapeTest, InputTypesArePlain32BitNumbers)
{
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<InputTypes>, std::int32_t>));
    EXPECT_TRUE((std::is_convertible_v<InputTypes, int>));
    EXPECT_EQ(INPUT_FILE_PATH, 1);
    EXPECT_EQ(INPUT_DATA, 2);
}

TEST(ClassShapeTest, ExceptionIsPlain)
{
    EXPECT_FALSE(std::is_polymorphic_v<FMXException>);
    EXPECT_FALSE((std::is_base_of_v<std::exception, FMXException>));
}

TEST(ClassShapeTest, MagicHoldsItsHandleAlone)
{
    EXPECT_EQ(sizeof(MagicUtils), 2 * sizeof(void*));
}

// The layouts as they would be without a compiler's help, each member where it is expected.
struct UtilsLayout
{
    void* table;
    std::shared_ptr<ITAVSystemUtils> systemUtils;
    ILogger* logger;
    std::string componentName;
    std::shared_ptr<kernelVersion> version;
    bool isCGroupsSupported;
    std::string cpuCgroupPath;
};

struct ArchiveLayout
{
    void* table;
    ILogger* logger;
    std::string componentName;
    std::shared_ptr<ITAVUtils> utils;
};

using Session = std::unique_ptr<void, std::function<void(void*)>>;
using Sessions = std::map<unsigned long, Session>;
using StatusTexts = std::map<long, std::string>;

/// The room that a type takes whose own layout is not for `offsetof`.
template <typename Type>
struct RoomFor
{
    alignas(Type) unsigned char bytes[sizeof(Type)];
};

struct CurlLayout
{
    void* table;
    RoomFor<Sessions> sessions;
    TAVQueryConfig queryConfig;
    bool configSet;
    ILogger* logger;
    std::string className;
    std::shared_ptr<ICurlAPIUtility> curlApi;
    RoomFor<StatusTexts> httpStatusText;
    long successCode;
};

// Makes `reach(Tag{})` a pointer to a private member, for looking at where it lies. An explicit instantiation may name
// private members; the friend that it defines carries the pointer out.
#define TAV_REACH_PRIVATE(Tag, Class, name, Type)                                                                      \
    struct Tag                                                                                                         \
    {                                                                                                                  \
        friend Type Class::*reach(Tag);                                                                                \
    };                                                                                                                 \
    template <Type Class::*pointer>                                                                                    \
    struct Tag##Reach                                                                                                  \
    {                                                                                                                  \
        friend Type Class::*reach(Tag /*unused*/) { return pointer; }                                                  \
    };                                                                                                                 \
    template struct Tag##Reach<&Class::name>

TAV_REACH_PRIVATE(UtilsSystem, TAVUtils, m_systemUtils, std::shared_ptr<ITAVSystemUtils>);
TAV_REACH_PRIVATE(UtilsComponent, TAVUtils, m_componentName, std::string);
TAV_REACH_PRIVATE(UtilsVersion, TAVUtils, m_kernelVersion, std::shared_ptr<kernelVersion>);
TAV_REACH_PRIVATE(UtilsSupported, TAVUtils, m_isCGroupsSupported, bool);
TAV_REACH_PRIVATE(UtilsPath, TAVUtils, m_cpuCgroupPath, std::string);
TAV_REACH_PRIVATE(CurlSessions, CurlWrapper, m_sessions, Sessions);
TAV_REACH_PRIVATE(CurlConfig, CurlWrapper, m_queryConfig, TAVQueryConfig);
TAV_REACH_PRIVATE(CurlConfigSet, CurlWrapper, m_configSet, bool);
TAV_REACH_PRIVATE(CurlClassName, CurlWrapper, m_className, std::string);
TAV_REACH_PRIVATE(CurlApi, CurlWrapper, m_curlApi, std::shared_ptr<ICurlAPIUtility>);
TAV_REACH_PRIVATE(CurlStatusTexts, CurlWrapper, m_httpStatusText, StatusTexts);
TAV_REACH_PRIVATE(CurlSuccessCode, CurlWrapper, m_successCode, long);
TAV_REACH_PRIVATE(ArchiveComponent, QelArchiveUtils, m_componentName, std::string);
TAV_REACH_PRIVATE(ArchiveUtils, QelArchiveUtils, m_utils, std::shared_ptr<ITAVUtils>);

/// Where a member lies in its object. References have no member pointers: theirs is the gap that is left.
template <typename Class, typename Member>
std::size_t offsetIn(Class& object, Member Class::*member)
{
    const auto* start = reinterpret_cast<const char*>(&object);
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&(object.*member)) - start);
}

TEST(ClassShapeTest, MembersOfUtilsStandInOrder)
{
    RecordingLogger logger;
    TAVUtils object(nullptr, logger, std::make_shared<kernelVersion>());

    EXPECT_EQ(sizeof(TAVUtils), sizeof(UtilsLayout));
    EXPECT_EQ(offsetIn(object, reach(UtilsSystem{})), offsetof(UtilsLayout, systemUtils));
    EXPECT_EQ(offsetIn(object, reach(UtilsComponent{})), offsetof(UtilsLayout, componentName));
    EXPECT_EQ(offsetIn(object, reach(UtilsVersion{})), offsetof(UtilsLayout, version));
    EXPECT_EQ(offsetIn(object, reach(UtilsSupported{})), offsetof(UtilsLayout, isCGroupsSupported));
    EXPECT_EQ(offsetIn(object, reach(UtilsPath{})), offsetof(UtilsLayout, cpuCgroupPath));
}

TEST(ClassShapeTest, MembersOfCurlStandInOrder)
{
    RecordingLogger logger;
    CurlWrapper object(logger, std::make_shared<FakeCurlAPIUtility>());

    EXPECT_EQ(sizeof(CurlWrapper), sizeof(CurlLayout));
    EXPECT_EQ(offsetIn(object, reach(CurlSessions{})), offsetof(CurlLayout, sessions));
    EXPECT_EQ(offsetIn(object, reach(CurlConfig{})), offsetof(CurlLayout, queryConfig));
    EXPECT_EQ(offsetIn(object, reach(CurlConfigSet{})), offsetof(CurlLayout, configSet));
    EXPECT_EQ(offsetIn(object, reach(CurlClassName{})), offsetof(CurlLayout, className));
    EXPECT_EQ(offsetIn(object, reach(CurlApi{})), offsetof(CurlLayout, curlApi));
    EXPECT_EQ(offsetIn(object, reach(CurlStatusTexts{})), offsetof(CurlLayout, httpStatusText));
    EXPECT_EQ(offsetIn(object, reach(CurlSuccessCode{})), offsetof(CurlLayout, successCode));
}

TEST(ClassShapeTest, CurlStartsWithTheseValues)
{
    RecordingLogger logger;
    CurlWrapper object(logger, std::make_shared<FakeCurlAPIUtility>());

    EXPECT_TRUE((object.*reach(CurlSessions{})).empty());
    EXPECT_FALSE(object.*reach(CurlConfigSet{}));
    EXPECT_EQ(object.*reach(CurlClassName{}), "CurlWrapper");
    EXPECT_EQ(object.*reach(CurlSuccessCode{}), 200);
}

TEST(ClassShapeTest, MembersOfArchiveStandInOrder)
{
    RecordingLogger logger;
    QelArchiveUtils object(logger, nullptr);

    EXPECT_EQ(sizeof(QelArchiveUtils), sizeof(ArchiveLayout));
    EXPECT_EQ(offsetIn(object, reach(ArchiveComponent{})), offsetof(ArchiveLayout, componentName));
    EXPECT_EQ(offsetIn(object, reach(ArchiveUtils{})), offsetof(ArchiveLayout, utils));
}

} // namespace
} // namespace TAV::test
