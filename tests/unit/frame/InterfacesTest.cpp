#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

#include "tav/ILogger.h"
#include "tav/ITAVSystemUtils.h"
#include "tav/MagicUtils.h"
#include "tav/QelArchiveUtils.h"
#include "tav/QelSSLUtils.h"
#include "tav/TAVUtils.h"

namespace TAV
{
namespace
{

/// Where a virtual operation stands in the table: its member pointer holds 1 + 8 x slot. -1 if it is not virtual.
template <typename Member>
std::ptrdiff_t slotOf(Member member)
{
    std::ptrdiff_t value = 0;
    std::memcpy(&value, &member, sizeof value);
    return value % 8 == 1 ? (value - 1) / 8 : -1;
}

// Slots 0 and 1 are the two destructors.
constexpr std::ptrdiff_t kFirst = 2;

template <typename Magic>
void expectMagicOrder()
{
    EXPECT_EQ(slotOf(&Magic::magicLoad), kFirst);
    EXPECT_EQ(slotOf(&Magic::magicFile), kFirst + 1);
    EXPECT_EQ(slotOf(&Magic::magicClose), kFirst + 2);
    EXPECT_EQ(slotOf(&Magic::magicOpen), kFirst + 3);
    EXPECT_EQ(slotOf(&Magic::magicDescriptor), kFirst + 4);
}

TEST(InterfacesTest, FileTypeOperationsStandInTableOrder)
{
    expectMagicOrder<IMagic>();
    expectMagicOrder<MagicUtils>();
}

template <typename Utils>
void expectUtilsOrder()
{
    EXPECT_EQ(slotOf(&Utils::getCurrentSystemClockNow), kFirst);
    EXPECT_EQ(slotOf(&Utils::setCPULimit), kFirst + 1);
    EXPECT_EQ(slotOf(&Utils::removeCPULimit), kFirst + 2);
    EXPECT_EQ(slotOf(&Utils::executeSystemCommand), kFirst + 3);
    EXPECT_EQ(slotOf(&Utils::readSystemCommandOutput), kFirst + 4);
    EXPECT_EQ(slotOf(&Utils::isCGroupsSupported), kFirst + 5);
    EXPECT_EQ(slotOf(&Utils::isDefaultCGroupsMountAvailable), kFirst + 6);
}

TEST(InterfacesTest, UtilityOperationsStandInTableOrder)
{
    expectUtilsOrder<ITAVUtils>();
    expectUtilsOrder<TAVUtils>();
}

template <typename Ssl>
void expectSslOrder()
{
    EXPECT_EQ(slotOf(&Ssl::getChecksumValues), kFirst);
    EXPECT_EQ(slotOf(&Ssl::getHmacSha1), kFirst + 1);
    EXPECT_EQ(slotOf(&Ssl::encodeBase64), kFirst + 2);
    EXPECT_EQ(slotOf(&Ssl::base64EncodeInputBuffer), kFirst + 3);
    EXPECT_EQ(slotOf(&Ssl::decodeBase64), kFirst + 4);
}

TEST(InterfacesTest, HashingOperationsStandInTableOrder)
{
    expectSslOrder<IQelSSL>();
    expectSslOrder<QelSSLUtils>();
}

TEST(InterfacesTest, HexOperationsAreNotVirtual)
{
    EXPECT_EQ(slotOf(&QelSSLUtils::hexDigitToChar), -1);
    EXPECT_EQ(slotOf(&QelSSLUtils::hexEncodeBytesIntoString), -1);
}

template <typename Archive>
void expectArchiveOrder()
{
    EXPECT_EQ(slotOf(&Archive::createArchive), kFirst);
    EXPECT_EQ(slotOf(&Archive::extractArchive), kFirst + 1);
}

TEST(InterfacesTest, ArchiveOperationsStandInTableOrder)
{
    expectArchiveOrder<IQelArchiveUtils>();
    expectArchiveOrder<QelArchiveUtils>();
}

TEST(InterfacesTest, TheTwoLogOperationsStandNextToEachOther)
{
    const auto plain = slotOf(static_cast<void (ILogger::*)(int, std::string)>(&ILogger::log));
    const auto named = slotOf(static_cast<void (ILogger::*)(int, std::string, const std::string&)>(&ILogger::log));
    EXPECT_GE(plain, kFirst);
    EXPECT_EQ(named, plain + 1);
}

template <typename Interface, typename Implementation>
void expectPair()
{
    static_assert(std::is_abstract_v<Interface>);
    static_assert(std::has_virtual_destructor_v<Interface>);
    static_assert(std::is_convertible_v<Implementation*, Interface*>, "public inheritance from one base");
    static_assert(!std::is_abstract_v<Implementation>);
    EXPECT_EQ(sizeof(Interface), sizeof(void*)) << "an interface holds nothing but its table";
}

TEST(InterfacesTest, EachServiceIsAnAbstractInterfaceAndOneImplementation)
{
    expectPair<IMagic, MagicUtils>();
    expectPair<ITAVUtils, TAVUtils>();
    expectPair<IQelSSL, QelSSLUtils>();
    expectPair<IQelArchiveUtils, QelArchiveUtils>();
}

TEST(InterfacesTest, ImplementationsHoldExactlyTheirMembers)
{
    EXPECT_EQ(sizeof(MagicUtils), sizeof(void*) + sizeof(magic_t));
    EXPECT_EQ(sizeof(QelSSLUtils), sizeof(void*));
    EXPECT_EQ(sizeof(QelArchiveUtils),
              sizeof(void*) + sizeof(ILogger*) + sizeof(std::string) + sizeof(std::shared_ptr<ITAVUtils>));
}

TEST(InterfacesTest, CollaboratorsComeThroughTheConstructors)
{
    static_assert(
        std::is_constructible_v<TAVUtils, std::shared_ptr<ITAVSystemUtils>, ILogger&, std::shared_ptr<kernelVersion>>);
    static_assert(std::is_constructible_v<QelArchiveUtils, ILogger&, std::shared_ptr<ITAVUtils>>);
    static_assert(!std::is_default_constructible_v<TAVUtils>);
    static_assert(!std::is_default_constructible_v<QelArchiveUtils>);
    static_assert(std::is_default_constructible_v<MagicUtils>);
    static_assert(std::is_default_constructible_v<QelSSLUtils>);
}

TEST(InterfacesTest, InputTypesArePlain32BitNumbers)
{
    static_assert(std::is_same_v<std::underlying_type_t<InputTypes>, std::int32_t>);
    static_assert(std::is_convertible_v<InputTypes, int>, "a plain enumeration");
    EXPECT_EQ(INPUT_FILE_PATH, 1);
    EXPECT_EQ(INPUT_DATA, 2);
}

} // namespace
} // namespace TAV
