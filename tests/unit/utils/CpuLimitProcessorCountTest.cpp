#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "BreakingBuffer.h"
#include "CpuInfoTexts.h"
#include "FakeCgroups.h"

namespace TAV::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::string_literals;

unsigned int countIn(const std::string& text)
{
    CgroupSetUp setUp;
    setUp.cgroups->addFile("/proc/cpuinfo", text);
    const unsigned int count = setUp.utils.getNumberOfAvailableCPUCores();
    EXPECT_THAT(setUp.messages(), IsEmpty());
    EXPECT_EQ(setUp.cgroups->openFiles(), 0U);
    return count;
}

class CpuLimitProcessorCountOfMachinesTest : public ::testing::TestWithParam<CpuInfoText>
{
};

TEST_P(CpuLimitProcessorCountOfMachinesTest, IsOnePerListedProcessor)
{
    EXPECT_EQ(countIn(GetParam().text), GetParam().processors);
}

INSTANTIATE_TEST_SUITE_P(Architectures,
                         CpuLimitProcessorCountOfMachinesTest,
                         ::testing::ValuesIn(kCpuInfoTexts),
                         [](const auto& row) { return std::string(row.param.machine); });

struct Words
{
    std::string text;
    unsigned int count;
};

TEST(CpuLimitProcessorCountTest, CountsTheExactWordWhereverItStands)
{
    const std::vector<Words> table = {
        {"processor", 1},
        {"processor\n", 1},
        {"\n\n\tprocessor", 1},
        {"processor processor processor", 3},
        {"processor\tprocessor\vprocessor\fprocessor\r\nprocessor", 5},
        {"processor : 0\r\nprocessor : 1\r\n", 2},
        {"vendor processor\nmodel processor x\n", 2},
        {"processor : 0\nmodel name : Common KVM processor\n", 2},
        {"a processor that ends the file processor", 2},
    };
    for (const auto& [text, count] : table)
        EXPECT_EQ(countIn(text), count) << text;
}

TEST(CpuLimitProcessorCountTest, PassesOverEveryOtherWord)
{
    for (const std::string& other : {"Processor"s,
                                     "PROCESSOR"s,
                                     "processors"s,
                                     "processor:"s,
                                     ":processor"s,
                                     "processor0"s,
                                     "processo"s,
                                     "coprocessor"s,
                                     "\"processor\""s,
                                     "processor\0"s,
                                     "processor\0processor"s,
                                     "\xef\xbb\xbfprocessor"s,
                                     "processor\xc2\xa0"s,
                                     std::string(100'000, 'p')})
    {
        EXPECT_EQ(countIn("processor : 0\n" + other + " : 1\nprocessor : 2"), 2U) << other;
    }
}

TEST(CpuLimitProcessorCountTest, IsNeverZero)
{
    for (const std::string& text : {""s, "\n"s, " \t\n"s, "vendor_id : x\n"s, "cpus detected : 4"s, "\0"s})
        EXPECT_EQ(countIn(text), 1U) << text;
}

TEST(CpuLimitProcessorCountTest, CountsThousands)
{
    EXPECT_EQ(countIn(cpuInfoOf(4096)), 4096U);
}

TEST(CpuLimitProcessorCountTest, AsksForOneFileOnly)
{
    CgroupSetUp setUp;
    EXPECT_EQ(setUp.utils.getNumberOfAvailableCPUCores(), 2U);
    EXPECT_THAT(setUp.cgroups->calls(), ElementsAre("openInputFile(/proc/cpuinfo)"));
}

TEST(CpuLimitProcessorCountTest, IsOneWhenTheFileCannotBeOpened)
{
    CgroupSetUp setUp;
    setUp.cgroups->failCall("openInputFile", 1, EACCES);
    EXPECT_EQ(setUp.utils.getNumberOfAvailableCPUCores(), 1U);
    EXPECT_THAT(setUp.messages(), IsEmpty());
}

TEST(CpuLimitProcessorCountTest, ReadsNothingFromAStreamThatIsNotOpen)
{
    CgroupSetUp setUp;
    BreakingBuffer buffer("processor processor processor ");
    setUp.cgroups->onOpenInputFile = [&buffer](std::ifstream& stream, const std::string&) { buffer.serve(stream); };
    EXPECT_EQ(setUp.utils.getNumberOfAvailableCPUCores(), 1U);
    EXPECT_EQ(buffer.failures(), 0U);
}

TEST(CpuLimitProcessorCountTest, CountsAfreshAtEveryCall)
{
    CgroupSetUp setUp;
    EXPECT_EQ(setUp.utils.getNumberOfAvailableCPUCores(), 2U);
    setUp.cgroups->addFile("/proc/cpuinfo", cpuInfoOf(5));
    EXPECT_EQ(setUp.utils.getNumberOfAvailableCPUCores(), 5U);
}

TEST(CpuLimitProcessorCountTest, DoesNotDependOnTheKernelVersion)
{
    CgroupSetUp setUp;
    TAVUtils old(setUp.cgroups, setUp.logger, std::make_shared<kernelVersion>(kernelVersion{2, 6, 18}));
    EXPECT_EQ(old.getNumberOfAvailableCPUCores(), 2U);
}

/// A stream that ends at its end of file keeps the loop going until then; one that fails otherwise must end it as well,
/// or the loop would never end.
TEST(CpuLimitProcessorCountTest, EndsWhenTheStreamBreaksOff)
{
    const std::vector<Words> table = {
        {"", 1},
        {"processor : 0\nprocessor : 1\nmodel na", 2},
        {"processor : 0\nprocessor : 1\n", 2},
        {"processor : 0\nprocess", 1},
        {"processor : 0\nprocessor", 2},
    };
    for (const auto& [text, count] : table)
    {
        CgroupSetUp setUp;
        BreakingBuffer buffer(text);
        setUp.cgroups->onOpenInputFile = [&buffer](std::ifstream& stream, const std::string&)
        {
            stream.open("/dev/null");
            buffer.serve(stream);
        };
        EXPECT_EQ(setUp.utils.getNumberOfAvailableCPUCores(), count) << text;
        EXPECT_EQ(buffer.failures(), 1U) << text;
    }
}

TEST(CpuLimitProcessorCountTest, DoesNotReadAStreamThatHasFailedAlready)
{
    for (const auto state : {std::ios::failbit, std::ios::badbit, std::ios::eofbit})
    {
        CgroupSetUp setUp;
        setUp.cgroups->onOpenInputFile = [&](std::ifstream& stream, const std::string& path)
        {
            stream.open(setUp.cgroups->real(path));
            stream.setstate(state);
        };
        EXPECT_EQ(setUp.utils.getNumberOfAvailableCPUCores(), 1U);
    }
}

TEST(CpuLimitProcessorCountTest, IsOneWhenTheFileIsADirectory)
{
    CgroupSetUp setUp;
    setUp.cgroups->onOpenInputFile = [](std::ifstream& stream, const std::string&) { stream.open("/"); };
    EXPECT_EQ(setUp.utils.getNumberOfAvailableCPUCores(), 1U);
}

} // namespace
} // namespace TAV::test
