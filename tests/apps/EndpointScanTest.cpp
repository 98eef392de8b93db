#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>

#include "apps/ProgramRun.h"
#include "support/TemporaryDirectory.h"

using namespace TAV::test;
using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace fs = std::filesystem;

namespace
{

class EndpointScanTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (::access(ARCHIVE_TOOL, X_OK) != 0)
            GTEST_SKIP() << "the archive tool is not at " ARCHIVE_TOOL;
        fs::create_directories(tree() + "/sub");
        m_place.write("pw", "pass word");
        m_place.write("deny", kOther);
    }

    /// On each deny list, as an empty one is refused.
    const std::string kOther = std::string(64, '0') + "\n";

    std::string tree() const { return m_place.file("files"); }

    /// Writes a file of the tree; puts it on the deny list if told so.
    void add(const std::string& name, const std::string& content, bool isDenied)
    {
        std::ofstream(tree() + "/" + name, std::ios::binary) << content;
        if (isDenied)
        {
            const std::string sum = runProgram({"/usr/bin/sha256sum"}, content).out;
            std::ofstream(m_place.file("deny"), std::ios::app) << sum.substr(0, sum.find(' ')) << "\n";
        }
    }

    ProgramRun scanning() const
    {
        ProgramRun run;
        run.argv = {ENDPOINT_SCAN,
                    "scan",
                    tree(),
                    "--deny-list",
                    m_place.file("deny"),
                    "--quarantine",
                    m_place.file("q"),
                    "--password-file",
                    m_place.file("pw"),
                    "--json",
                    m_place.file("report.json")};
        return run;
    }

    ProgramResult scanned() const { return scanning().run(); }

    ProgramResult restored(const std::string& password = "pw") const
    {
        return runProgram({ENDPOINT_SCAN,
                           "restore",
                           "--quarantine",
                           m_place.file("q"),
                           "--to",
                           m_place.file("back"),
                           "--password-file",
                           m_place.file(password),
                           "--json",
                           m_place.file("report.json")});
    }

    json report() const { return json::parse(readFile(m_place.file("report.json"))); }

    std::vector<std::string> namesLeft() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(m_place.file("q")))
            names.push_back(entry.path().filename().string());
        return names;
    }

    TemporaryDirectory m_place;
};

TEST_F(EndpointScanTest, ACleanTreeGivesCodeZero)
{
    add("a", "harmless", false);
    const ProgramResult result = scanned();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, AllOf(HasSubstr("clean"), HasSubstr("1 entry: 1 clean\n")));
    json expected;
    for (const char* verdict : {"denied", "set_aside", "quarantined", "unknown", "skipped", "failed"})
        expected[verdict] = 0;
    expected["clean"] = 1;
    EXPECT_EQ(report().at("summary"), expected);
    EXPECT_FALSE(report().contains("archive"));
}

TEST_F(EndpointScanTest, DeniedFilesGoIntoTheQuarantineAndComeBack)
{
    add("a", "harmless", false);
    add("-x", "bad one", true);
    add("sub/@list *", "bad two", true);
    ::chmod((tree() + "/-x").c_str(), 0751);
    const ProgramResult result = scanned();
    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_FALSE(fs::exists(tree() + "/-x"));
    EXPECT_FALSE(fs::exists(tree() + "/sub/@list *"));
    EXPECT_TRUE(fs::exists(tree() + "/a"));

    const ProgramResult back = restored();
    EXPECT_EQ(back.exitCode, 0) << back.err;
    EXPECT_EQ(readFile(m_place.file("back/-x")), "bad one");
    EXPECT_EQ(readFile(m_place.file("back/sub/@list *")), "bad two");
    struct stat status = {};
    ASSERT_EQ(::stat(m_place.file("back/-x").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0751U);
    EXPECT_EQ(report().at("files").size(), 2U);
    EXPECT_EQ(report().at("files").at(0).at("restored"), true);
}

TEST_F(EndpointScanTest, TheReportTellsEachFile)
{
    add("bad", "bad", true);
    fs::create_symlink("bad", tree() + "/link");
    EXPECT_EQ(scanned().exitCode, 1);
    const json files = report().at("files");
    ASSERT_EQ(files.size(), 2U);
    EXPECT_EQ(files[0].at("path"), "bad");
    EXPECT_EQ(files[0].at("verdict"), "quarantined");
    EXPECT_EQ(files[0].at("mime_type"), "text/plain");
    EXPECT_EQ(files[0].at("size"), 3);
    EXPECT_EQ(files[0].at("md5"), "bae60998ffe4923b131e3d6e4c19993e");
    EXPECT_EQ(files[1], json::parse(R"({"path": "link", "verdict": "skipped", "reason": "symbolic link"})"));
    EXPECT_EQ(report().at("exit_code"), 1);
    EXPECT_EQ(report().at("root"), fs::canonical(tree()).string());
    EXPECT_TRUE(fs::exists(report().at("archive").get<std::string>()));
    EXPECT_TRUE(fs::exists(report().at("record").get<std::string>()));
}

TEST_F(EndpointScanTest, ListTellsWhatCameFromWhere)
{
    add("sub/bad", "bad", true);
    scanned();
    const ProgramResult result =
        runProgram({ENDPOINT_SCAN, "list", "--quarantine", m_place.file("q"), "--json", m_place.file("report.json")});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr(fs::canonical(tree()).string() + "/sub/bad\n"));
    EXPECT_EQ(report().at("archives").at(0).at("files").at(0).at("path"), "sub/bad");
}

TEST_F(EndpointScanTest, AnUnreadableFileGivesCodeThree)
{
    add("good", "x", false);
    ProgramRun run = scanning();
    if (::geteuid() == 0)
    {
        // Without the capability to read everything, but as the same user: another could not reach a build below /root.
        const std::string inner = "exec setpriv --bounding-set -all --inh-caps -all \"$@\"";
        run.argv.insert(run.argv.begin(), {"/bin/sh", "-c", inner, "sh"});
    }
    add("secret", "y", false);
    ::chmod((tree() + "/secret").c_str(), 0);
    const ProgramResult result = run.run();
    EXPECT_EQ(result.exitCode, 3) << result.err;
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("NOT EXAMINED"), HasSubstr("secret  (cannot open secret: Permission denied)\n")));
    EXPECT_EQ(report().at("summary").at("failed"), 1);
}

TEST_F(EndpointScanTest, BadArgumentsGiveCodeTwoAndDoNothing)
{
    add("bad", "bad", true);
    const std::string deny = m_place.file("deny");
    const std::string q = m_place.file("q");
    const std::string pw = m_place.file("pw");
    const std::string pipe = m_place.file("pipe");
    const std::string link = m_place.file("link");
    ::mkfifo(pipe.c_str(), 0600);
    fs::create_symlink(pw, link);
    const auto listing = [&q](const char* option, const std::string& value) -> std::vector<std::string> {
        return {"list", "--quarantine", q, option, value};
    };
    struct Case
    {
        std::vector<std::string> arguments;
        const char* reason;
    };
    const std::vector<Case> cases{
        {{}, "subcommand"},
        {{"scan"}, "DIR"},
        {{"scan", tree(), "--quarantine", q, "--password-file", pw}, "--deny-list"},
        {{"scan", tree(), "--deny-list", deny, "--password-file", pw}, "--quarantine"},
        {{"scan", m_place.file("no"), "--deny-list", deny, "--quarantine", q, "--password-file", pw},
         "not a directory"},
        {{"scan", pw, "--deny-list", deny, "--quarantine", q, "--password-file", pw}, "not a directory"},
        {{"scan", tree(), "--deny-list", m_place.file("no"), "--quarantine", q, "--password-file", pw}, "No such file"},
        {{"scan", tree(), "--deny-list", pw, "--quarantine", q, "--password-file", pw}, "pw:1: not a SHA-256 digest"},
        {{"scan", tree(), "--deny-list", deny, "--quarantine", q}, "no terminal"},
        {{"scan", tree(), "--deny-list", deny, "--quarantine", q, "--password-file", m_place.file("no")},
         "No such file"},
        {{"scan", tree(), "--deny-list", deny, "--quarantine", q, "--password-file", pw, "--threads", "0"},
         "--threads"},
        {{"scan", tree(), "--deny-list", deny, "--quarantine", q + "*", "--password-file", pw}, "wildcards"},
        {{"scan", tree(), "--deny-list", m_place.write("none", "# none\n"), "--quarantine", q, "--password-file", pw},
         "none: no digests"},
        {{"scan", tree(), "--deny-list", "", "--quarantine", q, "--password-file", pw},
         "--deny-list: the name is missing"},
        {{"restore", "--quarantine", q}, "--to"},
        {{"restore", "--quarantine", q, "--to", tree(), "--archive", ""}, "--archive: the name is missing"},
        {listing("--json", ""), "--json: the name is missing"},
        {listing("--json", pipe), "pipe: not a regular file"},
        {listing("--json", link), "link: not a regular file"},
        {listing("--json", tree() + "/"), "files/: not a regular file"},
        {listing("--json", m_place.file("nowhere/report.json")), "nowhere/report.json: No such file"},
        {listing("--json", m_place.file(std::string(256, 'n'))), "File name too long"},
        {listing("--log", m_place.file("nowhere/log")), "nowhere/log: No such file"},
    };
    for (const Case& c : cases)
    {
        std::vector<std::string> argv = c.arguments;
        argv.insert(argv.begin(), ENDPOINT_SCAN);
        const ProgramResult result = runProgram(argv);
        EXPECT_EQ(result.exitCode, 2) << ::testing::PrintToString(c.arguments) << result.err;
        EXPECT_THAT(result.err, AllOf(StartsWith("endpoint_scan: "), HasSubstr(c.reason)))
            << ::testing::PrintToString(c.arguments);
    }
    EXPECT_TRUE(fs::is_fifo(pipe));
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_FALSE(fs::exists(m_place.file("nowhere")));
    EXPECT_EQ(readFile(tree() + "/bad"), "bad");
    EXPECT_FALSE(fs::exists(q));
}

TEST_F(EndpointScanTest, EveryLineOfAComplaintTellsWhoComplains)
{
    m_place.write("deny", "x\ny\x1b\n");
    const std::string name = "endpoint_scan: " + m_place.file("deny");
    EXPECT_EQ(scanned().err,
              name + ":1: not a SHA-256 digest (64 hexadecimal digits): \"x\"\n" + name +
                  ":2: not a SHA-256 digest (64 hexadecimal digits): \"y\\x1b\"\n");
}

TEST_F(EndpointScanTest, HelpListsTheExitCodes)
{
    const ProgramResult result = runProgram({ENDPOINT_SCAN, "--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, AllOf(HasSubstr("Exit codes:\n  0 "), HasSubstr("\n  130 "), HasSubstr("Examples:")));
    for (const char* subcommand : {"scan", "restore", "list"})
    {
        const std::string help = runProgram({ENDPOINT_SCAN, subcommand, "--help"}).out;
        EXPECT_THAT(help, HasSubstr(std::string("Examples:\n  endpoint_scan ") + subcommand));
        EXPECT_EQ(help.find("deny list") != std::string::npos, subcommand == std::string("scan")) << subcommand;
    }
    EXPECT_EQ(runProgram({ENDPOINT_SCAN, "--version"}).out, "endpoint_scan " TAV_VERSION "\n");
}

TEST_F(EndpointScanTest, AFullDiskPutsTheFilesBackAndGivesCodeFour)
{
    std::string noise;
    std::mt19937 random(1);
    while (noise.size() < 200'000)
        noise += static_cast<char>(random());
    add("bad", noise, true);
    add("sub/small", "small", true);
    ProgramRun run = scanning();
    run.fileSizeLimit = 50'000; // no file may grow beyond: the archive cannot be finished
    const ProgramResult result = run.run();
    EXPECT_EQ(result.exitCode, 4) << result.err;
    EXPECT_THAT(result.out, HasSubstr("DENIED, IN PLACE"));
    EXPECT_TRUE(readFile(tree() + "/bad") == noise);
    EXPECT_EQ(readFile(tree() + "/sub/small"), "small");
    EXPECT_THAT(namesLeft(), ::testing::ElementsAre(".lock"));
    EXPECT_THAT(report().at("files").at(0).at("reason"), HasSubstr("the archive tool failed"));
}

TEST_F(EndpointScanTest, AWrongPasswordRestoresNothing)
{
    add("bad", "bad", true);
    scanned();
    m_place.write("guess", "guess");
    const ProgramResult result = restored("guess");
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, HasSubstr("wrong password"));
    EXPECT_FALSE(fs::exists(m_place.file("back")));
}

TEST_F(EndpointScanTest, ADamagedArchiveRestoresNothing)
{
    add("bad", "bad", true);
    scanned();
    const std::string archive = report().at("archive");
    std::string bytes = readFile(archive);
    bytes[40] = static_cast<char>(bytes[40] ^ 0x55);
    std::ofstream(archive, std::ios::binary) << bytes;
    EXPECT_EQ(restored().exitCode, 4);
    EXPECT_FALSE(fs::exists(m_place.file("back/bad")));
}

TEST_F(EndpointScanTest, AQuarantineInTheTreeIsNotScanned)
{
    add("bad", "bad", true);
    ProgramRun run = scanning();
    run.argv[6] = tree() + "/q";
    EXPECT_EQ(run.run().exitCode, 1);
    const ProgramResult again = run.run();
    EXPECT_EQ(again.exitCode, 0) << again.out;
    EXPECT_THAT(again.out, HasSubstr("q  (the quarantine itself)"));
}

TEST_F(EndpointScanTest, TheLogHidesThePassword)
{
    add("bad", "bad", true);
    ProgramRun run = scanning();
    run.argv.insert(run.argv.end(), {"--log", m_place.file("log")});
    EXPECT_EQ(run.run().exitCode, 1);
    const std::string log = readFile(m_place.file("log"));
    EXPECT_THAT(log,
                AllOf(HasSubstr("7za a -sdel -p**** /"), HasSubstr("7za e -p**** -aoa /"), Not(HasSubstr("pass"))));
}

TEST_F(EndpointScanTest, AReportThatCannotBeWrittenGivesCodeFive)
{
    add("bad", "bad", true);
    for (int i = 0; i < 200; ++i)
        add("good" + std::to_string(i), "x", false);
    ProgramRun run = scanning();
    run.argv.insert(run.argv.begin(), {"/bin/sh", "-c", "trap '' XFSZ; exec \"$@\"", "sh"});
    run.fileSizeLimit = 50'000; // enough for all but the report
    const ProgramResult result = run.run();
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_THAT(result.err, HasSubstr("cannot write: File too large"));
    EXPECT_THAT(result.out, HasSubstr("QUARANTINED"));
    EXPECT_FALSE(fs::exists(m_place.file("report.json")));
}

TEST_F(EndpointScanTest, AReportMayGoToStandardOutputInPlaceOfTheTable)
{
    add("good", "x", false);
    ProgramRun run = scanning();
    run.argv.back() = "-";
    EXPECT_EQ(json::parse(run.run().out).at("summary").at("clean"), 1);
}

/// How a scan is run whose table nobody gets.
class UnreadScanTest : public EndpointScanTest, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(UnreadScanTest, WritesTheReportAndGivesCodeFive)
{
    add("bad", "bad", true);
    ProgramRun run = scanning();
    run.argv.insert(run.argv.begin(), {"/bin/sh", "-c", GetParam(), "sh"});
    run.directory = m_place.path();
    const ProgramResult result = run.run();
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.err, "endpoint_scan: cannot write to standard output\n");
    EXPECT_EQ(report().at("summary").at("quarantined"), 1);
}

INSTANTIATE_TEST_SUITE_P(OntoAFullDisk, UnreadScanTest, ::testing::Values("exec \"$@\" >/dev/full"));
// Opened both ways first, as a pipe cannot be opened for writing alone before it has a reader.
INSTANTIATE_TEST_SUITE_P(IntoAPipeWithoutAReader,
                         UnreadScanTest,
                         ::testing::Values("mkfifo p; exec 3<>p; exec >p 3<&-; exec \"$@\""));

TEST_F(EndpointScanTest, AMistypedQuarantineIsNotMade)
{
    const std::string q = m_place.file("q");
    const std::vector<std::string> commands[] = {
        {ENDPOINT_SCAN, "list", "--quarantine", q},
        {ENDPOINT_SCAN, "restore", "--quarantine", q, "--to", tree(), "--password-file", m_place.file("pw")},
    };
    for (const std::vector<std::string>& command : commands)
    {
        const ProgramResult result = runProgram(command);
        EXPECT_EQ(result.exitCode, 5) << command[1];
        EXPECT_THAT(result.err, HasSubstr(q + ": no such quarantine: No such file or directory")) << command[1];
        EXPECT_FALSE(fs::exists(q)) << command[1];
    }
}

TEST_F(EndpointScanTest, AnUnreadableRecordDoesNotHideTheOthers)
{
    add("bad", "bad", true);
    scanned();
    m_place.write("q/0-stray.7z", "");
    const ProgramResult result = runProgram({ENDPOINT_SCAN, "list", "--quarantine", m_place.file("q")});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.err, "endpoint_scan: 0-stray: cannot open 0-stray.json: No such file or directory\n");
    EXPECT_THAT(result.out, HasSubstr(fs::canonical(tree()).string() + "/bad\n"));
}

TEST_F(EndpointScanTest, WhatACrashLeftKeepsNobodyFromTheArchives)
{
    add("bad", "bad", true);
    scanned();
    fs::create_directories(m_place.file("q/.staging-x/originals"));
    m_place.write("q/.staging-x/originals/0001-ab", "whose?");
    const ProgramResult scan = scanned();
    EXPECT_EQ(scan.exitCode, 5);
    const ProgramResult list = runProgram({ENDPOINT_SCAN, "list", "--quarantine", m_place.file("q")});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_THAT(list.out, HasSubstr("/bad\n"));
    const ProgramResult back = restored();
    EXPECT_EQ(back.exitCode, 0);
    EXPECT_EQ(readFile(m_place.file("back/bad")), "bad");
    for (const ProgramResult* result : {&scan, &list, &back})
        EXPECT_THAT(result->err, AllOf(HasSubstr(".staging-x holds files"), HasSubstr("or move the file out")));
    EXPECT_EQ(readFile(m_place.file("q/.staging-x/originals/0001-ab")), "whose?");
}

TEST_F(EndpointScanTest, TwoScansDoNotShareAQuarantine)
{
    add("good", "x", false);
    fs::create_directory(m_place.file("q"));
    ::chmod(m_place.file("q").c_str(), 0700);
    const std::string script = "exec 9>\"$1/.lock\" && flock 9 && shift && \"$@\" 9>&-";
    ProgramRun run = scanning();
    run.argv.insert(run.argv.begin(), {"/bin/sh", "-c", script, "sh", m_place.file("q")});
    const ProgramResult result = run.run();
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_THAT(result.err, HasSubstr("another process works in this quarantine"));
}

/// Sends a signal at many moments; whatever the moment, no file may be lost.
class InterruptedScanTest : public EndpointScanTest
{
protected:
    static constexpr unsigned int kStepMs = 15;
    static constexpr unsigned int kSteps = 12;

    void expectInTheTreeOrTheQuarantine(unsigned int delay)
    {
        if (fs::exists(m_place.file("q")))
        {
            EXPECT_EQ(restored().exitCode, 0) << delay;
        }
        for (const char* name : {"bad", "sub/bad"})
        {
            const bool isBack = fs::exists(m_place.file("back/" + std::string(name)));
            const bool isThere = fs::exists(tree() + "/" + name);
            EXPECT_NE(isBack, isThere) << name << " after " << delay << " ms";
            EXPECT_EQ(readFile(isBack ? m_place.file("back/" + std::string(name)) : tree() + "/" + name), name)
                << delay;
        }
    }

    void prepare()
    {
        fs::remove_all(m_place.file("q"));
        fs::remove_all(m_place.file("back"));
        m_place.write("deny", kOther);
        for (const char* name : {"bad", "sub/bad"})
            add(name, name, true);
    }
};

TEST_F(InterruptedScanTest, SigintLeavesNoHalfState)
{
    for (unsigned int delay = 0; delay < kStepMs * kSteps; delay += kStepMs)
    {
        prepare();
        ProgramRun run = scanning();
        run.signalToSend = SIGINT;
        run.signalDelayMs = delay;
        const int code = run.run().exitCode;
        EXPECT_THAT(code, ::testing::AnyOf(1, 130)) << delay;
        for (const char* name : {"bad", "sub/bad"})
            EXPECT_EQ(fs::exists(tree() + "/" + name), code == 130) << delay;
        if (fs::exists(m_place.file("q")))
        {
            for (const std::string& name : namesLeft())
                EXPECT_THAT(name, Not(HasSubstr("staging"))) << delay;
        }
        expectInTheTreeOrTheQuarantine(delay);
    }
}

TEST_F(InterruptedScanTest, AKilledScanIsPutRightByTheNextRun)
{
    for (unsigned int delay = 0; delay < kStepMs * kSteps; delay += kStepMs)
    {
        prepare();
        ProgramRun run = scanning();
        run.signalToSend = SIGKILL;
        run.signalDelayMs = delay;
        EXPECT_THAT(run.run().exitCode, ::testing::AnyOf(1, 128 + SIGKILL)) << delay;
        expectInTheTreeOrTheQuarantine(delay);
    }
}

} // namespace
