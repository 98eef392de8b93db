// Recipe: run a command so that neither its silence nor its flood on standard error blocks the caller.

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <functional>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

using TAV::test::SacrificialProcess;
using TAV::test::SharedNotes;
using namespace std::chrono_literals;

//! [command that cannot block]
/// Runs a command without a standard-error pipe: its result is all that comes back. Standard input and output are the
/// caller's own, which in a daemon are /dev/null; standard error is /dev/null; nothing else is open.
bool runWithoutPipe(TAV::ITAVUtils& utils, const std::vector<std::string>& argv)
{
    const std::map<int, bool> keepInputAndOutput{{0, true}, {1, true}};
    const pid_t before = ::getpid();
    const bool succeeded = utils.executeSystemCommand(argv, &keepInputAndOutput);
    if (::getpid() != before)
        ::_exit(127);
    return succeeded;
}
//! [command that cannot block]

using Runner = std::function<bool(TAV::ITAVUtils&, const std::vector<std::string>&)>;

/// Runs a shell script in a process of its own.
/// @return "true" or "false", as the call says, or "blocked" if it has said nothing when the patience has run out
std::string resultOf(const std::string& script, const Runner& run, std::chrono::milliseconds patience)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            TAV::test::RecordingLogger logger;
            TAV::TAVUtils utils(
                std::make_shared<TAV::TAVSystemUtils>(), logger, std::make_shared<TAV::kernelVersion>());
            notes.add(run(utils, {"/bin/sh", "-c", script}) ? "true" : "false");
        });
    return process.wait(patience) ? notes.lines().at(0) : "blocked";
}

std::string resultOf(const std::string& script)
{
    return resultOf(script, runWithoutPipe, SacrificialProcess::kPatience);
}

constexpr const char* kFloodAndFail = "head -c 200000 /dev/zero >&2; exit 3";

TEST(CommandThatCannotBlockTest, TellsSuccess)
{
    EXPECT_EQ(resultOf("exit 0"), "true");
}

TEST(CommandThatCannotBlockTest, ComesBackFromSilentFailure)
{
    EXPECT_EQ(resultOf("exit 3"), "false");
}

TEST(CommandThatCannotBlockTest, ComesBackFromFloodOnStandardError)
{
    EXPECT_EQ(resultOf(kFloodAndFail), "false");
}

TEST(CommandThatCannotBlockTest, LeavesAllThreeStandardDescriptorsOpen)
{
    EXPECT_EQ(resultOf("for n in 0 1 2; do [ -e /proc/$$/fd/$n ] || exit 1; done"), "true");
}

TEST(CommandThatCannotBlockTest, IsNeededBecausePlainCallStaysBlocked)
{
    const Runner runPlainly = [](TAV::ITAVUtils& utils, const std::vector<std::string>& argv)
    { return utils.executeSystemCommand(argv, nullptr); };

    EXPECT_EQ(resultOf("exit 3", runPlainly, 500ms), "blocked");
    EXPECT_EQ(resultOf(kFloodAndFail, runPlainly, 500ms), "blocked");
}

} // namespace
