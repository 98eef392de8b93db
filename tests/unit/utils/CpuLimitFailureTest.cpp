#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <new>
#include <stdexcept>

#include "FakeCgroups.h"

namespace TAV::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Pair;

/// A condition under which the limit is refused, what is logged, and what has been written by then.
struct Refusal
{
    const char* name;
    std::function<void(FakeCgroups&)> arrange;
    std::set<int> pids;
    std::vector<std::string> messages;
    std::vector<std::string> written;
    std::string lastCall;

    friend std::ostream& operator<<(std::ostream& out, const Refusal& refusal) { return out << refusal.name; }
};

std::string inGroup(const char* name)
{
    return groupFile(kFirstMount, name);
}

std::function<void(FakeCgroups&)> failing(const char* operation, unsigned int nth)
{
    return [=](FakeCgroups& cgroups) { cgroups.failCall(operation, nth, EACCES); };
}

std::function<void(FakeCgroups&)> withPeriod(const char* text)
{
    return [=](FakeCgroups& cgroups)
    {
        cgroups.addGroup(groupUnder(kFirstMount));
        cgroups.addFile(inGroup(kPeriod), text);
    };
}

const std::vector<std::string> kNoMount = {"Could not find cgroup mount or it is been modified",
                                           "Could not find cgroup mount or it is been modified."};
const std::vector<std::string> kFilesMissing = {
    "Failed to find process PID configuration or CPU quota configuration file"};

std::vector<Refusal> refusals()
{
    const std::set<int> two = {10, 20};
    const auto call = [](const char* operation, const std::string& argument)
    { return std::string(operation) + "(" + argument + ")"; };
    const std::string lastDiscovery = "stat(/cgroup/cpu/cpu.cfs_quota_us)";
    const std::string groupMade = "mkdir(" + groupUnder(kFirstMount) + ", 448)";
    const std::string periodRead = call("openInputFile", inGroup(kPeriod));
    const std::string filesChecked = call("stat", inGroup(kProcs));
    const std::string procsOpened = call("openOutputFile", inGroup(kProcs));
    const auto noProcs = [](int pid)
    { return std::vector{"Failed to open process PID configuration file for PID: " + std::to_string(pid)}; };
    return {
        {"NoPeriodFileAtTheMount", failing("stat", 1), two, kNoMount, {}, lastDiscovery},
        {"NoQuotaFileAtTheMount", failing("stat", 2), two, kNoMount, {}, lastDiscovery},
        {"NoMountAndNoProcess", failing("stat", 1), {}, kNoMount, {}, lastDiscovery},
        {"NoProcess", [](FakeCgroups&) {}, {}, {"No process provided to set CPU limitation"}, {}, lastDiscovery},
        {"GroupNotMade", failing("mkdir", 1), two, {"Failed to create subgroup for cgroup task"}, {}, groupMade},
        {"PeriodNotOpened",
         failing("openInputFile", 1),
         two,
         {"Failed to open CPU default period configuration file"},
         {},
         periodRead},
        {"PeriodNotANumber", withPeriod("abc\n"), two, {"Failed to process CPU default period"}, {}, periodRead},
        {"PeriodOutOfRange",
         withPeriod("9223372036854775808"),
         two,
         {"Failed to process CPU default period"},
         {},
         periodRead},
        {"PeriodFileEmpty", withPeriod(""), two, {"Failed to process CPU default period"}, {}, periodRead},
        {"PeriodZero", withPeriod("0\n"), two, {"Invalid CPU default period read"}, {}, periodRead},
        {"QuotaFileMissing", failing("stat", 6), two, kFilesMissing, {}, filesChecked},
        {"ProcsFileMissing", failing("stat", 7), two, kFilesMissing, {}, filesChecked},
        {"BothFilesMissing",
         [](FakeCgroups& cgroups) { cgroups.addFile(inGroup(kPeriod), "100000"); },
         two,
         kFilesMissing,
         {},
         filesChecked},
        {"QuotaNotOpened",
         failing("openOutputFile", 1),
         two,
         {"Failed to open CPU quota configuration file"},
         {},
         call("openOutputFile", inGroup(kQuota))},
        {"FirstProcessNotOpened", failing("openOutputFile", 2), two, noProcs(10), {"40000"}, procsOpened},
        {"SecondProcessNotOpened", failing("openOutputFile", 3), two, noProcs(20), {"40000", "10"}, procsOpened},
        {"SkippedZeroNotOpened", failing("openOutputFile", 2), {0, 10}, noProcs(0), {"40000"}, procsOpened},
        {"SkippedNegativeNotOpened", failing("openOutputFile", 2), {-5, 10}, noProcs(-5), {"40000"}, procsOpened},
    };
}

class CpuLimitFailureTest : public ::testing::TestWithParam<Refusal>
{
protected:
    CpuLimitFailureTest() { GetParam().arrange(*m_setUp.cgroups); }

    bool limit() { return m_setUp.utils.setCPULimit(GetParam().pids, 20, "group"); }

    CgroupSetUp m_setUp;
};

TEST_P(CpuLimitFailureTest, ReturnsFalse)
{
    EXPECT_FALSE(limit());
}

TEST_P(CpuLimitFailureTest, LogsExactlyItsLines)
{
    limit();
    EXPECT_THAT(m_setUp.messages(), ElementsAreArray(GetParam().messages));
}

TEST_P(CpuLimitFailureTest, StopsAtOnce)
{
    limit();
    EXPECT_EQ(m_setUp.cgroups->calls().back(), GetParam().lastCall);
}

TEST_P(CpuLimitFailureTest, UndoesNothing)
{
    limit();
    std::vector<std::string> written;
    for (const auto& [path, content] : m_setUp.cgroups->writes())
        written.push_back(content);
    EXPECT_THAT(written, ElementsAreArray(GetParam().written));
    EXPECT_EQ(m_setUp.cgroups->openFiles(), 0U);
}

TEST_P(CpuLimitFailureTest, LeavesTheObjectFitForTheNextCall)
{
    limit();
    CgroupSetUp fresh;
    m_setUp.cgroups->onStat = fresh.cgroups->onStat;
    m_setUp.cgroups->onMkdir = fresh.cgroups->onMkdir;
    m_setUp.cgroups->onOpenInputFile = fresh.cgroups->onOpenInputFile;
    m_setUp.cgroups->onOpenOutputFile = fresh.cgroups->onOpenOutputFile;
    EXPECT_TRUE(m_setUp.utils.setCPULimit({30}, 50, ""));
    EXPECT_THAT(fresh.cgroups->writes(), ElementsAre(Pair(inGroup(kQuota), "100000"), Pair(inGroup(kProcs), "30")));
}

INSTANTIATE_TEST_SUITE_P(EveryRow,
                         CpuLimitFailureTest,
                         ::testing::ValuesIn(refusals()),
                         [](const auto& row) { return std::string(row.param.name); });

/// Makes the given call of the fake throw, and expects the same exception to reach the caller.
template <typename Exception>
void expectToPassThrough(const std::string& call, const Exception& exception)
{
    CgroupSetUp setUp;
    setUp.cgroups->onCall = [&](const std::string& made)
    {
        if (made == call)
            throw exception;
    };
    EXPECT_THROW(setUp.utils.setCPULimit({10}, 20, ""), Exception) << call;
    EXPECT_THAT(setUp.messages(), IsEmpty());
    EXPECT_EQ(setUp.cgroups->openFiles(), 0U);
}

TEST(CpuLimitExceptionTest, PassesThroughFromTheSystemCalls)
{
    for (const std::string& call : {std::string("stat(/cgroup/cpu/cpu.cfs_quota_us)"),
                                    "mkdir(" + groupUnder(kFirstMount) + ", 448)",
                                    "openOutputFile(" + inGroup(kQuota) + ")",
                                    std::string("openInputFile(/proc/cpuinfo)"),
                                    "openOutputFile(" + inGroup(kProcs) + ")"})
        expectToPassThrough(call, std::bad_alloc());
}

TEST(CpuLimitExceptionTest, IsCaughtOnlyFromTheConversion)
{
    const std::string call = "openInputFile(" + inGroup(kPeriod) + ")";
    expectToPassThrough(call, std::invalid_argument("from the system-call object"));
    expectToPassThrough(call, std::out_of_range("from the system-call object"));
    expectToPassThrough(call, std::runtime_error("from the system-call object"));
}

TEST(CpuLimitSweepTest, FailsOrSucceedsWholeForEachFailingCall)
{
    // The result when the first, second ... call of an operation fails; the last is of one call more than are made.
    const std::vector<std::pair<const char*, std::vector<bool>>> expected = {
        {"stat", {false, false, true, true, true, false, false, true}},
        {"mkdir", {false, true}},
        {"openInputFile", {false, true, true}},
        {"openOutputFile", {false, false, false, true}},
    };
    for (const auto& [operation, results] : expected)
    {
        for (unsigned int nth = 1; nth <= results.size(); ++nth)
        {
            CgroupSetUp setUp;
            setUp.cgroups->failCall(operation, nth, EIO);
            EXPECT_EQ(setUp.utils.setCPULimit({10, 20}, 20, ""), results.at(nth - 1)) << operation << " " << nth;
            EXPECT_EQ(setUp.cgroups->openFiles(), 0U);
        }
    }
}

} // namespace
} // namespace TAV::test
