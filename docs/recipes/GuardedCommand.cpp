// Recipe: a child whose program cannot be started must not go on in the caller's code.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "support/TemporaryDirectory.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

using TAV::test::SacrificialProcess;
using TAV::test::SharedNotes;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

//! [guarded command]
/// Runs a command and returns in the caller only.
bool runGuarded(TAV::ITAVUtils& utils, const std::vector<std::string>& argv, const std::map<int, bool>* keep)
{
    if (argv.empty() || ::access(argv[0].c_str(), X_OK) != 0)
        return false; // most failures to start are found here, before any child exists
    const pid_t before = ::getpid();
    const bool succeeded = utils.executeSystemCommand(argv, keep);
    if (::getpid() != before)
    {
        // This is the child: end it without running the caller's destructors and exit handlers. With a pipe, the caller
        // waits for a word on standard error.
        const ssize_t told = ::write(STDERR_FILENO, "not started\n", 12);
        ::_exit(told < 0 ? 126 : 127);
    }
    return succeeded;
}
//! [guarded command]

const std::map<int, bool> kKeepNothing;

/// What each process that gets past a run of `program` finds as the result.
template <typename Run>
std::vector<std::string> resultsOf(const std::string& program, Run run, const std::map<int, bool>* keep = &kKeepNothing)
{
    SharedNotes results;
    SacrificialProcess process(
        [&]
        {
            TAV::test::RecordingLogger logger;
            TAV::TAVUtils utils(
                std::make_shared<TAV::TAVSystemUtils>(), logger, std::make_shared<TAV::kernelVersion>());
            results.add(run(utils, std::vector<std::string>{program}, keep) ? "true" : "false");
        });
    EXPECT_EQ(process.wait(), 0);
    return results.lines();
}

/// A file that may be executed, and of which the kernel makes no process.
std::string notAProgram(const TAV::test::TemporaryDirectory& directory)
{
    std::string path = directory.write("not-a-program",
                                       "\x7f"
                                       "ELF, but no more than that");
    EXPECT_EQ(::chmod(path.c_str(), 0700), 0);
    return path;
}

TEST(GuardedCommandTest, ReturnsOnceForProgramThatCannotBeStarted)
{
    const TAV::test::TemporaryDirectory directory;

    EXPECT_THAT(resultsOf(notAProgram(directory), runGuarded), ElementsAre("false"));
}

TEST(GuardedCommandTest, ReturnsOnceFromProgramThatCannotBeStartedOnPipe)
{
    const TAV::test::TemporaryDirectory directory;

    EXPECT_THAT(resultsOf(notAProgram(directory), runGuarded, nullptr), ElementsAre("false"));
}

TEST(GuardedCommandTest, ReturnsOnceForProgramThatIsMissing)
{
    EXPECT_THAT(resultsOf("/no/such/program", runGuarded), ElementsAre("false"));
}

TEST(GuardedCommandTest, TellsSuccess)
{
    EXPECT_THAT(resultsOf("/bin/true", runGuarded), ElementsAre("true"));
}

TEST(GuardedCommandTest, IsNeededBecausePlainCallReturnsTwice)
{
    const TAV::test::TemporaryDirectory directory;
    const auto runPlainly = [](TAV::ITAVUtils& utils, const auto& argv, const auto* keep)
    { return utils.executeSystemCommand(argv, keep); };

    // The child that came back runs to the end of this process's code and exits with 0, so the caller sees a success.
    EXPECT_THAT(resultsOf(notAProgram(directory), runPlainly), UnorderedElementsAre("false", "true"));
}

} // namespace
