#include "tav/TAVSystemUtils.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace TAV
{
namespace
{

using test::TemporaryDirectory;

/// A value that no call stores.
constexpr int kUntouched = 4242;

/// A descriptor that is surely not open.
constexpr int kNoDescriptor = -1;

class TAVSystemUtilsTest : public ::testing::Test
{
protected:
    static bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) >= 0; }
    static bool closesOnExec(int fd) { return (::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }
    static bool isNonBlocking(int fd) { return (::fcntl(fd, F_GETFL) & O_NONBLOCK) != 0; }

    void closeBoth(const std::array<int, 2>& fds)
    {
        for (const int fd : fds)
            EXPECT_EQ(m_system.close(fd, m_err), 0);
    }

    TAVSystemUtils m_system;
    int m_err = kUntouched;
    TemporaryDirectory m_directory;
};

TEST_F(TAVSystemUtilsTest, OpensWithTheGivenFlags)
{
    const std::string path = m_directory.write("file", "abc");
    for (const int flags : {O_RDONLY, O_WRONLY, O_RDWR, O_RDWR | O_APPEND})
    {
        const int fd = m_system.open(path, flags, m_err);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(::fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND), flags);
        EXPECT_FALSE(closesOnExec(fd)) << "nothing is added to the flags";
        EXPECT_EQ(m_system.close(fd, m_err), 0);
    }
    EXPECT_EQ(m_err, kUntouched);
}

TEST_F(TAVSystemUtilsTest, OpensDevNullForBoth)
{
    const int fd = m_system.open("/dev/null", 2, m_err);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(::fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_EQ(m_system.close(fd, m_err), 0);
}

TEST_F(TAVSystemUtilsTest, ReportsWhyItCannotOpen)
{
    const std::string file = m_directory.write("file", "");
    const std::vector<std::tuple<std::string, int, int>> expected{
        {m_directory.file("missing"), O_RDONLY, ENOENT},
        {"", O_RDONLY, ENOENT},
        {file + "/below", O_RDONLY, ENOTDIR},
        {m_directory.path(), O_RDWR, EISDIR},
        {std::string(5000, 'x'), O_RDONLY, ENAMETOOLONG},
    };
    for (const auto& [path, flags, err] : expected)
    {
        m_err = kUntouched;
        EXPECT_EQ(m_system.open(path, flags, m_err), -1) << path;
        EXPECT_EQ(m_err, err) << path;
    }
}

TEST_F(TAVSystemUtilsTest, ReadsWhatIsThere)
{
    const int fd = m_system.open(m_directory.write("file", "abcde"), O_RDONLY, m_err);
    std::array<char, 4> buffer{};
    EXPECT_EQ(m_system.read(fd, buffer.data(), 3, m_err), 3);
    EXPECT_EQ(std::string(buffer.data()), "abc") << "the byte after the count stays as it was";
    EXPECT_EQ(m_system.read(fd, buffer.data(), 3, m_err), 2);
    EXPECT_EQ(m_system.read(fd, buffer.data(), 3, m_err), 0);
    EXPECT_EQ(m_system.read(fd, buffer.data(), 0, m_err), 0);
    EXPECT_EQ(m_err, kUntouched);
    EXPECT_EQ(m_system.close(fd, m_err), 0);
}

TEST_F(TAVSystemUtilsTest, ReportsWhyItCannotRead)
{
    char byte = 'x';
    EXPECT_EQ(m_system.read(kNoDescriptor, &byte, 1, m_err), -1);
    EXPECT_EQ(m_err, EBADF);

    const int fd = m_system.open(m_directory.path(), O_RDONLY, m_err);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(m_system.read(fd, &byte, 1, m_err), -1);
    EXPECT_EQ(m_err, EISDIR);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(m_system.close(fd, m_err), 0);
}

TEST_F(TAVSystemUtilsTest, Closes)
{
    const int fd = m_system.open("/dev/null", O_RDWR, m_err);
    ASSERT_TRUE(isOpen(fd));
    EXPECT_EQ(m_system.close(fd, m_err), 0);
    EXPECT_FALSE(isOpen(fd));
    EXPECT_EQ(m_err, kUntouched);
}

TEST_F(TAVSystemUtilsTest, ReportsWhyItCannotClose)
{
    EXPECT_EQ(m_system.close(kNoDescriptor, m_err), -1);
    EXPECT_EQ(m_err, EBADF);
}

TEST_F(TAVSystemUtilsTest, SetsTheEnvironment)
{
    const char* const name = "TAV_SYSTEM_UTILS_TEST";
    EXPECT_EQ(m_system.setenv(name, "first", 1, m_err), 0);
    EXPECT_STREQ(std::getenv(name), "first");
    EXPECT_EQ(m_system.setenv(name, "second", 0, m_err), 0);
    EXPECT_STREQ(std::getenv(name), "first");
    EXPECT_EQ(m_system.setenv(name, "third", 1, m_err), 0);
    EXPECT_STREQ(std::getenv(name), "third");
    EXPECT_EQ(m_err, kUntouched);
    ::unsetenv(name);
}

TEST_F(TAVSystemUtilsTest, ReportsWhyItCannotSetTheEnvironment)
{
    for (const char* const name : {"", "A=B", "="})
    {
        m_err = kUntouched;
        EXPECT_EQ(m_system.setenv(name, "value", 1, m_err), -1) << name;
        EXPECT_EQ(m_err, EINVAL) << name;
    }
}

TEST_F(TAVSystemUtilsTest, MakesAPipeWithTheReadEndFirst)
{
    std::array<int, 2> fds{kNoDescriptor, kNoDescriptor};
    ASSERT_EQ(m_system.pipe(fds, m_err, 0), 0);
    ASSERT_EQ(::write(fds[1], "abc", 3), 3);
    std::array<char, 3> buffer{};
    EXPECT_EQ(m_system.read(fds[0], buffer.data(), buffer.size(), m_err), 3);
    EXPECT_EQ(std::string(buffer.data(), 3), "abc");
    closeBoth(fds);
    EXPECT_EQ(m_err, kUntouched);
}

TEST_F(TAVSystemUtilsTest, MakesAPipeWithTheGivenFlagsOnBothEnds)
{
    for (const int flags : {0, O_CLOEXEC, O_NONBLOCK, O_CLOEXEC | O_NONBLOCK})
    {
        std::array<int, 2> fds{kNoDescriptor, kNoDescriptor};
        ASSERT_EQ(m_system.pipe(fds, m_err, flags), 0);
        for (const int fd : fds)
        {
            EXPECT_EQ(closesOnExec(fd), (flags & O_CLOEXEC) != 0) << flags;
            EXPECT_EQ(isNonBlocking(fd), (flags & O_NONBLOCK) != 0) << flags;
        }
        closeBoth(fds);
    }
}

TEST_F(TAVSystemUtilsTest, ReportsWhyItCannotMakeAPipe)
{
    std::array<int, 2> fds{7, 8};
    EXPECT_EQ(m_system.pipe(fds, m_err, -1), -1);
    EXPECT_EQ(m_err, EINVAL);
    EXPECT_THAT(fds, ::testing::ElementsAre(7, 8));
}

TEST_F(TAVSystemUtilsTest, MakesADirectoryWithTheGivenMode)
{
    const std::string path = m_directory.file("made");
    EXPECT_EQ(m_system.mkdir(path, 0700, m_err), 0);
    EXPECT_EQ(m_err, kUntouched);
    struct stat info = {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777U, 0700U);
}

TEST_F(TAVSystemUtilsTest, ReportsWhyItCannotMakeADirectory)
{
    EXPECT_EQ(m_system.mkdir(m_directory.path(), 0700, m_err), -1);
    EXPECT_EQ(m_err, EEXIST);
    EXPECT_EQ(m_system.mkdir(m_directory.file("missing/made"), 0700, m_err), -1);
    EXPECT_EQ(m_err, ENOENT);
}

TEST_F(TAVSystemUtilsTest, DuplicatesOntoTheGivenNumber)
{
    const int oldFd = m_system.open("/dev/null", O_RDWR | O_CLOEXEC, m_err);
    const int newFd = m_system.open("/dev/null", O_RDONLY, m_err);
    EXPECT_EQ(m_system.dup2(oldFd, newFd, m_err), newFd);
    EXPECT_EQ(::fcntl(newFd, F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_FALSE(closesOnExec(newFd));
    EXPECT_EQ(m_system.dup2(oldFd, oldFd, m_err), oldFd);
    EXPECT_EQ(m_err, kUntouched);
    closeBoth({oldFd, newFd});
}

TEST_F(TAVSystemUtilsTest, ReportsWhyItCannotDuplicate)
{
    EXPECT_EQ(m_system.dup2(kNoDescriptor, 0, m_err), -1);
    EXPECT_EQ(m_err, EBADF);
    m_err = kUntouched;
    EXPECT_EQ(m_system.dup2(0, kNoDescriptor, m_err), -1);
    EXPECT_EQ(m_err, EBADF);
}

TEST_F(TAVSystemUtilsTest, TellsTheStateOfAFile)
{
    const std::string path = m_directory.write("file", "abcde");
    struct stat info = {};
    EXPECT_EQ(m_system.stat(path.c_str(), &info, m_err), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(info.st_size, 5);
    EXPECT_EQ(m_err, kUntouched);
}

TEST_F(TAVSystemUtilsTest, FollowsALinkToTheStateOfItsFile)
{
    const std::string path = m_directory.file("link");
    ASSERT_EQ(::symlink(m_directory.path().c_str(), path.c_str()), 0);
    struct stat info = {};
    EXPECT_EQ(m_system.stat(path.c_str(), &info, m_err), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
}

TEST_F(TAVSystemUtilsTest, ReportsWhyItCannotTellTheState)
{
    struct stat info = {};
    EXPECT_EQ(m_system.stat(m_directory.file("missing").c_str(), &info, m_err), -1);
    EXPECT_EQ(m_err, ENOENT);
    EXPECT_EQ(info.st_mode, 0U);
}

TEST_F(TAVSystemUtilsTest, OpensAStreamForWriting)
{
    const std::string path = m_directory.write("file", "what was there before");
    std::ofstream stream;
    m_system.openOutputFile(stream, path);
    ASSERT_TRUE(stream.is_open());
    stream << "new";
    stream.close();
    EXPECT_EQ(test::readFile(path), "new");
}

TEST_F(TAVSystemUtilsTest, MakesTheFileOfAStreamForWriting)
{
    std::ofstream stream;
    m_system.openOutputFile(stream, m_directory.file("fresh"));
    EXPECT_TRUE(stream.is_open());
    stream.close();
    EXPECT_EQ(test::readFile(m_directory.file("fresh")), "");
}

TEST_F(TAVSystemUtilsTest, OpensAStreamForReading)
{
    std::ifstream stream;
    m_system.openInputFile(stream, m_directory.write("file", "content\n"));
    ASSERT_TRUE(stream.is_open());
    std::string line;
    EXPECT_TRUE(std::getline(stream, line));
    EXPECT_EQ(line, "content");
}

TEST_F(TAVSystemUtilsTest, LeavesAStreamClosedThatCannotBeOpened)
{
    std::ofstream output;
    EXPECT_NO_THROW(m_system.openOutputFile(output, m_directory.file("missing/file")));
    EXPECT_FALSE(output.is_open());
    std::ifstream input;
    EXPECT_NO_THROW(m_system.openInputFile(input, m_directory.file("missing")));
    EXPECT_FALSE(input.is_open());
}

/// Whether a byte comes through a pipe that was made, duplicated and closed again.
bool passesAByte(TAVSystemUtils& system, char sent)
{
    int err = kUntouched;
    std::array<int, 2> fds{kNoDescriptor, kNoDescriptor};
    const bool isMade = system.pipe(fds, err, O_CLOEXEC) == 0;
    const int nullFd = system.open("/dev/null", O_RDWR | O_CLOEXEC, err);
    const bool isSent = system.dup2(fds[1], nullFd, err) == nullFd && ::write(nullFd, &sent, 1) == 1;
    char received = 0;
    const bool isRead = system.read(fds[0], &received, 1, err) == 1;
    int closed = 0;
    for (const int fd : {fds[0], fds[1], nullFd})
        closed += system.close(fd, err);
    return isMade && isSent && isRead && received == sent && closed == 0 && err == kUntouched;
}

/// Whether two calls that fail report an error value each.
bool reportsErrors(TAVSystemUtils& system)
{
    struct stat info = {};
    int statErr = kUntouched;
    int readErr = kUntouched;
    return system.stat("/nonexistent", &info, statErr) == -1 && statErr == ENOENT &&
           system.read(kNoDescriptor, &info, 1, readErr) == -1 && readErr == EBADF;
}

TEST_F(TAVSystemUtilsTest, ServesSeveralThreadsAtOnce)
{
    const auto work = [this](char sent)
    {
        for (int round = 0; round < 200; ++round)
            EXPECT_TRUE(passesAByte(m_system, sent) && reportsErrors(m_system)) << "round " << round;
    };
    std::vector<std::thread> threads;
    for (const char sent : {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'})
        threads.emplace_back(work, sent);
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(TAVSystemUtilsTest, IsReleasedThroughItsInterface)
{
    const std::unique_ptr<ITAVSystemUtils> system = std::make_unique<TAVSystemUtils>();
    EXPECT_EQ(system->close(kNoDescriptor, m_err), -1);
}

} // namespace
} // namespace TAV
