// Thousands of commands from several threads leave nothing behind.

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <thread>

#include "CommandScene.h"
#include "support/HeapUse.h"
#include "support/SacrificialProcess.h"

namespace TAV::test
{
namespace
{

constexpr int kThreads = 8;
constexpr int kKinds = 6;
#ifdef TAV_SANITIZED
constexpr int kRuns = 2000; // a sanitizer makes each fork several times as slow
#else
constexpr int kRuns = 10000;
#endif
/// Half of what the heap would have lost if the runs of a single kind lost the smallest block each.
constexpr std::size_t kSmallestBlock = 16;
constexpr std::size_t kTolerance = kRuns / kKinds * kSmallestBlock / 2;

/// Counts, so that the log itself does not grow.
class CountingLogger : public ILogger
{
public:
    void log(int, std::string) override { ++m_lines; }
    void log(int, std::string, const std::string&) override { ++m_lines; }
    int lines() const { return m_lines; }

private:
    int m_lines = 0;
};

/// One thread's share: its own object, and every kind of run in turn.
class Runner
{
public:
    Runner()
        : m_utils(std::make_shared<TAVSystemUtils>(), m_logger, std::make_shared<kernelVersion>(kernelVersion{6, 1, 0}))
    {
    }

    void run(int count)
    {
        const pid_t before = ::getpid();
        for (int i = 0; i < count; ++i)
        {
            const bool asExpected = runOne(i % kKinds);
            if (::getpid() != before)
                ::_exit(kExitOfReturnedChild);
            m_surprises += asExpected ? 0 : 1;
        }
    }

    int surprises() const { return m_surprises; }
    int lines() const { return m_logger.lines(); }

private:
    bool runOne(int kind)
    {
        switch (kind)
        {
        case 0:
            return m_utils.executeSystemCommand({kAct}, nullptr);
        case 1:
            return m_utils.executeSystemCommand({kAct, "err=text"}, &kKeepNothing);
        case 2:
            return !m_utils.executeSystemCommand({kAct, "err=text", "exit=1"}, nullptr);
        case 3:
            return !m_utils.executeSystemCommand({kAct, "exit=1"}, &kKeepNothing);
        case 4:
            return captures({kAct, "out=text"}, nullptr, true);
        default:
            return captures({kAct, "out=text", "err=reason", "exit=1"}, nullptr, false);
        }
    }

    bool captures(const std::vector<std::string>& argv, const KeepMap* keep, bool success)
    {
        OutputPipe pipe;
        return m_utils.readSystemCommandOutput(argv, keep, pipe.ends()) == success && pipe.takeText() == "text";
    }

    CountingLogger m_logger;
    TAVUtils m_utils;
    int m_surprises = 0;
};

/// @return how many runs did not end as they should
int runOnThreads(int runs)
{
    std::atomic<int> surprises{0};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back(
            [&surprises, runs]
            {
                Runner runner;
                runner.run(runs / kThreads);
                surprises += runner.surprises();
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    return surprises;
}

std::set<std::string> openDescriptors()
{
    std::set<std::string> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        open.insert(entry.path().filename().string() + " " +
                    describeDescriptor(::getpid(), std::stoi(entry.path().filename())));
    return open;
}

/// In a process of its own: notes what is not as before.
void runAndCompare(SharedNotes& notes)
{
    runOnThreads(kThreads * kKinds); // whatever is allocated once and kept
    const std::set<std::string> descriptors = openDescriptors();
    const std::size_t heap = heapInUse();

    const int surprises = runOnThreads(kRuns);

    const std::size_t heapAfter = heapInUse();
    if (surprises != 0)
        notes.add(std::to_string(surprises) + " runs did not end as they should");
    if (openDescriptors() != descriptors)
        notes.add("the open descriptors are not the same");
    if (::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD)
        notes.add("children are left");
    if (heapAfter > heap + kTolerance)
        notes.add("the heap grew from " + std::to_string(heap) + " to " + std::to_string(heapAfter));
    notes.add("done");
}

TEST(ManyRunsTest, EightThreadsLeaveNoDescriptorNoChildAndNoMemory)
{
    SharedNotes notes;
    SacrificialProcess process([&] { runAndCompare(notes); });
    EXPECT_EQ(process.wait(4 * SacrificialProcess::kPatience), 0);
    EXPECT_EQ(notes.text(), "done\n");
}

} // namespace
} // namespace TAV::test
