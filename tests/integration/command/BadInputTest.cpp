// Programs that are none, and arguments that are too much: the child comes back, the caller goes on, nothing is lost.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "CommandScene.h"
#include "SelfReport.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using Strings = std::vector<std::string>;

constexpr std::size_t kLongestArgument = 131072; // the kernel's MAX_ARG_STRLEN, with the terminating zero

/// The program cannot be started: the child comes back from both operations.
void expectNotStarted(const Strings& argv)
{
    EXPECT_THAT(notesOf([&](TAVUtils& utils) { return utils.executeSystemCommand(argv, &kKeepNothing); }),
                ElementsAre(startedNote(argv, "child"),
                            waitFailedNote(Operation::Execute, "child"),
                            "child got false",
                            startedNote(argv),
                            "caller got false"));
    EXPECT_THAT(notesOf([&](TAVUtils& utils) { return runCommand(utils, Operation::Capture, argv, &kKeepNothing); }),
                ElementsAre(waitFailedNote(Operation::Capture, "child"),
                            "child got false",
                            failedNote(kExitOfReturnedChild << 8, "Bad file descriptor", " Stderr could not be read."),
                            "caller got false"));
}

TEST(BadInputTest, ProgramThatCannotBeStartedBringsTheChildBack)
{
    const TemporaryDirectory directory;
    const std::string plain = directory.write("plain", "#!/bin/sh\nexit 0\n");
    const std::string loop = directory.file("loop");
    std::filesystem::create_symlink(loop, loop);
    const std::string garbage = directory.write("garbage",
                                                "\x7f"
                                                "ELF and no more");
    const std::string noInterpreter = directory.write("script", "#!/nonexistent/shell\n");
    const std::string fifo = directory.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0700), 0);
    for (const std::string& path : {garbage, noInterpreter})
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);

    for (const std::string& program : {std::string("/nonexistent/program"),
                                       std::string(),
                                       std::string("true"), // PATH is not searched
                                       directory.path(),
                                       plain,
                                       plain + "/below",
                                       loop,
                                       garbage,
                                       noInterpreter,
                                       fifo,
                                       directory.file("\xff\xfe not UTF-8"),
                                       "/" + std::string(5000, 'x')})
        expectNotStarted({program});
}

TEST(BadInputTest, EmptyArgumentListIsRefusedWithoutALine)
{
    EXPECT_THAT(notesOf([](TAVUtils& utils) { return utils.executeSystemCommand({}, nullptr); }),
                ElementsAre("caller got false"));
    EXPECT_THAT(notesOf([](TAVUtils& utils) { return runCommand(utils, Operation::Capture, {}, nullptr); }),
                ElementsAre("caller got false"));
}

TEST(BadInputTest, MissingOutputPipeIsRefusedWithoutALine)
{
    EXPECT_THAT(notesOf([](TAVUtils& utils) { return utils.readSystemCommandOutput({"/bin/true"}, nullptr, nullptr); }),
                ElementsAre("caller got false"));
}

TEST(BadInputTest, OutputPipeOfClosedDescriptorsBringsTheChildBack)
{
    EXPECT_THAT(notesOf(
                    [](TAVUtils& utils)
                    {
                        std::array<int, 2> closed = {900, 901};
                        return utils.readSystemCommandOutput({"/bin/true"}, &kKeepNothing, closed.data());
                    }),
                ElementsAre("child logged [2] TAVUtils: Failed to duplicate Stdout in child process. Error was Bad "
                            "file descriptor",
                            "child got false",
                            failedNote(kExitOfReturnedChild << 8, "Bad file descriptor", " Stderr could not be read."),
                            "caller got false"));
}

TEST(BadInputTest, LongestArgumentThatTheKernelTakesArrives)
{
    const TemporaryDirectory directory;
    const std::string longest(kLongestArgument - 1, 'a');
    const Strings argv = {kSelfReport, directory.file("report"), longest};
    EXPECT_THAT(notesOf([&](TAVUtils& utils) { return utils.executeSystemCommand(argv, &kKeepNothing); }),
                ElementsAre(startedNote(argv), "caller got true"));
    EXPECT_EQ(parseSelfReport(readFile(argv[1])).arguments, argv);
}

TEST(BadInputTest, ArgumentThatTheKernelRefusesBringsTheChildBack)
{
    expectNotStarted({"/bin/true", std::string(kLongestArgument, 'a')});
}

TEST(BadInputTest, ArgumentsThatTheKernelRefusesTogetherBringTheChildBack)
{
    // Together 10 MB: more than a process may be started with, whatever the limit of its stack.
    Strings argv(100, std::string(100000, 'a'));
    argv.insert(argv.begin(), "/bin/true");
    SharedNotes notes(100U << 20U);
    SacrificialProcess process(
        [&]
        {
            CommandScene scene;
            noteRun(
                notes, scene.logger, [&] { return runCommand(scene.utils, Operation::Capture, argv, &kKeepNothing); });
        });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_THAT(
        notes.lines(),
        ElementsAre(waitFailedNote(Operation::Capture, "child"), "child got false", testing::_, "caller got false"));
}

TEST(BadInputTest, EmbeddedZeroEndsAnArgumentForTheChildButNotInTheLog)
{
    using namespace std::string_literals;
    const TemporaryDirectory directory;
    const Strings argv = {std::string(kSelfReport) + "\0junk"s, directory.file("report"), "before\0after"s, "\0"s};
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            CommandScene scene;
            const bool ok = scene.utils.executeSystemCommand(argv, &kKeepNothing);
            std::string line = "Child process called to execute the system command : ";
            for (const std::string& argument : argv)
                line += " " + argument;
            notes.add(ok && scene.logger.lines() == std::vector<LogLine>{{6, "TAVUtils", line}} ? "whole" : "other");
        });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(notes.text(), "whole\n");
    EXPECT_THAT(parseSelfReport(readFile(argv[1])).arguments, ElementsAre(kSelfReport, argv[1], "before", ""));
}

TEST(BadInputTest, PathsThatAreNotUtf8ReachTheKernelAndTheLogAsTheyAre)
{
    const TemporaryDirectory directory;
    const std::string program = directory.file("\xff\xfe\x80 \xc3");
    std::filesystem::create_symlink(kSelfReport, program);
    const Strings argv = {program, directory.file("report \xf0\x9f")};
    EXPECT_THAT(notesOf([&](TAVUtils& utils) { return utils.executeSystemCommand(argv, &kKeepNothing); }),
                ElementsAre(startedNote(argv), "caller got true"));
    EXPECT_EQ(parseSelfReport(readFile(argv[1])).arguments, argv);
}

/// Keeps of each line only what 100 MB allow: whether it is the expected one.
class ComparingLogger : public ILogger
{
public:
    explicit ComparingLogger(const std::string& expected) : m_expected(expected) {}

    void log(int, std::string) override { ++m_others; }
    void log(int level, std::string, const std::string& message) override
    {
        (level == 6 && message == m_expected ? m_matching : m_others) += 1;
    }

    std::string counts() const { return std::to_string(m_matching) + " matching, " + std::to_string(m_others); }

private:
    const std::string& m_expected;
    int m_matching = 0;
    int m_others = 0;
};

TEST(BadInputTest, HundredMegabytesInOneArgumentAreLoggedWholeAndRefusedByTheKernel)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            Strings argv = {"/bin/true", ""};
            argv[1].resize(100'000'000, 'a');
            const std::string expected =
                "Child process called to execute the system command :  " + argv[0] + " " + argv[1];
            ComparingLogger logger(expected);
            TAVUtils utils(
                std::make_shared<TAVSystemUtils>(), logger, std::make_shared<kernelVersion>(kernelVersion{6, 1, 0}));
            const pid_t before = ::getpid();
            const bool ok = utils.executeSystemCommand(argv, &kKeepNothing);
            notes.add((::getpid() == before ? "caller: " : "child: ") + logger.counts() + (ok ? ", true" : ", false"));
            if (::getpid() != before)
                ::_exit(kExitOfReturnedChild);
        });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_THAT(notes.lines(), ElementsAre("child: 1 matching, 1, false", "caller: 1 matching, 0, false"));
}

} // namespace
} // namespace TAV::test
