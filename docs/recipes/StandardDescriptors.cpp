// Recipe: have descriptors 0, 1 and 2 open, so that no pipe of a command lands there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <iterator>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

using testing::ElementsAre;

//! [standard descriptors]
/// Opens /dev/null on whichever of the descriptors 0, 1 and 2 is closed. Call it first of all in main.
void openStandardDescriptors()
{
    int fd = ::open("/dev/null", O_RDWR); // the lowest free number; without O_CLOEXEC, as these three should be
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = ::dup(fd);
    if (fd > STDERR_FILENO)
        ::close(fd);
}
//! [standard descriptors]

std::ptrdiff_t openDescriptors()
{
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open)) - 1; // without the iterator's own
}

/// What a failing command leaves behind: how many descriptors more than before, and its last line.
std::string failingCommand(TAV::TAVUtils& utils, const TAV::test::RecordingLogger& logger)
{
    const std::ptrdiff_t before = openDescriptors();
    utils.executeSystemCommand({"/bin/sh", "-c", "echo reason >&2; exit 1"}, nullptr);
    return std::to_string(openDescriptors() - before) + " more, " + logger.lines().back().message;
}

/// What a captured command gives.
std::string capturedCommand(TAV::TAVUtils& utils)
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return "no pipe";
    const std::map<int, bool> keepNothing;
    const pid_t before = ::getpid();
    const bool succeeded =
        utils.readSystemCommandOutput({"/bin/sh", "-c", "echo words; exit 0"}, &keepNothing, ends.data());
    if (::getpid() != before)
        ::_exit(127);
    ::close(ends[1]);
    std::array<char, 100> text{};
    const ssize_t size = ::read(ends[0], text.data(), text.size());
    ::close(ends[0]);
    return (succeeded ? "true, " : "false, ") + std::to_string(size) + " bytes";
}

/// Both commands, in a process of its own without these descriptors, after `prepare`.
std::vector<std::string> resultsWithout(const std::vector<int>& closed, const std::function<void()>& prepare)
{
    TAV::test::SharedNotes notes;
    TAV::test::SacrificialProcess process(
        [&]
        {
            for (const int fd : closed)
                ::close(fd);
            prepare();
            TAV::test::RecordingLogger logger;
            TAV::TAVUtils utils(
                std::make_shared<TAV::TAVSystemUtils>(), logger, std::make_shared<TAV::kernelVersion>());
            notes.add(capturedCommand(utils));
            notes.add(failingCommand(utils, logger));
        });
    EXPECT_EQ(process.wait(), 0);
    return notes.lines();
}

constexpr const char* kStarted =
    "0 more, Child process called to execute the system command :  /bin/sh -c echo reason >&2; exit 1";

TEST(StandardDescriptorsTest, MakesCommandsWorkWhicheverIsClosed)
{
    const std::vector<std::vector<int>> cases{{}, {0}, {1}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}};
    for (const auto& closed : cases)
        EXPECT_THAT(resultsWithout(closed, openStandardDescriptors), ElementsAre("true, 6 bytes", kStarted))
            << testing::PrintToString(closed);
}

TEST(StandardDescriptorsTest, IsNeededBecausePipesLandOnClosedOnes)
{
    const auto doNothing = [] {};

    EXPECT_THAT(resultsWithout({0}, doNothing),
                ElementsAre("true, 6 bytes", "2 more, Stderr is not available to read"));
    EXPECT_THAT(resultsWithout({1}, doNothing), ElementsAre("true, 0 bytes", kStarted));
    EXPECT_THAT(resultsWithout({2}, doNothing), ElementsAre("false, 0 bytes", kStarted));
}

} // namespace
