// Recipe: a logger that is safe in a forked child of a process with threads.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "support/TemporaryDirectory.h"
#include "tav/ILogger.h"

namespace
{

//! [one-write logger]
/// Appends each line to a file with one write(2). It holds no lock, so a child that was forked while another thread
/// was logging can log as well. O_APPEND keeps the lines of several threads and processes whole.
class OneWriteLogger : public TAV::ILogger
{
public:
    explicit OneWriteLogger(const std::string& path)
        : m_fd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600))
    {
    }
    OneWriteLogger(const OneWriteLogger&) = delete;
    OneWriteLogger& operator=(const OneWriteLogger&) = delete;
    ~OneWriteLogger() override { ::close(m_fd); }

    void log(int level, std::string message) override { write(level, "-", message); }

    void log(int level, std::string component, const std::string& message) override
    {
        write(level, component, message);
    }

private:
    void write(int level, const std::string& component, const std::string& message) const
    {
        std::string line = std::to_string(level) + " " + component + " " + message;
        for (char& character : line)
        {
            if (character == '\n') // a command's standard error may be quoted: one line stays one line
                character = ' ';
        }
        line += '\n';
        [[maybe_unused]] const ssize_t written = ::write(m_fd, line.data(), line.size()); // nobody to tell
    }

    const int m_fd;
};
//! [one-write logger]

TEST(OneWriteLoggerTest, KeepsLinesOfManyThreadsWhole)
{
    const TAV::test::TemporaryDirectory directory;
    const std::string path = directory.file("log");
    {
        OneWriteLogger logger(path);
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i)
        {
            threads.emplace_back(
                [&]
                {
                    for (int n = 0; n < 250; ++n)
                        logger.log(6, "TAVUtils", "Could not find cgroup mount or it is been modified");
                });
        }
        for (std::thread& thread : threads)
            thread.join();
    }

    std::string expected;
    for (int i = 0; i < 1000; ++i)
        expected += "6 TAVUtils Could not find cgroup mount or it is been modified\n";
    EXPECT_EQ(TAV::test::readFile(path), expected);
}

TEST(OneWriteLoggerTest, MakesOneLineOfMessageWithLineBreaks)
{
    const TAV::test::TemporaryDirectory directory;
    const std::string path = directory.file("log");
    OneWriteLogger(path).log(2, "TAVUtils", "Stderr is - a\nb\n");

    EXPECT_EQ(TAV::test::readFile(path), "2 TAVUtils Stderr is - a b \n");
}

TEST(OneWriteLoggerTest, NamesNoComponentWhereThereIsNone)
{
    const TAV::test::TemporaryDirectory directory;
    const std::string path = directory.file("log");
    OneWriteLogger(path).log(5, "state");

    EXPECT_EQ(TAV::test::readFile(path), "5 - state\n");
}

} // namespace
