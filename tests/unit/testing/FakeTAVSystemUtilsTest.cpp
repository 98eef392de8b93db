// The system that a test steers, and the one that is imagined.
#include "tav/testing/FakeTAVSystemUtils.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "support/TemporaryDirectory.h"
#include "tav/testing/ImaginarySystem.h"

namespace TAV::test
{
namespace
{

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

/// All that an operation can write to, with values that none of them writes.
struct Outputs
{
    std::array<int, 2> fds{-7, -8};
    std::array<char, 4> buffer{'a', 'b', 'c', 'd'};
    int status = -9;
    struct stat info = {};

    bool areUntouched() const
    {
        return fds == Outputs{}.fds && buffer == Outputs{}.buffer && status == -9 && info.st_nlink == 0;
    }
};

/// One of the ten operations that tell their error.
struct Operation
{
    const char* name;
    const char* noted; ///< the call below
    long (*call)(ITAVSystemUtils& system, Outputs& out, int& err);
    void (*addStandIn)(FakeTAVSystemUtils& system); ///< one that answers 77 with error 78

    friend std::ostream& operator<<(std::ostream& out, const Operation& operation) { return out << operation.name; }
};

constexpr int kAnswer = 77;

int answer(int& err)
{
    err = 78;
    return kAnswer;
}

const Operation kOperations[] = {
    {"open",
     "open(/dev/null, 2)",
     [](ITAVSystemUtils& system, Outputs&, int& err) -> long { return system.open("/dev/null", O_RDWR, err); },
     [](FakeTAVSystemUtils& system) { system.onOpen = [](const std::string&, int, int& err) { return answer(err); }; }},
    {"read",
     "read(-1, 4)",
     [](ITAVSystemUtils& system, Outputs& out, int& err) -> long { return system.read(-1, out.buffer.data(), 4, err); },
     [](FakeTAVSystemUtils& system)
     { system.onRead = [](int, void*, std::size_t, int& err) -> ssize_t { return answer(err); }; }},
    {"close",
     "close(-1)",
     [](ITAVSystemUtils& system, Outputs&, int& err) -> long { return system.close(-1, err); },
     [](FakeTAVSystemUtils& system) { system.onClose = [](int, int& err) { return answer(err); }; }},
    {"setenv",
     "setenv(NAME, value, 1)",
     [](ITAVSystemUtils& system, Outputs&, int& err) -> long { return system.setenv("NAME", "value", 1, err); },
     [](FakeTAVSystemUtils& system)
     { system.onSetenv = [](const char*, const char*, int, int& err) { return answer(err); }; }},
    {"pipe",
     "pipe(flags 2048)",
     [](ITAVSystemUtils& system, Outputs& out, int& err) -> long { return system.pipe(out.fds, err, O_NONBLOCK); },
     [](FakeTAVSystemUtils& system)
     { system.onPipe = [](std::array<int, 2>&, int& err, int) { return answer(err); }; }},
    {"fork",
     "fork()",
     [](ITAVSystemUtils& system, Outputs&, int& err) -> long { return system.fork(err); },
     [](FakeTAVSystemUtils& system) { system.onFork = [](int& err) -> pid_t { return answer(err); }; }},
    {"waitpid",
     "waitpid(4711, 1)",
     [](ITAVSystemUtils& system, Outputs& out, int& err) -> long
     { return system.waitpid(4711, &out.status, WNOHANG, err); },
     [](FakeTAVSystemUtils& system)
     { system.onWaitpid = [](pid_t, int*, int, int& err) -> pid_t { return answer(err); }; }},
    {"mkdir",
     "mkdir(/dev/null/directory, 448)",
     [](ITAVSystemUtils& system, Outputs&, int& err) -> long
     { return system.mkdir("/dev/null/directory", S_IRWXU, err); },
     [](FakeTAVSystemUtils& system)
     { system.onMkdir = [](const std::string&, mode_t, int& err) { return answer(err); }; }},
    {"dup2",
     "dup2(-1, 3)",
     [](ITAVSystemUtils& system, Outputs&, int& err) -> long { return system.dup2(-1, 3, err); },
     [](FakeTAVSystemUtils& system) { system.onDup2 = [](int, int, int& err) { return answer(err); }; }},
    {"stat",
     "stat(/dev/null)",
     [](ITAVSystemUtils& system, Outputs& out, int& err) -> long { return system.stat("/dev/null", &out.info, err); },
     [](FakeTAVSystemUtils& system)
     { system.onStat = [](const char*, struct stat*, int& err) { return answer(err); }; }},
};

class FakeTAVSystemUtilsTest : public testing::TestWithParam<Operation>
{
protected:
    long call() { return GetParam().call(system, out, err); }

    FakeTAVSystemUtils system;
    Outputs out;
    int err = 0;
};

TEST_P(FakeTAVSystemUtilsTest, FailsWithTheChosenErrorAndLeavesItsOutputsAlone)
{
    GetParam().addStandIn(system); // is not asked: the failure comes first
    for (const int error : {ENOSPC, EINTR})
    {
        system.failCall(GetParam().name, 1, error);
        EXPECT_EQ(call(), -1);
        EXPECT_EQ(err, error);
        EXPECT_TRUE(out.areUntouched());
    }
    EXPECT_TRUE(system.hasFailed());
    EXPECT_THAT(system.calls(), ElementsAre(GetParam().noted, GetParam().noted));
    EXPECT_EQ(call(), kAnswer) << "no further call fails";
}

TEST_P(FakeTAVSystemUtilsTest, AsksItsStandIn)
{
    GetParam().addStandIn(system);
    EXPECT_EQ(call(), kAnswer);
    EXPECT_EQ(err, 78);
    EXPECT_THAT(system.calls(), ElementsAre(GetParam().noted));
    EXPECT_EQ(system.countOf(GetParam().name), 1U);
}

TEST_P(FakeTAVSystemUtilsTest, CountsForASweep)
{
    GetParam().addStandIn(system);
    system.failAnyCall(2, EIO);
    EXPECT_EQ(call(), kAnswer);
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(err, EIO);
}

INSTANTIATE_TEST_SUITE_P(Operations,
                         FakeTAVSystemUtilsTest,
                         testing::ValuesIn(kOperations),
                         testing::PrintToStringParamName());

/// Without plans and stand-ins.
class ForwardingTest : public testing::Test
{
protected:
    TemporaryDirectory directory;
    FakeTAVSystemUtils system;
    int err = 0;
};

TEST_F(ForwardingTest, DescriptorsAreReal)
{
    const std::string path = directory.write("file", "content");
    std::array<char, 16> buffer{};
    const int fd = system.open(path, O_RDONLY | O_CLOEXEC, err);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(system.read(fd, buffer.data(), 4, err), 4);
    EXPECT_STREQ(buffer.data(), "cont");

    const int other = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(system.dup2(fd, other, err), other);
    EXPECT_EQ(::read(other, buffer.data(), 3), 3) << "the same file";
    EXPECT_EQ(system.close(other, err), 0);
    EXPECT_EQ(system.close(fd, err), 0);
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(system.close(fd, err), -1);
    EXPECT_EQ(err, EBADF);
}

TEST_F(ForwardingTest, PipesAreReal)
{
    std::array<int, 2> fds{-1, -1};
    ASSERT_EQ(system.pipe(fds, err, O_CLOEXEC | O_NONBLOCK), 0);
    char byte = 0;
    EXPECT_EQ(system.read(fds[0], &byte, 1, err), -1);
    EXPECT_EQ(err, EAGAIN) << "flags arrive";
    EXPECT_EQ(::write(fds[1], "x", 1), 1);
    EXPECT_EQ(system.read(fds[0], &byte, 1, err), 1);
    EXPECT_EQ(byte, 'x');
    for (const int fd : fds)
        EXPECT_EQ(system.close(fd, err), 0);
}

TEST_F(ForwardingTest, PathsAreReal)
{
    struct stat info = {};
    EXPECT_EQ(system.stat(directory.file("new").c_str(), &info, err), -1);
    EXPECT_EQ(err, ENOENT);
    EXPECT_EQ(system.mkdir(directory.file("new"), S_IRWXU, err), 0);
    EXPECT_EQ(system.stat(directory.file("new").c_str(), &info, err), 0);
    EXPECT_EQ(info.st_mode, S_IFDIR | S_IRWXU);
    EXPECT_EQ(system.mkdir(directory.file("new"), S_IRWXU, err), -1);
    EXPECT_EQ(err, EEXIST);
}

TEST_F(ForwardingTest, TheEnvironmentIsReal)
{
    constexpr const char* kVariable = "TAV_FORWARDING_TEST";
    EXPECT_EQ(system.setenv(kVariable, "first", 1, err), 0);
    EXPECT_EQ(system.setenv(kVariable, "second", 0, err), 0);
    EXPECT_STREQ(std::getenv(kVariable), "first");
    ::unsetenv(kVariable);
}

TEST_F(ForwardingTest, ProcessesAreReal)
{
    const pid_t pid = system.fork(err);
    if (pid == 0)
        ::_exit(3);
    ASSERT_GT(pid, 0);
    int status = 0;
    EXPECT_EQ(system.waitpid(pid, &status, 0, err), pid);
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_EQ(system.waitpid(pid, &status, 0, err), -1);
    EXPECT_EQ(err, ECHILD);
}

TEST_F(ForwardingTest, StreamsAreReal)
{
    const std::string path = directory.file("file");
    std::ofstream output;
    system.openOutputFile(output, path);
    output << "written" << std::flush;
    std::ifstream input;
    system.openInputFile(input, path);
    std::string word;
    input >> word;
    EXPECT_EQ(word, "written");
    EXPECT_THAT(system.calls(), ElementsAre("openOutputFile(" + path + ")", "openInputFile(" + path + ")"));
}

TEST_F(ForwardingTest, APlannedFailureLeavesAStreamClosed)
{
    const std::string path = directory.file("file");
    system.failAnyCall(1, EACCES, Lasting::FromThenOn);
    std::ofstream output;
    std::ifstream input;
    system.openOutputFile(output, path);
    system.openInputFile(input, "/dev/null");
    EXPECT_FALSE(output.is_open());
    EXPECT_FALSE(input.is_open());
    EXPECT_NE(::access(path.c_str(), F_OK), 0) << "nothing was made";
    EXPECT_THAT(system.calls(), ElementsAre("openOutputFile(" + path + ")", "openInputFile(/dev/null)"));
    system.succeed();
    system.failCall("openInputFile", 1);
    system.openOutputFile(output, path);
    EXPECT_TRUE(output.is_open());
}

TEST_F(ForwardingTest, StandInsMayOpenAnotherFile)
{
    const std::string path = directory.write("other", "other content");
    system.onOpenInputFile = [&](std::ifstream& stream, const std::string& asked)
    {
        EXPECT_EQ(asked, "/proc/cpuinfo");
        stream.open(path);
    };
    system.onOpenOutputFile = [&](std::ofstream& stream, const std::string& asked)
    {
        EXPECT_EQ(asked, "/sys/file");
        stream.open(directory.file("written"));
    };
    std::ifstream input;
    std::ofstream output;
    system.openInputFile(input, "/proc/cpuinfo");
    system.openOutputFile(output, "/sys/file");
    output << "text" << std::flush;
    std::string word;
    input >> word;
    EXPECT_EQ(word, "other");
    EXPECT_EQ(readFile(directory.file("written")), "text");
}

class ImaginarySystemTest : public testing::Test
{
protected:
    ImaginarySystem system;
    std::array<int, 2> fds{-1, -1};
    int err = 0;
};

TEST_F(ImaginarySystemTest, GivesTheDescriptorsOfTheTest)
{
    system.pipeFds = {7, 9};
    system.nullFd = 11;
    EXPECT_EQ(system.pipe(fds, err, 0), 0);
    EXPECT_THAT(fds, ElementsAre(7, 9));
    EXPECT_EQ(system.open("/dev/null", O_RDWR, err), 11);
    EXPECT_EQ(system.dup2(11, 1, err), 1);
    EXPECT_THAT(system.openFds, ElementsAre(7, 9)) << "pipes only";
}

TEST_F(ImaginarySystemTest, KnowsWhichEndsOfPipesAreOpen)
{
    system.pipe(fds, err, 0);
    system.pipe(fds, err, 0);
    EXPECT_THAT(system.openFds, ElementsAre(40, 40, 41, 41));
    EXPECT_EQ(system.close(40, err), 0);
    EXPECT_THAT(system.openFds, ElementsAre(40, 41, 41)) << "one at a time";
    EXPECT_EQ(system.close(40, err), 0);
    EXPECT_EQ(system.close(40, err), -1);
    EXPECT_EQ(err, EBADF);
    EXPECT_EQ(system.close(50, err), -1) << "no end of a pipe";
    EXPECT_EQ(err, EBADF);
}

TEST_F(ImaginarySystemTest, TouchesNoRealDescriptor)
{
    const int real = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    system.pipeFds = {real, real};
    system.pipe(fds, err, 0);
    EXPECT_EQ(system.close(real, err), 0);
    EXPECT_EQ(system.close(real, err), 0);
    EXPECT_THAT(system.openFds, IsEmpty());
    EXPECT_NE(::fcntl(real, F_GETFD), -1);
    ::close(real);
}

TEST_F(ImaginarySystemTest, TheChildEndsAsTheTestSays)
{
    int status = -1;
    EXPECT_EQ(system.fork(err), 4711);
    EXPECT_EQ(system.waitpid(4711, &status, 0, err), 4711);
    EXPECT_EQ(status, 0);
    system.pid = 0;
    system.status = 3 << 8;
    EXPECT_EQ(system.fork(err), 0) << "the caller is the child";
    EXPECT_EQ(system.waitpid(5, &status, 0, err), 5);
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(ImaginarySystemTest, ReadingGivesTheTextAsFarAsItFits)
{
    std::array<char, 16> buffer{};
    EXPECT_EQ(system.read(40, buffer.data(), buffer.size(), err), 10);
    EXPECT_STREQ(buffer.data(), "went wrong");
    system.stderrText = "other";
    EXPECT_EQ(system.read(40, buffer.data(), 3, err), 3);
    EXPECT_STREQ(buffer.data(), "otht wrong");
    system.stderrText.clear();
    EXPECT_EQ(system.read(40, buffer.data(), 3, err), 0);
}

TEST_F(ImaginarySystemTest, FailsAsItsPlanSays)
{
    const auto plan = std::make_shared<FaultPlan>();
    ImaginarySystem planned(plan);
    plan->failCall("pipe", 1, EMFILE);
    EXPECT_EQ(planned.pipe(fds, err, 0), -1);
    EXPECT_EQ(err, EMFILE);
    EXPECT_THAT(fds, Each(-1));
    EXPECT_THAT(planned.openFds, IsEmpty());
}

TEST_F(ImaginarySystemTest, SeveralThreadsMayRunCommands)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                std::array<int, 2> own{};
                int ownErr = 0;
                for (int n = 0; n < 100; ++n)
                {
                    system.pipe(own, ownErr, 0);
                    system.close(own[0], ownErr);
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(system.openFds.count(40), 0U);
    EXPECT_EQ(system.openFds.count(41), 400U);
}

/// The state of a child that ended; none if it had to be killed because it did not.
std::optional<int> endOf(pid_t pid)
{
    int status = 0;
    for (const auto last = std::chrono::steady_clock::now() + std::chrono::seconds(20);
         std::chrono::steady_clock::now() < last;
         std::this_thread::sleep_for(std::chrono::microseconds(200)))
    {
        if (::waitpid(pid, &status, WNOHANG) == pid)
            return status;
    }
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    return std::nullopt;
}

TEST(FakeTAVSystemUtilsTest, AChildMayGoOnWithItWhateverOtherThreadsDid)
{
    FakeTAVSystemUtils system;
    system.onClose = [](int, int&) { return 0; };
    int err = 0;
    for (int entry = 0; entry < 1000; ++entry) // so that whoever reads them holds the lock for long
        system.close(-1, err);
    system.onCall = [](const std::string&) { std::this_thread::sleep_for(std::chrono::microseconds(200)); };
    std::atomic<bool> isOver{false};
    std::thread other(
        [&]
        {
            while (!isOver)
                static_cast<void>(system.calls());
        });
    std::optional<int> end = 0;
    for (int run = 0; run < 50 && end == 0; ++run)
    {
        const pid_t pid = system.fork(err);
        if (pid == 0)
        {
            system.close(-1, err);
            ::_exit(system.hasFailed() ? 1 : 0);
        }
        end = endOf(pid);
    }
    isOver = true;
    other.join();
    EXPECT_EQ(end, 0);
}

} // namespace
} // namespace TAV::test
