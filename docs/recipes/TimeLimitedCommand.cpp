// Recipe: end a command that takes too long, although it ignores SIGTERM and the call has no time-out.

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

using TAV::test::SacrificialProcess;
using TAV::test::SharedNotes;

//! [time-limited command]
/// Runs a command under timeout(1), which ends it with SIGKILL after so many seconds. That gives false.
bool runWithin(unsigned int seconds, TAV::ITAVUtils& utils, const std::vector<std::string>& argv)
{
    std::vector<std::string> limited{"/usr/bin/timeout", "--signal=KILL", std::to_string(seconds)};
    limited.insert(limited.end(), argv.begin(), argv.end());
    const std::map<int, bool> keepInputAndOutput{{0, true}, {1, true}}; // a killed command is a silent failure
    const pid_t before = ::getpid();
    const bool succeeded = utils.executeSystemCommand(limited, &keepInputAndOutput);
    if (::getpid() != before)
        ::_exit(127);
    return succeeded;
}
//! [time-limited command]

/// Runs a script within a time, in a process of its own.
std::string resultOf(unsigned int seconds, const std::string& script)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            TAV::test::RecordingLogger logger;
            TAV::TAVUtils utils(
                std::make_shared<TAV::TAVSystemUtils>(), logger, std::make_shared<TAV::kernelVersion>());
            notes.add(runWithin(seconds, utils, {"/bin/sh", "-c", script}) ? "true" : "false");
        });
    return process.wait() ? notes.lines().at(0) : "blocked";
}

TEST(TimeLimitedCommandTest, EndsCommandThatTakesTooLong)
{
    EXPECT_EQ(resultOf(1, "sleep 3600"), "false");
}

TEST(TimeLimitedCommandTest, TellsResultOfCommandInTime)
{
    EXPECT_EQ(resultOf(3600, "exit 0"), "true");
    EXPECT_EQ(resultOf(3600, "exit 3"), "false");
}

} // namespace
