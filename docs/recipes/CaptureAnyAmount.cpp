// Recipe: capture a command's output, however long it is.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <thread>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

using TAV::test::SacrificialProcess;
using TAV::test::SharedNotes;

//! [capture any amount]
void readToEnd(int fd, std::string& text)
{
    std::array<char, 4096> piece;
    ssize_t size = 0;
    do
    {
        size = ::read(fd, piece.data(), piece.size());
        if (size > 0)
            text.append(piece.data(), static_cast<std::size_t>(size));
    } while (size > 0 || (size < 0 && errno == EINTR));
}

/// Runs a command and collects its standard output, while a second thread keeps the pipe from filling up.
bool captureAll(TAV::ITAVUtils& utils, const std::vector<std::string>& argv, std::string& output)
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) // children of other threads must not hold the write end
        return false;
    std::thread reader([&] { readToEnd(ends[0], output); });

    const std::map<int, bool> keepNothing; // so no pipe for standard error, which could block the call
    const pid_t before = ::getpid();
    const bool succeeded = utils.readSystemCommandOutput(argv, &keepNothing, ends.data());
    if (::getpid() != before)
        ::_exit(127);

    ::close(ends[1]); // the last write end: the reader now comes to the end
    reader.join();
    ::close(ends[0]);
    return succeeded;
}
//! [capture any amount]

/// Captures what a script prints, in a process of its own.
/// @return "true" or "false", and the number of bytes
std::vector<std::string> captureScript(const std::string& script)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            TAV::test::RecordingLogger logger;
            TAV::TAVUtils utils(
                std::make_shared<TAV::TAVSystemUtils>(), logger, std::make_shared<TAV::kernelVersion>());
            std::string output;
            const bool succeeded = captureAll(utils, {"/bin/sh", "-c", script}, output);
            notes.add(std::string(succeeded ? "true " : "false ") + std::to_string(output.size()));
        });
    EXPECT_EQ(process.wait(), 0);
    return notes.lines();
}

TEST(CaptureAnyAmountTest, CollectsMoreThanPipeHolds)
{
    EXPECT_EQ(captureScript("head -c 1000000 /dev/zero"), std::vector<std::string>{"true 1000000"});
}

TEST(CaptureAnyAmountTest, CollectsWhatFailingCommandPrinted)
{
    EXPECT_EQ(captureScript("echo half; exit 3"), std::vector<std::string>{"false 5"});
}

TEST(CaptureAnyAmountTest, ComesToTheEndOfCommandThatPrintsNothing)
{
    EXPECT_EQ(captureScript(":"), std::vector<std::string>{"true 0"});
}

} // namespace
