// The order of the virtual operations is part of the binary interface: a daemon built against one release calls the
// slots of the next one by number.
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <typeinfo>
#include <vector>

#include <gmock/gmock.h>

#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"
#include "tav/ILogger.h"
#include "tav/KrbAPIWrapper.h"
#include "tav/KrbHandler.h"
#include "tav/MagicUtils.h"
#include "tav/QelArchiveUtils.h"
#include "tav/QelSSLUtils.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

namespace TAV::test
{
namespace
{

constexpr std::size_t kDestructorSlots = 2; // complete, deleting
constexpr std::size_t kNotVirtual = ~std::size_t{0};

/// The slot of a virtual member function. On the Itanium ABI the pointer holds 1 + 8 x slot; a pointer to a function
/// that is not virtual is its address, which is even.
template <typename MemberFunction>
std::size_t slotOf(MemberFunction member)
{
    std::uintptr_t words[2] = {};
    static_assert(sizeof(member) == sizeof(words));
    std::memcpy(words, &member, sizeof(words));
#if defined(__arm__) || defined(__aarch64__)
    return (words[1] & 1U) != 0 ? words[0] / sizeof(void*) : kNotVirtual;
#else
    return (words[0] & 1U) != 0 ? (words[0] - 1) / sizeof(void*) : kNotVirtual;
#endif
}

struct Operation
{
    const char* name;
    std::size_t slotInInterface;
    std::size_t slotInImplementation;
};

struct Service
{
    const char* interface;
    const std::type_info* interfaceType;
    const char* implementation; ///< null if it is not this library's
    const std::type_info* implementationType;
    std::vector<Operation> operations; ///< in table order after the destructor

    friend std::ostream& operator<<(std::ostream& out, const Service& service) { return out << service.interface; }
};

#define OPERATION(I, C, operation)                                                                                     \
    Operation                                                                                                          \
    {                                                                                                                  \
#operation, slotOf(&I::operation), slotOf(&C::operation)                                                       \
    }

Service magic()
{
    return {"IMagic",
            &typeid(IMagic),
            "MagicUtils",
            &typeid(MagicUtils),
            {OPERATION(IMagic, MagicUtils, magicLoad),
             OPERATION(IMagic, MagicUtils, magicFile),
             OPERATION(IMagic, MagicUtils, magicClose),
             OPERATION(IMagic, MagicUtils, magicOpen),
             OPERATION(IMagic, MagicUtils, magicDescriptor)}};
}

Service utils()
{
    return {"ITAVUtils",
            &typeid(ITAVUtils),
            "TAVUtils",
            &typeid(TAVUtils),
            {OPERATION(ITAVUtils, TAVUtils, getCurrentSystemClockNow),
             OPERATION(ITAVUtils, TAVUtils, setCPULimit),
             OPERATION(ITAVUtils, TAVUtils, removeCPULimit),
             OPERATION(ITAVUtils, TAVUtils, executeSystemCommand),
             OPERATION(ITAVUtils, TAVUtils, readSystemCommandOutput),
             OPERATION(ITAVUtils, TAVUtils, isCGroupsSupported),
             OPERATION(ITAVUtils, TAVUtils, isDefaultCGroupsMountAvailable)}};
}

Service ssl()
{
    return {"IQelSSL",
            &typeid(IQelSSL),
            "QelSSLUtils",
            &typeid(QelSSLUtils),
            {OPERATION(IQelSSL, QelSSLUtils, getChecksumValues),
             OPERATION(IQelSSL, QelSSLUtils, getHmacSha1),
             OPERATION(IQelSSL, QelSSLUtils, encodeBase64),
             OPERATION(IQelSSL, QelSSLUtils, base64EncodeInputBuffer),
             OPERATION(IQelSSL, QelSSLUtils, decodeBase64)}};
}

Service archive()
{
    return {"IQelArchiveUtils",
            &typeid(IQelArchiveUtils),
            "QelArchiveUtils",
            &typeid(QelArchiveUtils),
            {OPERATION(IQelArchiveUtils, QelArchiveUtils, createArchive),
             OPERATION(IQelArchiveUtils, QelArchiveUtils, extractArchive)}};
}

Service systemUtils()
{
    return {"ITAVSystemUtils",
            &typeid(ITAVSystemUtils),
            "TAVSystemUtils",
            &typeid(TAVSystemUtils),
            {OPERATION(ITAVSystemUtils, TAVSystemUtils, open),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, read),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, close),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, setenv),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, pipe),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, fork),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, waitpid),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, mkdir),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, dup2),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, stat),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, openOutputFile),
             OPERATION(ITAVSystemUtils, TAVSystemUtils, openInputFile)}};
}

Service curlWrapper()
{
    return {"ICurlWrapper",
            &typeid(ICurlWrapper),
            "CurlWrapper",
            &typeid(CurlWrapper),
            {OPERATION(ICurlWrapper, CurlWrapper, initSession),
             OPERATION(ICurlWrapper, CurlWrapper, deInitSession),
             OPERATION(ICurlWrapper, CurlWrapper, configureOptions),
             OPERATION(ICurlWrapper, CurlWrapper, sendNetworkRequest)}};
}

/// The overload that gives a value of this type.
template <typename Value>
Operation getInfo(const char* name)
{
    using InInterface = CURLcode (ICurlAPIUtility::*)(void*, CURLINFO, Value&);
    using InImplementation = CURLcode (CurlAPIUtility::*)(void*, CURLINFO, Value&);
    return {name,
            slotOf(static_cast<InInterface>(&ICurlAPIUtility::curlGetInfo)),
            slotOf(static_cast<InImplementation>(&CurlAPIUtility::curlGetInfo))};
}

Service curlApi()
{
    return {"ICurlAPIUtility",
            &typeid(ICurlAPIUtility),
            "CurlAPIUtility",
            &typeid(CurlAPIUtility),
            {OPERATION(ICurlAPIUtility, CurlAPIUtility, curlGlobalInit),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlEasyInit),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlEasyCleanup),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlGlobalCleanup),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlSlistAppend),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlSetHeaderOpt),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlSlistFreeAll),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlSetStringOpt),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlSetLongOpt),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlSetCallbackFuncOpt),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlSetResponseString),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlEasyPerform),
             getInfo<long>("curlGetInfo (long)"),
             getInfo<double>("curlGetInfo (double)"),
             OPERATION(ICurlAPIUtility, CurlAPIUtility, curlEasyStrerror)}};
}

Service krbApi()
{
    return {"IkrbAPIWrapper",
            &typeid(IkrbAPIWrapper),
            "KrbAPIWrapper",
            &typeid(KrbAPIWrapper),
            {OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5InitContext),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5ParseName),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5UnparseName),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5StringToEnctype),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5Timeofday),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5Principal2salt),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5cStringToKey),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5KtResolve),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5KtAddEntry),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5CcResolve),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5GetInitCredsKeytab),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5KtStartSeqGet),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5KtNextEntry),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5KtEndSeqGet),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5CopyPrincipal),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5CcClose),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5KtClose),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5FreeContext),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5FreePrincipal),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5FreeCredContents),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5FreeCreds),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5FreeDataContents),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5FreeData),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5FreeKeyblockContents),
             OPERATION(IkrbAPIWrapper, KrbAPIWrapper, krb5FreeKeyblock)}};
}

Service krbHandler()
{
    return {"IkrbHandler",
            &typeid(IkrbHandler),
            "KrbHandler",
            &typeid(KrbHandler),
            {OPERATION(IkrbHandler, KrbHandler, configKrbSession), OPERATION(IkrbHandler, KrbHandler, renewTicket)}};
}

#undef OPERATION

/// One class's virtual table as the library exports it.
struct Table
{
    const void* const* slots = nullptr;
    std::size_t count = 0;
};

Table tableOf(const std::string& className)
{
    const std::string symbol = "_ZTVN3TAV" + std::to_string(className.size()) + className + "E";
    const void* start = dlsym(RTLD_DEFAULT, symbol.c_str());
    if (start == nullptr)
        return {};
    Dl_info info = {};
    void* entry = nullptr;
    dladdr1(start, &info, &entry, RTLD_DL_SYMENT);
    // Two words stand before the slots: the offset to the top and the type information.
    const std::size_t words = static_cast<const ElfW(Sym)*>(entry)->st_size / sizeof(void*);
    return {static_cast<const void* const*>(start) + 2, words - 2};
}

const void* destructorOf(const std::string& className, const char* variant)
{
    const std::string name = std::to_string(className.size()) + className;
    return dlsym(RTLD_DEFAULT, ("_ZN3TAV" + name + variant + "Ev").c_str());
}

class VirtualTableTest : public testing::TestWithParam<Service>
{
};

TEST_P(VirtualTableTest, OperationsStandInTheirSlotsOfTheInterface)
{
    std::size_t slot = kDestructorSlots;
    for (const Operation& operation : GetParam().operations)
        EXPECT_EQ(operation.slotInInterface, slot++) << operation.name;
}

TEST_P(VirtualTableTest, OperationsStandInTheSameSlotsOfTheImplementation)
{
    std::size_t slot = kDestructorSlots;
    for (const Operation& operation : GetParam().operations)
        EXPECT_EQ(operation.slotInImplementation, slot++) << operation.name;
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TAV_PADDED_TABLES // that sanitizer's red zones count as part of a table
#endif
#endif

#if !defined(TAV_PADDED_TABLES)
TEST_P(VirtualTableTest, ImplementationHasNoOtherSlots)
{
    const Table table = tableOf(GetParam().implementation);
    ASSERT_NE(table.slots, nullptr);
    EXPECT_EQ(table.count, kDestructorSlots + GetParam().operations.size());
}
#endif

TEST_P(VirtualTableTest, CompleteAndDeletingDestructorComeFirst)
{
    const Table table = tableOf(GetParam().implementation);
    ASSERT_NE(table.slots, nullptr);
    const void* complete = destructorOf(GetParam().implementation, "D1");
    const void* deleting = destructorOf(GetParam().implementation, "D0");
    ASSERT_NE(complete, nullptr);
    ASSERT_NE(deleting, nullptr);
    EXPECT_EQ(table.slots[0], complete);
    EXPECT_EQ(table.slots[1], deleting);
}

TEST_P(VirtualTableTest, ImplementationDerivesFromTheInterfaceAlone)
{
    // "si" is the ABI's word for one public base that is not virtual and stands at offset 0.
    const auto* type = dynamic_cast<const abi::__si_class_type_info*>(GetParam().implementationType);
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(*type->__base_type, *GetParam().interfaceType);
}

INSTANTIATE_TEST_SUITE_P(
    Services,
    VirtualTableTest,
    testing::Values(
        magic(), utils(), ssl(), curlWrapper(), curlApi(), krbApi(), krbHandler(), archive(), systemUtils()),
    [](const auto& service) { return std::string(service.param.interface); });

// Tests of the logger's own: the library only uses that interface.
using LogText = void (ILogger::*)(int, std::string);
using LogComponentText = void (ILogger::*)(int, std::string, const std::string&);

TEST(LoggerVirtualTableTest, OperationWithoutComponentComesRightAfterTheDestructor)
{
    EXPECT_EQ(slotOf(static_cast<LogText>(&ILogger::log)), kDestructorSlots);
}

TEST(LoggerVirtualTableTest, OperationWithComponentComesNext)
{
    EXPECT_EQ(slotOf(static_cast<LogComponentText>(&ILogger::log)), kDestructorSlots + 1);
}

TEST(NonVirtualOperationsTest, TakeNoSlot)
{
    const std::vector<std::size_t> slots = {slotOf(&TAVUtils::closePipeFds),
                                            slotOf(&TAVUtils::checkIfFdToBeKeptOpen),
                                            slotOf(&TAVUtils::duplicateFd),
                                            slotOf(&TAVUtils::updateCPUTaskGroupDirectory),
                                            slotOf(&TAVUtils::getNumberOfAvailableCPUCores),
                                            slotOf(&CurlWrapper::setCommonConfigParameters),
                                            slotOf(&CurlWrapper::setSSLConfigParameters),
                                            slotOf(&CurlWrapper::setProxyConfigParameters),
                                            slotOf(&CurlWrapper::getCURLErrMsg),
                                            slotOf(&KrbHandler::freeKrbMemory),
                                            slotOf(&KrbHandler::addKeyAndPricipal),
                                            slotOf(&KrbHandler::generateKrbKeyTabAndCache),
                                            slotOf(&KrbHandler::initKrb),
                                            slotOf(&QelSSLUtils::hexDigitToChar),
                                            slotOf(&QelSSLUtils::hexEncodeBytesIntoString)};
    EXPECT_THAT(slots, testing::Each(kNotVirtual));
}

} // namespace
} // namespace TAV::test
