// The callers that wait for ever, and what sets them free. A call counts as blocked when the evidence lies open (the
// child is gone and the caller reads a pipe whose only writer it is itself; a full pipe with more to come), and when it
// comes to its end as soon as the pipe is fed or emptied from outside.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "CommandScene.h"
#include "support/SacrificialProcess.h"

namespace TAV::test
{
namespace
{

using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

constexpr auto kLongEnough = 200ms;
constexpr int kPipeCapacity = 65536;
const KeepMap kKeepStderr = {{2, true}};

/// The words behind the first note that begins with `word`; empty while there is none.
Strings wordsAfter(const SharedNotes& notes, const std::string& word)
{
    for (const std::string& line : notes.lines())
    {
        std::istringstream words(line);
        std::string first;
        words >> first;
        if (first == word)
            return {std::istream_iterator<std::string>(words), {}};
    }
    return {};
}

bool hasNote(const SharedNotes& notes, const std::string& line)
{
    const Strings lines = notes.lines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

/// A descriptor of another process, opened once more in this one.
class BorrowedFd
{
public:
    BorrowedFd(pid_t pid, const std::string& fd, int flags)
        : m_fd(::open(("/proc/" + std::to_string(pid) + "/fd/" + fd).c_str(), flags | O_CLOEXEC))
    {
        if (m_fd < 0)
            throw std::runtime_error("cannot open descriptor " + fd + " of process " + std::to_string(pid));
    }
    BorrowedFd(const BorrowedFd&) = delete;
    BorrowedFd& operator=(const BorrowedFd&) = delete;
    ~BorrowedFd() { ::close(m_fd); }

    int get() const { return m_fd; }

private:
    int m_fd;
};

/// One command in a process of its own, watched from here.
class WatchedRun
{
public:
    WatchedRun(Operation operation, const Strings& argv, const KeepMap* keep)
        : m_process([this, operation, argv, keep] { run(operation, argv, keep); })
    {
    }

    SharedNotes& notes() { return m_notes; }
    SacrificialProcess& process() { return m_process; }

    /// What the process noted about its pipe for standard error ("pipe") or for output ("out").
    Strings pipe(const std::string& name) const { return wordsAfter(m_notes, name); }

    bool childIsGone() const
    {
        const Strings child = wordsAfter(m_notes, "child");
        return !child.empty() && ::access(("/proc/" + child.at(0)).c_str(), F_OK) != 0;
    }

    /// The caller has reaped its child and now reads standard error, of which nothing is there and nothing can come.
    bool readsInVain() const { return !wordsAfter(m_notes, "reading").empty() && childIsGone(); }

    /// A pipe of the caller holds as much as it can.
    bool isFull(const std::string& name) const
    {
        const Strings ends = pipe(name);
        if (ends.empty())
            return false;
        int bytes = 0;
        ::ioctl(BorrowedFd(m_process.pid(), ends.at(0), O_RDONLY).get(), FIONREAD, &bytes);
        return bytes == kPipeCapacity;
    }

private:
    void run(Operation operation, const Strings& argv, const KeepMap* keep)
    {
        CommandScene scene(&m_notes);
        OutputPipe output;
        m_notes.add("out " + std::to_string(output.ends()[0]) + " " + std::to_string(output.ends()[1]));
        noteRun(m_notes, scene.logger, [&] { return runCommand(scene.utils, operation, argv, keep, output.ends()); });
    }

    SharedNotes m_notes;
    SacrificialProcess m_process;
};

struct SilentFailure
{
    Operation operation;
    Strings argv;
    const KeepMap* keep;
};

const std::vector<SilentFailure> kSilentFailures = {
    {Operation::Execute, {"/bin/false"}, nullptr},
    {Operation::Execute, {"/bin/false"}, &kKeepStderr},
    {Operation::Execute, {kAct, "kill=9"}, nullptr},
    {Operation::Capture, {"/bin/false"}, nullptr},
    {Operation::Capture, {"/bin/false"}, &kKeepStderr},
    {Operation::Capture, {kAct, "out=not standard error", "kill=9"}, nullptr},
};

class SilentFailureTest : public testing::TestWithParam<SilentFailure>
{
};

TEST_P(SilentFailureTest, BlocksTheCallerUntilSomebodyWritesToItsPipe)
{
    WatchedRun run(GetParam().operation, GetParam().argv, GetParam().keep);
    ASSERT_TRUE(eventually([&] { return run.readsInVain(); })) << run.notes().text();
    ASSERT_EQ(run.process().wait(kLongEnough), std::nullopt);

    const BorrowedFd writeEnd(run.process().pid(), run.pipe("pipe").at(1), O_WRONLY);
    ASSERT_EQ(::write(writeEnd.get(), "x", 1), 1);
    EXPECT_EQ(run.process().wait(), 0);
    EXPECT_TRUE(hasNote(run.notes(), "caller got false"));
}

INSTANTIATE_TEST_SUITE_P(BlockedCaller, SilentFailureTest, testing::ValuesIn(kSilentFailures));

TEST(BlockedCallerTest, SilentFailureBlocksUntilTheCallerIsKilled)
{
    WatchedRun run(Operation::Execute, {"/bin/false"}, nullptr);
    ASSERT_TRUE(eventually([&] { return run.readsInVain(); }));
    run.process().kill();
    const std::optional<int> status = run.process().wait();
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(WTERMSIG(*status), SIGKILL);
    EXPECT_FALSE(hasNote(run.notes(), "caller got false"));
}

/// Reads so much from a pipe of the run.
void drain(WatchedRun& run, const std::string& name, std::size_t bytes)
{
    const BorrowedFd readEnd(run.process().pid(), run.pipe(name).at(0), O_RDONLY);
    std::string piece(bytes, '\0');
    for (std::size_t done = 0; done < bytes;)
    {
        const ssize_t size = ::read(readEnd.get(), piece.data(), bytes - done);
        if (size <= 0)
            throw std::runtime_error("cannot drain the pipe");
        done += static_cast<std::size_t>(size);
    }
}

void expectBlockedByFullPipe(WatchedRun& run, const std::string& name)
{
    ASSERT_TRUE(eventually([&] { return run.isFull(name); })) << run.notes().text();
    ASSERT_EQ(run.process().wait(kLongEnough), std::nullopt);
    ASSERT_FALSE(run.childIsGone());

    drain(run, name, kPipeCapacity);
    EXPECT_EQ(run.process().wait(), 0);
    EXPECT_TRUE(hasNote(run.notes(), "caller got true"));
}

TEST(BlockedCallerTest, ExecuteBlocksWhileAChildCannotWriteAllItsErrors)
{
    WatchedRun run(Operation::Execute, {kAct, "err#70000"}, nullptr);
    expectBlockedByFullPipe(run, "pipe");
}

TEST(BlockedCallerTest, CaptureBlocksWhileAChildCannotWriteAllItsErrors)
{
    WatchedRun run(Operation::Capture, {kAct, "err#70000"}, nullptr);
    expectBlockedByFullPipe(run, "pipe");
}

TEST(BlockedCallerTest, CaptureBlocksWhileAChildCannotWriteAllItsOutput)
{
    WatchedRun run(Operation::Capture, {kAct, "out#70000"}, nullptr);
    expectBlockedByFullPipe(run, "out");
}

TEST(BlockedCallerTest, CaptureWithoutStderrPipeBlocksOnItsOutputToo)
{
    WatchedRun run(Operation::Capture, {kAct, "out#70000"}, &kKeepNothing);
    expectBlockedByFullPipe(run, "out");
}

TEST(BlockedCallerTest, SecondThreadThatReadsLetsAnyAmountOfOutputThrough)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            CommandScene scene;
            std::array<int, 2> output{};
            if (::pipe2(output.data(), O_CLOEXEC) != 0)
                throw std::runtime_error("cannot make a pipe");
            std::size_t total = 0;
            std::thread reader(
                [&]
                {
                    std::array<char, 10000> piece{};
                    for (ssize_t size = 1; size > 0; total += static_cast<std::size_t>(size))
                        size = ::read(output[0], piece.data(), piece.size());
                });
            const bool ok = scene.utils.readSystemCommandOutput({kAct, "out#3000000"}, nullptr, output.data());
            ::close(output[1]);
            reader.join();
            notes.add(std::to_string(ok) + " " + std::to_string(total));
        });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(notes.text(), "1 3000000\n");
}

TEST(BlockedCallerTest, TerminationSignalsDoNotEndARunningChild)
{
    WatchedRun run(Operation::Capture, {kAct, "err=ready", "wait"}, nullptr);
    // What it writes shows that the child has become the program.
    ASSERT_TRUE(eventually([&] { return !run.pipe("child").empty(); }));
    const pid_t child = std::stoi(run.pipe("child").at(0));
    drain(run, "pipe", std::string("ready").size());
    ::kill(child, SIGTERM);
    ::kill(child, SIGINT);
    EXPECT_EQ(run.process().wait(kLongEnough), std::nullopt);

    // The status in the log tells which signal it was.
    ::kill(child, SIGUSR1);
    ASSERT_TRUE(eventually([&] { return run.readsInVain(); }));
    ASSERT_EQ(::write(BorrowedFd(run.process().pid(), run.pipe("pipe").at(1), O_WRONLY).get(), "x", 1), 1);
    EXPECT_EQ(run.process().wait(), 0);
    EXPECT_TRUE(hasNote(run.notes(), failedNote(SIGUSR1, "Success", " Stderr is - x"))) << run.notes().text();
}

/// Runs a failing child from a caller whose descriptor 0 is closed, so that the pipe for standard error begins there.
Strings notesWithoutDescriptor0(Operation operation, const Strings& argv)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            CommandScene scene;
            OutputPipe output;
            ::close(0);
            noteRun(
                notes, scene.logger, [&] { return runCommand(scene.utils, operation, argv, nullptr, output.ends()); });
            notes.add(::fcntl(0, F_GETFD) >= 0 ? "pair left open" : "pair closed");
        });
    EXPECT_EQ(process.wait(), 0);
    return notes.lines();
}

TEST(BlockedCallerTest, ExecuteDoesNotReadAndLeavesThePairOpenWhenTheReadEndIs0)
{
    EXPECT_THAT(notesWithoutDescriptor0(Operation::Execute, {"/bin/false"}),
                testing::ElementsAre(startedNote({"/bin/false"}),
                                     "caller logged [6] TAVUtils: Stderr is not available to read",
                                     "caller got false",
                                     "pair left open"));
}

TEST(BlockedCallerTest, CaptureReadsAlsoWhenTheReadEndIs0)
{
    EXPECT_THAT(
        notesWithoutDescriptor0(Operation::Capture, {kAct, "err=text", "exit=1"}),
        testing::ElementsAre(failedNote(0x0100, "Success", " Stderr is - text"), "caller got false", "pair closed"));
}

} // namespace
} // namespace TAV::test
