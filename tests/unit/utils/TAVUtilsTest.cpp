#include "tav/TAVUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <locale>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "tav/FMXException.h"
#include "tav/testing/FakeTAVSystemUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV
{
namespace
{

using test::FakeTAVSystemUtils;
using test::LogLine;
using test::RecordingLogger;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::shared_ptr<kernelVersion> version(int major, int minor, int patch)
{
    return std::make_shared<kernelVersion>(kernelVersion{
        static_cast<std::uint8_t>(major), static_cast<std::uint8_t>(minor), static_cast<std::uint8_t>(patch)});
}

class ThrowingLogger : public ILogger
{
public:
    void log(int, std::string) override { throw std::length_error("without component"); }
    void log(int, std::string, const std::string&) override { throw std::length_error("with component"); }
};

struct KernelCase
{
    int major;
    int minor;
    int patch;
    bool supported;
    const char* text; ///< as the log line ends
};

class KernelGateTest : public ::testing::TestWithParam<KernelCase>
{
};

TEST_P(KernelGateTest, DecidesOnceFromTheVersion)
{
    const KernelCase& kernel = GetParam();
    const auto system = std::make_shared<FakeTAVSystemUtils>();
    const auto running = version(kernel.major, kernel.minor, kernel.patch);
    RecordingLogger logger;
    TAVUtils utils(system, logger, running);

    EXPECT_EQ(utils.isCGroupsSupported(), kernel.supported);
    *running = kernel.supported ? kernelVersion{} : kernelVersion{255, 255, 255};
    EXPECT_EQ(utils.isCGroupsSupported(), kernel.supported) << "decided again";
    EXPECT_THAT(system->calls(), IsEmpty());
}

TEST_P(KernelGateTest, LogsOnlyAnOldKernel)
{
    const KernelCase& kernel = GetParam();
    RecordingLogger logger;
    TAVUtils utils(std::make_shared<FakeTAVSystemUtils>(), logger, version(kernel.major, kernel.minor, kernel.patch));
    utils.isCGroupsSupported();

    const std::string text = "CGroups is not supported for this operating system kernel( version: ";
    if (kernel.supported)
        EXPECT_THAT(logger.lines(), IsEmpty());
    else
        EXPECT_THAT(logger.lines(), ElementsAre(LogLine{5, "TAVUtils", text + kernel.text}));
}

INSTANTIATE_TEST_SUITE_P(Kernels,
                         KernelGateTest,
                         ::testing::Values(KernelCase{2, 6, 23, false, "2.6.23)"},
                                           KernelCase{2, 6, 24, true, ""},
                                           KernelCase{2, 6, 25, true, ""},
                                           KernelCase{2, 6, 18, false, "2.6.18)"},
                                           KernelCase{2, 6, 255, true, ""},
                                           KernelCase{2, 7, 0, true, ""},
                                           KernelCase{2, 5, 255, false, "2.5.255)"},
                                           KernelCase{3, 0, 0, true, ""},
                                           KernelCase{1, 255, 255, false, "1.255.255)"},
                                           KernelCase{0, 0, 0, false, "0.0.0)"},
                                           KernelCase{128, 0, 0, true, ""},
                                           KernelCase{255, 255, 255, true, ""}));

/// Groups digits by threes, as many a user's locale does.
class GroupingNumbers : public std::numpunct<char>
{
protected:
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\1"; }
};

TEST(TAVUtilsTest, WritesTheVersionAlikeUnderAnyLocale)
{
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new GroupingNumbers));
    RecordingLogger logger;
    const TAVUtils utils(std::make_shared<FakeTAVSystemUtils>(), logger, version(2, 6, 18));
    std::locale::global(before);

    ASSERT_EQ(logger.lines().size(), 1U);
    EXPECT_THAT(logger.lines()[0].message, ::testing::EndsWith("2.6.18)"));
}

TEST(TAVUtilsTest, RefusesToExistWithoutAKernelVersion)
{
    RecordingLogger logger;
    try
    {
        const TAVUtils utils(std::make_shared<FakeTAVSystemUtils>(), logger, nullptr);
        FAIL() << "constructed";
    }
    catch (const FMXException& exception)
    {
        EXPECT_EQ(exception.code, 1);
        EXPECT_EQ(exception.message, "Kernel version information is null");
    }
    EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST(TAVUtilsTest, DoesNotCheckTheSystemCalls)
{
    RecordingLogger logger;
    TAVUtils utils(nullptr, logger, version(3, 0, 0));
    EXPECT_TRUE(utils.isCGroupsSupported());
}

TEST(TAVUtilsTest, TakesBothPointersOver)
{
    auto system = std::make_shared<FakeTAVSystemUtils>();
    auto kernel = version(3, 0, 0);
    const std::weak_ptr<FakeTAVSystemUtils> watchedSystem = system;
    const std::weak_ptr<kernelVersion> watchedKernel = kernel;
    RecordingLogger logger;
    const TAVUtils utils(std::move(system), logger, std::move(kernel));

    EXPECT_EQ(system, nullptr);
    EXPECT_EQ(kernel, nullptr);
    EXPECT_EQ(watchedSystem.use_count(), 1);
    EXPECT_EQ(watchedKernel.use_count(), 1);
}

TEST(TAVUtilsTest, SharesBothPointersWithTheCaller)
{
    const auto system = std::make_shared<FakeTAVSystemUtils>();
    const auto kernel = version(3, 0, 0);
    RecordingLogger logger;
    {
        const TAVUtils utils(system, logger, kernel);
        EXPECT_EQ(system.use_count(), 2);
        EXPECT_EQ(kernel.use_count(), 2);
    }
    EXPECT_EQ(system.use_count(), 1);
    EXPECT_EQ(kernel.use_count(), 1);
    EXPECT_THAT(system->calls(), IsEmpty()) << "the end of the object touches the system";
}

/// Both collaborators, noting their own end.
struct EndsInOrder
{
    std::vector<std::string> ends;
    std::shared_ptr<ITAVSystemUtils> system{new FakeTAVSystemUtils,
                                            [this](FakeTAVSystemUtils* ended)
                                            {
                                                ends.emplace_back("system calls");
                                                delete ended;
                                            }};
    std::shared_ptr<kernelVersion> kernel{new kernelVersion{2, 6, 18},
                                          [this](kernelVersion* ended)
                                          {
                                              ends.emplace_back("kernel version");
                                              delete ended;
                                          }};
};

TEST(TAVUtilsTest, ReleasesInReverseOrderOfDeclaration)
{
    EndsInOrder collaborators;
    RecordingLogger logger;
    auto utils = std::make_unique<TAVUtils>(std::move(collaborators.system), logger, std::move(collaborators.kernel));
    EXPECT_THAT(collaborators.ends, IsEmpty());
    utils.reset();
    EXPECT_THAT(collaborators.ends, ElementsAre("kernel version", "system calls"));
}

TEST(TAVUtilsTest, ReleasesWhatWasBuiltWhenTheLoggerThrows)
{
    EndsInOrder collaborators;
    ThrowingLogger logger;
    try
    {
        const TAVUtils utils(std::move(collaborators.system), logger, std::move(collaborators.kernel));
        FAIL() << "constructed";
    }
    catch (const std::length_error& exception)
    {
        EXPECT_STREQ(exception.what(), "with component");
        EXPECT_THAT(collaborators.ends, ElementsAre("kernel version", "system calls"));
    }
}

TEST(TAVUtilsTest, ReleasesTheSystemCallsWhenTheKernelVersionIsNull)
{
    EndsInOrder collaborators;
    RecordingLogger logger;
    try
    {
        const TAVUtils utils(std::move(collaborators.system), logger, nullptr);
        FAIL() << "constructed";
    }
    catch (const FMXException&)
    {
        EXPECT_THAT(collaborators.ends, ElementsAre("system calls"));
    }
}

TEST(TAVUtilsTest, IsReleasedThroughItsInterface)
{
    EndsInOrder collaborators;
    RecordingLogger logger;
    std::unique_ptr<ITAVUtils> utils =
        std::make_unique<TAVUtils>(std::move(collaborators.system), logger, std::move(collaborators.kernel));
    utils.reset();
    EXPECT_EQ(collaborators.ends.size(), 2U);
}

TEST(TAVUtilsTest, TellsTheSystemClock)
{
    RecordingLogger logger;
    TAVUtils utils(std::make_shared<FakeTAVSystemUtils>(), logger, version(3, 0, 0));
    static_assert(std::is_same_v<decltype(utils.getCurrentSystemClockNow()), std::chrono::system_clock::time_point>);

    const auto before = std::chrono::system_clock::now();
    const auto told = utils.getCurrentSystemClockNow();
    const auto after = std::chrono::system_clock::now();
    EXPECT_LE(before, told);
    EXPECT_LE(told, after);
}

TEST(TAVUtilsTest, AnswersClockAndSupportOnAnyThread)
{
    RecordingLogger logger;
    TAVUtils utils(std::make_shared<FakeTAVSystemUtils>(), logger, version(3, 0, 0));
    const auto started = std::chrono::system_clock::now();
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                EXPECT_TRUE(utils.isCGroupsSupported());
                EXPECT_GE(utils.getCurrentSystemClockNow(), started);
            });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(TAVUtilsTest, RemovesNoLimit)
{
    const auto system = std::make_shared<FakeTAVSystemUtils>();
    RecordingLogger logger;
    TAVUtils utils(system, logger, version(3, 0, 0));
    for (const std::set<int>& pids : {std::set<int>{}, std::set<int>{-1, 0, 1, 4711}})
    {
        utils.removeCPULimit(pids, "");
        utils.removeCPULimit(pids, "group");
    }
    EXPECT_THAT(system->calls(), IsEmpty());
    EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST(TAVUtilsTest, KeepsTheTwoNetworkTexts)
{
    EXPECT_EQ(kLoopbackInterfaceName, "lo");
    EXPECT_EQ(kNullMacAddress, "00:00:00:00:00:00");
}

TEST(TAVUtilsTest, IsNeitherCopiedNorMoved)
{
    static_assert(!std::is_copy_constructible_v<TAVUtils>);
    static_assert(!std::is_copy_assignable_v<TAVUtils>);
    static_assert(std::has_virtual_destructor_v<ITAVUtils>);
    static_assert(std::is_base_of_v<ITAVUtils, TAVUtils>);
}

TEST(TAVUtilsTest, KernelVersionIsThreeBytesInOrder)
{
    static_assert(sizeof(kernelVersion) == 3);
    static_assert(offsetof(kernelVersion, major) == 0);
    static_assert(offsetof(kernelVersion, minor) == 1);
    static_assert(offsetof(kernelVersion, patch) == 2);
    const kernelVersion fresh;
    EXPECT_EQ(fresh.major + fresh.minor + fresh.patch, 0);
}

} // namespace
} // namespace TAV
