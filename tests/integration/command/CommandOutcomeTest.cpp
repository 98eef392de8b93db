// How a command's end shows in the caller: result, log lines, captured text, descriptors.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "CommandScene.h"
#include "support/SacrificialProcess.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using Strings = std::vector<std::string>;

/// The first 200 bytes of the digits that tav_act writes.
std::string twoHundredDigits()
{
    std::string text;
    for (int i = 0; i < 20; ++i)
        text += "0123456789";
    return text;
}

/// argv for a child that takes these steps.
Strings act(const Strings& steps)
{
    Strings argv = {kAct};
    argv.insert(argv.end(), steps.begin(), steps.end());
    return argv;
}

struct Outcome
{
    Strings argv;
    bool result = false;
    int status = 0;
    std::string captureText = {}; ///< what follows the error text in the line that capture logs
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    return out << testing::PrintToString(outcome.argv);
}

/// Without a pipe for standard error every end is safe, also a silent one.
const std::vector<Outcome> kWithoutPipe = {
    {act({}), true},
    {act({"exit=0"}), true},
    {act({"out=text", "err=text"}), true},
    {act({"err#100000"}), true}, // more than a pipe holds, and no pipe to fill
    {act({"kill=15"}), true},    // ignored
    {act({"kill=2"}), true},     // ignored
    {act({"exit=1"}), false, 0x0100},
    {act({"exit=255"}), false, 0xff00},
    {act({"err=text", "exit=3"}), false, 0x0300},
    {act({"kill=9"}), false, 9},
    {act({"kill=10"}), false, 10},
    {{"/bin/true"}, true},
    {{"/bin/false"}, false, 0x0100},
};

/// With one, a failing child has to write something.
const std::vector<Outcome> kWithPipe = {
    {act({}), true},
    {act({"out=text", "err=text"}), true},
    {act({"err#65536"}), true}, // exactly what a pipe holds
    {act({"kill=15", "kill=2"}), true},
    {act({"err=some text", "exit=1"}), false, 0x0100, " Stderr is - some text"},
    {act({"err=some text", "exit=255"}), false, 0xff00, " Stderr is - some text"},
    {act({"err=one", "err=two", "exit=7"}), false, 0x0700, " Stderr is - onetwo"},
    {act({"err=killed soon", "kill=9"}), false, 9, " Stderr is - killed soon"},
    {act({"err#199", "exit=1"}), false, 0x0100, " Stderr is - " + twoHundredDigits().substr(0, 199)},
    {act({"err#200", "exit=1"}), false, 0x0100, " Stderr is - " + twoHundredDigits()},
    {act({"err#201", "exit=1"}), false, 0x0100, " Stderr is - " + twoHundredDigits()},
    {act({"err#60000", "exit=1"}), false, 0x0100, " Stderr is - " + twoHundredDigits()},
    {{"/bin/sh", "-c", "printf 'ab\\0cd' >&2; exit 1"}, false, 0x0100, " Stderr is - ab"},
};

const KeepMap kKeepStderr = {{2, true}};

std::string gotNote(bool result)
{
    return result ? "caller got true" : "caller got false";
}

std::function<bool(TAVUtils&)> capturing(const Strings& argv, const KeepMap* keep)
{
    return [&argv, keep](TAVUtils& utils) { return runCommand(utils, Operation::Capture, argv, keep); };
}

TEST(CommandOutcomeTest, ExecuteWithoutPipeTellsTheEndAndLogsOnlyTheCommand)
{
    for (const Outcome& outcome : kWithoutPipe)
    {
        EXPECT_THAT(notesOf([&](TAVUtils& utils) { return utils.executeSystemCommand(outcome.argv, &kKeepNothing); }),
                    ElementsAre(startedNote(outcome.argv), gotNote(outcome.result)))
            << outcome;
    }
}

TEST(CommandOutcomeTest, ExecuteWithPipeTellsTheEndAndLogsOnlyTheCommand)
{
    for (const Outcome& outcome : kWithPipe)
    {
        for (const KeepMap* keep : {static_cast<const KeepMap*>(nullptr), &kKeepStderr})
        {
            EXPECT_THAT(notesOf([&](TAVUtils& utils) { return utils.executeSystemCommand(outcome.argv, keep); }),
                        ElementsAre(startedNote(outcome.argv), gotNote(outcome.result)))
                << outcome;
        }
    }
}

TEST(CommandOutcomeTest, CaptureWithoutPipeLogsThatStderrCouldNotBeRead)
{
    for (const Outcome& outcome : kWithoutPipe)
    {
        Strings expected = {gotNote(outcome.result)};
        if (!outcome.result)
            expected.insert(expected.begin(),
                            failedNote(outcome.status, "Bad file descriptor", " Stderr could not be read."));
        EXPECT_EQ(notesOf(capturing(outcome.argv, &kKeepNothing)), expected) << outcome;
    }
}

TEST(CommandOutcomeTest, CaptureWithPipeLogsTheStartOfStderr)
{
    for (const Outcome& outcome : kWithPipe)
    {
        Strings expected = {gotNote(outcome.result)};
        if (!outcome.result)
            expected.insert(expected.begin(), failedNote(outcome.status, "Success", outcome.captureText));
        for (const KeepMap* keep : {static_cast<const KeepMap*>(nullptr), &kKeepStderr})
            EXPECT_EQ(notesOf(capturing(outcome.argv, keep)), expected) << outcome;
    }
}

TEST(CommandOutcomeTest, CallerReadsTheCapturedBytes)
{
    struct Case
    {
        Strings argv;
        std::string text;
    };
    const std::vector<Case> cases = {
        {act({"out=abc"}), "abc"},
        {act({}), ""},
        {act({"out=before", "err=reason", "exit=1"}), "before"},
        {{"/bin/sh", "-c", "printf 'a\\0b\\377'"}, std::string("a\0b\xff", 4)},
        {act({"out#250"}), twoHundredDigits() + twoHundredDigits().substr(0, 50)},
    };
    for (const Case& run : cases)
    {
        for (const KeepMap* keep : {static_cast<const KeepMap*>(nullptr), &kKeepNothing})
        {
            SharedNotes notes;
            SacrificialProcess process(
                [&]
                {
                    CommandScene scene;
                    OutputPipe pipe;
                    noteRun(notes,
                            scene.logger,
                            [&] { return scene.utils.readSystemCommandOutput(run.argv, keep, pipe.ends()); });
                    notes.add(pipe.takeText() == run.text ? "same" : "different");
                });
            ASSERT_EQ(process.wait(), 0);
            EXPECT_EQ(notes.lines().back(), "same") << testing::PrintToString(run.argv);
        }
    }
}

TEST(CommandOutcomeTest, OutputThatJustFillsThePipeIsCaptured)
{
    const Strings argv = act({"out#65536"});
    EXPECT_THAT(notesOf(capturing(argv, nullptr)), ElementsAre("caller got true"));
}

TEST(CommandOutcomeTest, BothEndsOfTheOutputPipeStayOpenInTheCaller)
{
    for (const char* step : {"exit=0", "exit=1"})
    {
        SharedNotes notes;
        SacrificialProcess process(
            [&]
            {
                CommandScene scene;
                OutputPipe pipe;
                scene.utils.readSystemCommandOutput(act({step}), &kKeepNothing, pipe.ends());
                char byte = 'x';
                notes.add(std::to_string(::write(pipe.ends()[1], &byte, 1)));
                notes.add(std::to_string(::read(pipe.ends()[0], &byte, 1)));
            });
        ASSERT_EQ(process.wait(), 0);
        EXPECT_THAT(notes.lines(), ElementsAre("1", "1"));
    }
}

/// Interrupts the process again and again until its end, but not so often that no fork is ever complete.
void keepInterrupting()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &action, nullptr); // without SA_RESTART
    const struct itimerval every = {{0, 100000}, {0, 100000}};
    ::setitimer(ITIMER_REAL, &every, nullptr);
}

Strings notesOfInterrupted(Operation operation)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            CommandScene scene;
            keepInterrupting();
            noteRun(notes, scene.logger, [&] { return runCommand(scene.utils, operation, act({"wait"}), nullptr); });
            notes.add(::waitpid(-1, nullptr, WNOHANG) == 0 ? "child left running" : "no child");
        });
    EXPECT_EQ(process.wait(), 0);
    return notes.lines();
}

TEST(CommandOutcomeTest, InterruptedWaitIsNotRepeatedByExecute)
{
    EXPECT_THAT(notesOfInterrupted(Operation::Execute),
                ElementsAre(startedNote(act({"wait"})),
                            waitFailedNote(Operation::Execute, "caller"),
                            "caller got false",
                            "child left running"));
}

TEST(CommandOutcomeTest, InterruptedWaitIsNotRepeatedByCapture)
{
    EXPECT_THAT(notesOfInterrupted(Operation::Capture),
                ElementsAre(waitFailedNote(Operation::Capture, "caller"), "caller got false", "child left running"));
}

} // namespace
} // namespace TAV::test
