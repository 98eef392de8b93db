#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string_view>

#include "HeapCounter.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

/// Stands in for the program that the child would become. Only children come here: they end.
extern "C" int execv(const char*, char* const*) noexcept
{
    if (TAV::test::stopCountingHeapUse() == 0)
        ::_exit(0);
    const std::string_view said = "used the heap"; // else the parent would wait for a word
    const bool isSaid = ::write(STDERR_FILENO, said.data(), said.size()) >= 0;
    ::_exit(isSaid ? 1 : 2);
}

namespace TAV
{
namespace
{

using ::testing::IsEmpty;

/// The real system, counting the child's use of the heap from the fork on.
class CountingSystem : public TAVSystemUtils
{
public:
    pid_t fork(int& err) override
    {
        const pid_t pid = TAVSystemUtils::fork(err);
        if (pid == 0)
            test::startCountingHeapUse();
        return pid;
    }
};

/// Breaks the rule for `open`.
class AllocatingSystem : public CountingSystem
{
public:
    int open(std::string path, int flags, int& err) override
    {
        path.append(100, '/'); // beyond what a string holds within itself
        return CountingSystem::open("/dev/null", flags, err);
    }
};

/// A process forked from one with threads may find the heap locked for ever.
class ChildHeapTest : public ::testing::Test
{
protected:
    /// Runs an operation and ends a child that comes back from it.
    template <typename Operation>
    bool run(const std::shared_ptr<ITAVSystemUtils>& system, Operation operation)
    {
        TAVUtils utils(system, m_logger, std::make_shared<kernelVersion>(kernelVersion{5, 10, 0}));
        const pid_t before = ::getpid();
        const bool result = operation(utils);
        if (::getpid() != before)
            ::_exit(100);
        return result;
    }

    bool execute(const std::shared_ptr<ITAVSystemUtils>& system, const std::map<int, bool>* keep)
    {
        return run(system, [&](TAVUtils& utils) { return utils.executeSystemCommand(m_command, keep); });
    }

    bool capture(const std::shared_ptr<ITAVSystemUtils>& system, const std::map<int, bool>* keep)
    {
        std::array<int, 2> outPipe{-1, -1};
        EXPECT_EQ(::pipe2(outPipe.data(), O_CLOEXEC), 0);
        const bool result = run(
            system, [&](TAVUtils& utils) { return utils.readSystemCommandOutput(m_command, keep, outPipe.data()); });
        for (const int fd : outPipe)
            ::close(fd);
        return result;
    }

    test::RecordingLogger m_logger;
    const std::vector<std::string> m_command{"/bin/program", std::string(1000, 'x'), "", "last"};
    const std::map<int, bool> m_withoutStderr{{1, true}, {7, true}, {9, false}, {20, true}};
};

TEST_F(ChildHeapTest, ACommandsChildDoesNotUseIt)
{
    EXPECT_TRUE(execute(std::make_shared<CountingSystem>(), nullptr));
    EXPECT_TRUE(execute(std::make_shared<CountingSystem>(), &m_withoutStderr));
}

TEST_F(ChildHeapTest, ACapturesChildDoesNotUseIt)
{
    EXPECT_TRUE(capture(std::make_shared<CountingSystem>(), nullptr));
    EXPECT_TRUE(capture(std::make_shared<CountingSystem>(), &m_withoutStderr));
    EXPECT_THAT(m_logger.lines(), IsEmpty());
}

TEST_F(ChildHeapTest, ASystemThatUsesItIsFoundOut)
{
    EXPECT_FALSE(execute(std::make_shared<AllocatingSystem>(), nullptr));
    EXPECT_FALSE(capture(std::make_shared<AllocatingSystem>(), nullptr));
    EXPECT_THAT(m_logger.lines().back().message, ::testing::EndsWith("Stderr is - used the heap"));
}

} // namespace
} // namespace TAV
