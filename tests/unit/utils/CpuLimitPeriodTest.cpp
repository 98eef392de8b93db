#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BreakingBuffer.h"
#include "FakeCgroups.h"

namespace TAV::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::string_literals;

constexpr const char* kNotANumber = "Failed to process CPU default period";
constexpr const char* kZero = "Invalid CPU default period read";

CgroupSetUp& withPeriod(CgroupSetUp& setUp, const std::string& text)
{
    setUp.cgroups->addGroup(groupUnder(kFirstMount));
    setUp.cgroups->addFile(groupFile(kFirstMount, kPeriod), text);
    return setUp;
}

/// The content of a period file and the quota that 100 % of one processor then comes to: the period itself.
struct Accepted
{
    std::string text;
    std::string quota;
};

TEST(CpuLimitPeriodTest, ReadsTheNumberAtTheStartOfTheFirstLine)
{
    const std::vector<Accepted> table = {
        {"100000\n", "100000"},
        {"100000", "100000"},
        {"1\n", "1"},
        {"100000\r\n", "100000"},
        {"100000\n200000\n", "100000"},
        {"100000\nabc", "100000"},
        {"   50000\n", "50000"},
        {"\t\v\f\r 50000\n", "50000"},
        {"+50000", "50000"},
        {"  +50000", "50000"},
        {"50000 ", "50000"},
        {"50000 100000", "50000"},
        {"50000abc", "50000"},
        {"50000,5", "50000"},
        {"50000.9", "50000"},
        {"1,000,000", "1"},
        {"1e5", "1"},
        {"1x5", "1"},
        {"010", "10"},
        {"0000100000", "100000"},
        {"100000\0junk"s, "100000"},
        {"100000 max", "100000"},
        {"100000-1", "100000"},
        {std::string(5000, ' ') + "70000", "70000"},
        {std::string(5000, '0') + "70000", "70000"},
        // 100 x the largest period, as an unsigned number, is 2^64 - 100.
        {"9223372036854775807", "184467440737095515"},
        {"-1", "184467440737095515"},
        {"-100000\n", "184467440736995516"},
        {"-9223372036854775808", "0"},
    };
    for (const auto& [text, quota] : table)
    {
        CgroupSetUp setUp(kFirstMount, 1);
        EXPECT_TRUE(withPeriod(setUp, text).utils.setCPULimit({10}, 100, "")) << text;
        ASSERT_THAT(setUp.messages(), IsEmpty()) << text;
        EXPECT_EQ(setUp.cgroups->writes().front().second, quota) << text;
    }
}

TEST(CpuLimitPeriodTest, RefusesWhatIsNoNumber)
{
    for (const std::string& text : {""s,
                                    "\n"s,
                                    "\n100000\n"s,
                                    " \n100000\n"s,
                                    "\r\n100000\r\n"s,
                                    "   "s,
                                    "abc"s,
                                    "abc100000"s,
                                    "max 100000"s,
                                    "-"s,
                                    "+"s,
                                    "--1"s,
                                    "+-1"s,
                                    "-+1"s,
                                    "- 1"s,
                                    "+ 1"s,
                                    ".5"s,
                                    ",100000"s,
                                    "x10"s,
                                    "\"100000\""s,
                                    "\0"s
                                    "100000"s,
                                    "\xc2\xa0"s
                                    "100000"s,
                                    "\xef\xbb\xbf"s
                                    "100000"s,
                                    "\xd9\xa1\xd9\xa0"s,
                                    "inf"s,
                                    "nan"s})
    {
        CgroupSetUp setUp;
        EXPECT_FALSE(withPeriod(setUp, text).utils.setCPULimit({10}, 100, "")) << text;
        EXPECT_THAT(setUp.messages(), ElementsAre(kNotANumber)) << text;
    }
}

TEST(CpuLimitPeriodTest, RefusesWhatIsOutOfRange)
{
    for (const std::string& text : {"9223372036854775808"s,
                                    "18446744073709551616"s,
                                    "-9223372036854775809"s,
                                    std::string(5000, '9'),
                                    "-"s + std::string(5000, '9')})
    {
        CgroupSetUp setUp;
        EXPECT_FALSE(withPeriod(setUp, text).utils.setCPULimit({10}, 100, "")) << text;
        EXPECT_THAT(setUp.messages(), ElementsAre(kNotANumber)) << text;
    }
}

TEST(CpuLimitPeriodTest, RefusesZeroInAnyForm)
{
    for (const char* text : {"0", "0\n", "-0", "+0", "000", "0abc", "0x10", "0.9", " 0 ", "0\n100000\n", "0e5"})
    {
        CgroupSetUp setUp;
        EXPECT_FALSE(withPeriod(setUp, text).utils.setCPULimit({10}, 100, "")) << text;
        EXPECT_THAT(setUp.messages(), ElementsAre(kZero)) << text;
    }
}

TEST(CpuLimitPeriodTest, RefusesAFileThatOpensButCannotBeRead)
{
    CgroupSetUp setUp;
    setUp.cgroups->onOpenInputFile = [](std::ifstream& stream, const std::string&) { stream.open("/"); };
    EXPECT_FALSE(setUp.utils.setCPULimit({10}, 100, ""));
    EXPECT_THAT(setUp.messages(), ElementsAre(kNotANumber));
}

TEST(CpuLimitPeriodTest, RefusesAStreamThatHasFailedAlready)
{
    CgroupSetUp setUp;
    setUp.cgroups->onOpenInputFile = [](std::ifstream& stream, const std::string&)
    {
        stream.open("/proc/sys/kernel/pid_max");
        stream.setstate(std::ios::failbit);
    };
    EXPECT_FALSE(setUp.utils.setCPULimit({10}, 100, ""));
    EXPECT_THAT(setUp.messages(), ElementsAre(kNotANumber));
}

TEST(CpuLimitPeriodTest, TakesWhatCouldBeReadOfALineThatBreaksOff)
{
    CgroupSetUp setUp(kFirstMount, 1);
    BreakingBuffer buffer("  30000");
    setUp.cgroups->onOpenInputFile = [&](std::ifstream& stream, const std::string& path)
    {
        stream.open(path.rfind("/proc", 0) == 0 ? setUp.cgroups->real(path) : "/dev/null");
        if (path.rfind("/proc", 0) != 0)
            buffer.serve(stream);
    };
    EXPECT_TRUE(setUp.utils.setCPULimit({10}, 100, ""));
    EXPECT_EQ(setUp.cgroups->writes().front().second, "30000");
}

/// What the quota comes to; the product wraps at 64 bits before it is divided.
struct Product
{
    unsigned short limit;
    const char* period;
    unsigned int processors;
    const char* quota;
};

TEST(CpuLimitQuotaTest, IsTheUnsignedProductDividedByHundred)
{
    const std::vector<Product> table = {
        {25, "100000", 4, "100000"},
        {100, "100000", 1, "100000"},
        {0, "100000", 4, "0"},
        {0, "-1", 4, "0"},
        {200, "100000", 2, "400000"},
        {65535, "100000", 2, "131070000"},
        {65535, "100000", 4096, "268431360000"},
        // Truncated, and only after the product.
        {99, "1", 1, "0"},
        {50, "1", 2, "1"},
        {1, "1", 100, "1"},
        {33, "1001", 1, "330"},
        {1, "199", 1, "1"},
        // Negative periods, as the unsigned number of the same bits.
        {1, "-1", 1, "184467440737095516"},
        {100, "-1", 1, "184467440737095515"},
        {20, "-1000", 2, "184467440737095116"},
        {65535, "-100000", 2, "184467440606025516"},
        {7, "-9223372036854775808", 1, "92233720368547758"},
        {50, "-9223372036854775808", 3, "0"},
        // The product wraps.
        {1, "9223372036854775807", 1, "92233720368547758"},
        {2, "9223372036854775807", 1, "184467440737095516"},
        {3, "4611686018427387904", 4, "0"},
        {200, "92233720368547759", 1, "1"},
        {65535, "9223372036854775807", 4, "184467440737092894"},
        {65535, "9223372036854775807", 4096, "184467440734411202"},
    };
    for (const Product& row : table)
    {
        CgroupSetUp setUp(kFirstMount, row.processors);
        EXPECT_TRUE(withPeriod(setUp, row.period).utils.setCPULimit({10}, row.limit, ""));
        EXPECT_EQ(setUp.cgroups->writes().front().second, row.quota)
            << row.limit << " % of " << row.period << " on " << row.processors;
    }
}

} // namespace
} // namespace TAV::test
