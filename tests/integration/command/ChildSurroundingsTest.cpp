// What a child is given besides the descriptors of every keep-map: arguments, environment, signal dispositions; and the
// few cases of descriptors that callers must know by name.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "CommandScene.h"
#include "SelfReport.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

using testing::_;
using testing::ElementsAre;
using testing::Pair;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using Strings = std::vector<std::string>;

class ChildSurroundingsTest : public testing::TestWithParam<Operation>
{
protected:
    /// Runs tav_self_report with these further arguments in a sacrificial process.
    /// @param prepare  what that process does before
    SelfReport reportOf(
        const KeepMap* keep, const Strings& more = {}, const std::function<void()>& prepare = [] {}) const
    {
        const std::string path = m_directory.file("report");
        Strings argv = {kSelfReport, path};
        argv.insert(argv.end(), more.begin(), more.end());
        const auto run = [&]
        {
            CommandScene scene;
            prepare();
            const pid_t before = ::getpid();
            const bool ok = runCommand(scene.utils, GetParam(), argv, keep);
            if (::getpid() != before)
                ::_exit(kExitOfReturnedChild);
            if (!ok)
                throw std::runtime_error("the command failed");
        };
        SacrificialProcess process(run);
        if (process.wait() != 0)
            throw std::runtime_error("the sacrificial process did not come to its end");
        return parseSelfReport(readFile(path));
    }

    std::string path(const std::string& name) const { return m_directory.file(name); }

private:
    TemporaryDirectory m_directory;
};

TEST_P(ChildSurroundingsTest, ArgumentsArriveByteForByte)
{
    const Strings more = {"", "two words", "'\"$HOME\\", "line\nbreak", "\xff\xfe\x80", "-x", "*", ""};
    Strings expected = {kSelfReport, path("report")};
    expected.insert(expected.end(), more.begin(), more.end());
    EXPECT_EQ(reportOf(&kKeepNothing, more).arguments, expected);
}

TEST_P(ChildSurroundingsTest, EnvironmentIsTheCallers)
{
    const auto setEnvironment = []
    {
        ::clearenv();
        ::setenv("FIRST", "value with blanks", 1);
        ::setenv("EMPTY", "", 1);
        ::setenv("BYTES", "\xff\xfe", 1);
    };
    EXPECT_THAT(reportOf(&kKeepNothing, {}, setEnvironment).environment,
                UnorderedElementsAre("FIRST=value with blanks", "EMPTY=", "BYTES=\xff\xfe"));
}

TEST_P(ChildSurroundingsTest, TerminationSignalsAreIgnoredWhateverTheCallerDoesWithThem)
{
    for (const auto disposition : {SIG_DFL, SIG_IGN, +[](int) {}})
    {
        const auto set = [disposition]
        {
            if (std::signal(SIGTERM, disposition) == SIG_ERR || std::signal(SIGINT, disposition) == SIG_ERR)
                throw std::runtime_error("cannot set the dispositions");
        };
        EXPECT_THAT(reportOf(nullptr, {}, set).signals,
                    ElementsAre(Pair("SIGINT", "ignored"), Pair("SIGTERM", "ignored")));
    }
}

/// Leaves only 0, 1 and 2 open, all on one file.
void keepThreeDescriptors(const std::string& path)
{
    ::close_range(0, ~0U, 0);
    if (::open(path.c_str(), O_RDWR | O_CREAT, 0600) != 0 || ::dup2(0, 1) != 1 || ::dup2(0, 2) != 2)
        throw std::runtime_error("cannot prepare the standard descriptors");
}

TEST_P(ChildSurroundingsTest, ChildWithoutMapRunsWithDescriptor0Closed)
{
    const DescriptorTable table = reportOf(nullptr, {}, [this] { keepThreeDescriptors(path("standard")); }).table;
    const auto writeEnd = StartsWith("w pipe:");
    if (GetParam() == Operation::Execute)
    {
        // Both ends of its own pipe: that it holds the read end too is part of the behaviour.
        EXPECT_THAT(
            table,
            ElementsAre(Pair(1, "+ /dev/null"), Pair(2, writeEnd), Pair(_, StartsWith("r pipe:")), Pair(_, writeEnd)));
    }
    else
    {
        EXPECT_THAT(table, ElementsAre(Pair(1, writeEnd), Pair(2, writeEnd)));
    }
}

TEST_P(ChildSurroundingsTest, OtherEntriesOfAMapThatKeepsStderrHaveNoEffect)
{
    const KeepMap keep = {{0, true}, {1, true}, {2, true}};
    const auto prepare = [this] { keepThreeDescriptors(path("standard")); };
    const DescriptorTable withMap = reportOf(&keep, {}, prepare).table;
    EXPECT_EQ(withMap.count(0), 0);
    EXPECT_NE(withMap.at(1), "+ " + path("standard"));
}

TEST_P(ChildSurroundingsTest, DescriptorAboveALoweredLimitSurvives)
{
    const auto prepare = [this]
    {
        keepThreeDescriptors(path("standard"));
        struct rlimit limit = {};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 50;
        if (::dup2(0, 49) != 49 || ::dup2(0, 99) != 99 || ::setrlimit(RLIMIT_NOFILE, &limit) != 0)
            throw std::runtime_error("cannot prepare the descriptors");
    };
    const DescriptorTable table = reportOf(&kKeepNothing, {}, prepare).table;
    EXPECT_EQ(table.count(49), 0);
    EXPECT_EQ(table.count(99), 1);
}

TEST_P(ChildSurroundingsTest, KeptDescriptorCanBeWrittenToByTheChild)
{
    const KeepMap keep = {{9, true}};
    const TemporaryDirectory directory;
    const std::string path = directory.write("kept", "");
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            CommandScene scene;
            ::dup2(::open(path.c_str(), O_WRONLY), 9);
            noteRun(notes,
                    scene.logger,
                    [&] {
                        return runCommand(scene.utils, GetParam(), {kSelfReport, "fd:9"}, &keep);
                    });
        });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(notes.lines().back(), "caller got true");
    EXPECT_EQ(parseSelfReport(readFile(path)).table.at(9), "w " + path);
}

std::string nameOf(const testing::TestParamInfo<Operation>& parameter)
{
    return parameter.param == Operation::Execute ? "Execute" : "Capture";
}

INSTANTIATE_TEST_SUITE_P(Operations,
                         ChildSurroundingsTest,
                         testing::Values(Operation::Execute, Operation::Capture),
                         nameOf);

} // namespace
} // namespace TAV::test
