// A child whose program cannot be started does not end: the call returns in it too, and it goes on in the caller's
// code.

#include <gmock/gmock.h>
#include <sched.h>
#include <unistd.h>

#include <stdexcept>

#include "CommandScene.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;

const char* const kMissing = "/nonexistent/program";
const char* const kChildHasNoDevNull = "child logged [2] TAVUtils: Failed to open /dev/null";

TEST(ReturningChildTest, ExecuteReturnsFalseInBothAndTheChildLogsLikeACaller)
{
    EXPECT_THAT(notesOf([](TAVUtils& utils) { return utils.executeSystemCommand({kMissing}, &kKeepNothing); }),
                ElementsAre(startedNote({kMissing}, "child"),
                            waitFailedNote(Operation::Execute, "child"),
                            "child got false",
                            startedNote({kMissing}),
                            "caller got false"));
}

TEST(ReturningChildTest, CaptureReturnsFalseInBothAndTheChildLogsLikeACaller)
{
    EXPECT_THAT(
        notesOf([](TAVUtils& utils) { return runCommand(utils, Operation::Capture, {kMissing}, &kKeepNothing); }),
        ElementsAre(waitFailedNote(Operation::Capture, "child"),
                    "child got false",
                    failedNote(kExitOfReturnedChild << 8, "Bad file descriptor", " Stderr could not be read."),
                    "caller got false"));
}

TEST(ReturningChildTest, ReturnedChildsExitCodeIsTheCommandsEnd)
{
    EXPECT_EQ(notesOf([](TAVUtils& utils) { return utils.executeSystemCommand({kMissing}, nullptr); }, 0).back(),
              "caller got true");
    EXPECT_EQ(
        notesOf([](TAVUtils& utils) { return runCommand(utils, Operation::Capture, {kMissing}, nullptr); }, 0).back(),
        "caller got true");
}

/// Runs the missing program with a pipe for standard error, into which the returned child writes before it ends.
std::vector<std::string> notesWithLastWords(Operation operation)
{
    return notesOf(
        [operation](TAVUtils& utils)
        {
            const pid_t before = ::getpid();
            const bool result = runCommand(utils, operation, {kMissing}, nullptr);
            if (::getpid() != before && ::write(STDERR_FILENO, "no such program", 15) != 15)
                throw std::runtime_error("standard error of the returned child is not open");
            return result;
        });
}

TEST(ReturningChildTest, StandardErrorOfAChildReturnedFromExecuteIsStillThePipe)
{
    EXPECT_EQ(notesWithLastWords(Operation::Execute).back(), "caller got false");
}

TEST(ReturningChildTest, StandardErrorOfAChildReturnedFromCaptureIsStillThePipe)
{
    EXPECT_THAT(notesWithLastWords(Operation::Capture),
                ElementsAre(waitFailedNote(Operation::Capture, "child"),
                            "child got false",
                            failedNote(kExitOfReturnedChild << 8, "Success", " Stderr is - no such program"),
                            "caller got false"));
}

TEST(ReturningChildTest, ItsProcessIdTellsTheChildFromTheCaller)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            CommandScene scene;
            const pid_t before = ::getpid();
            scene.utils.executeSystemCommand({kMissing}, &kKeepNothing);
            if (::getpid() == before)
                notes.add("caller");
            else
                notes.add(::getppid() == before ? "child of the caller" : "stranger");
        });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_THAT(notes.lines(), ElementsAre("child of the caller", "caller"));
}

/// Makes an empty directory the root of this process, so that there is no /dev/null; also without privileges, where the
/// kernel allows user namespaces.
bool enterEmptyRoot(const TemporaryDirectory& directory)
{
    return ::chroot(directory.path().c_str()) == 0 ||
           (::unshare(CLONE_NEWUSER) == 0 && ::chroot(directory.path().c_str()) == 0);
}

bool canEnterEmptyRoot()
{
    const TemporaryDirectory directory;
    SacrificialProcess process([&] { ::_exit(enterEmptyRoot(directory) ? 0 : 1); });
    return process.wait() == 0;
}

/// Runs in a world without /dev/null. The child ends with 0, because with a pipe its silence would block the caller.
std::vector<std::string> notesWithoutDevNull(const std::function<bool(TAVUtils&)>& operation)
{
    const TemporaryDirectory directory;
    return notesOf(
        [&](TAVUtils& utils)
        {
            if (!enterEmptyRoot(directory))
                throw std::runtime_error("cannot change the root directory");
            return operation(utils);
        },
        0);
}

TEST(ReturningChildTest, ExecuteReturnsTrueInAChildWithoutDevNull)
{
    if (!canEnterEmptyRoot())
        GTEST_SKIP() << "needs the right to change the root directory";
    for (const KeepMap* keep : {static_cast<const KeepMap*>(nullptr), &kKeepNothing})
    {
        EXPECT_THAT(
            notesWithoutDevNull([keep](TAVUtils& utils) { return utils.executeSystemCommand({kMissing}, keep); }),
            ElementsAre(kChildHasNoDevNull, "child got true", startedNote({kMissing}), "caller got true"));
    }
}

TEST(ReturningChildTest, CaptureReturnsFalseInAChildWithoutDevNull)
{
    if (!canEnterEmptyRoot())
        GTEST_SKIP() << "needs the right to change the root directory";
    for (const KeepMap* keep : {static_cast<const KeepMap*>(nullptr), &kKeepNothing})
    {
        EXPECT_THAT(notesWithoutDevNull([keep](TAVUtils& utils)
                                        { return runCommand(utils, Operation::Capture, {kMissing}, keep); }),
                    ElementsAre(kChildHasNoDevNull, "child got false", "caller got true"));
    }
}

} // namespace
} // namespace TAV::test
