#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

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

ProgramResult tavctl(std::vector<std::string> arguments, const std::string& input = "")
{
    arguments.insert(arguments.begin(), TAVCTL);
    return runProgram(std::move(arguments), input);
}

class TavctlTest : public ::testing::Test
{
protected:
    TemporaryDirectory m_place;
};

TEST_F(TavctlTest, TellsItsVersion)
{
    const ProgramResult result = tavctl({"--version"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "tavctl " TAV_VERSION "\n");
}

TEST_F(TavctlTest, HelpsEachSubcommandWithExamplesOfItsOwnAndEveryOption)
{
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{{"mime"},
                                                                                           {"checksum"},
                                                                                           {"hmac"},
                                                                                           {"base64"},
                                                                                           {"base64", "encode"},
                                                                                           {"run"},
                                                                                           {"capture"},
                                                                                           {"cpu-limit"},
                                                                                           {"query"},
                                                                                           {"krb"},
                                                                                           {"krb", "renew"},
                                                                                           {"krb", "run"},
                                                                                           {"krb", "show"},
                                                                                           {"doctor"},
                                                                                           {"archive"},
                                                                                           {"archive", "create"},
                                                                                           {"archive", "extract"}})
    {
        std::vector<std::string> all = arguments;
        all.emplace_back("--help");
        const ProgramResult result = tavctl(all);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_THAT(result.out,
                    AllOf(HasSubstr("Examples:\n  tavctl " + arguments.front()),
                          HasSubstr("\n  --json "),
                          HasSubstr("\n  --verbose ")))
            << ::testing::PrintToString(arguments);
    }
    EXPECT_THAT(tavctl({"--help"}).out, HasSubstr("Examples:\n  tavctl mime "));
}

TEST_F(TavctlTest, AnswersBadArgumentsWithCodeTwoAndAReason)
{
    struct Case
    {
        std::vector<std::string> arguments;
        const char* reason;
    };
    const std::vector<Case> cases{
        {{}, "subcommand is required"},
        {{"nonsense"}, "tavctl: nonsense: no such subcommand (see tavctl --help)\n"},
        {{""}, "\"\": no such subcommand"},
        {{"base64", "nonsense"}, "tavctl: nonsense: no such subcommand (see tavctl base64 --help)\n"},
        {{"--nonsense"}, "tavctl: --nonsense: no such option (see tavctl --help)\n"},
        {{"--nonsense", "mime", "/etc/passwd"}, "--nonsense"},
        {{"mime"}, "tavctl: FILE is required (see tavctl mime --help)\n"},
        {{"mime", "--nonsense", "/etc/passwd"}, "--nonsense"},
        {{"checksum"}, "name a file, or give --data"},
        {{"hmac"}, "--key-file"},
        {{"hmac", "--key-file", "a", "--key-env", "b"}, "--key-file"},
        {{"base64"}, "subcommand is required"},
        {{"run"}, "PROGRAM"},
        {{"run", "--keep", "x", "--", "/bin/true"}, "--keep: Value x not in range 0 to 2147483647 (see tavctl run"},
        {{"run", "--keep", "-1", "--", "/bin/true"}, "--keep: Value -1 not in range 0 to 2147483647"},
        {{"run", "--keep", "99999999999", "--", "/bin/true"}, "--keep: Value 99999999999 not in range 0 to 2147483647"},
        {{"run", "--keep", "2", "--", "/bin/true"}, "descriptor 2 cannot be kept"},
        {{"run", "--keep", "99", "--", "/bin/true"}, "descriptor 99 is not open"},
        {{"capture"}, "PROGRAM"},
        {{"archive", "create", "a.7z"}, "FILE"},
        {{"archive", "create", "a.tar", "/etc/passwd"}, "must end in .7z or .zip"},
        {{"archive", "create", "a.7z", "b*"}, "wildcards"},
        {{"archive", "extract", "a?.7z"}, "wildcards"},
        {{"archive", "extract", "--password-file", "a", "--password-prompt", "a.7z"}, "--password"},
    };
    for (const Case& c : cases)
    {
        const ProgramResult result = tavctl(c.arguments);
        EXPECT_EQ(result.exitCode, 2) << ::testing::PrintToString(c.arguments);
        EXPECT_THAT(result.err, HasSubstr(c.reason)) << ::testing::PrintToString(c.arguments);
        EXPECT_THAT(result.err, StartsWith("tavctl: "));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_THAT(result.out, IsEmpty()) << ::testing::PrintToString(c.arguments);
    }
}

TEST_F(TavctlTest, MimeTellsTypesAndFailuresApart)
{
    const std::string text = m_place.write("a text", "hello\n");
    const ProgramResult result = tavctl({"mime", text, m_place.file("missing"), m_place.path()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, text + ": text/plain\n");
    EXPECT_THAT(result.err, AllOf(HasSubstr("missing: No such file or directory"), HasSubstr(": is a directory")));
    EXPECT_EQ(tavctl({"mime", ""}).err, "tavctl: \"\": No such file or directory\n");
}

TEST_F(TavctlTest, MimeGivesJson)
{
    const std::string text = m_place.write("t", "hello\n");
    const json list = json::parse(tavctl({"mime", "--json", text, m_place.file("missing")}).out);
    EXPECT_EQ(list,
              json::parse(R"([{"file": ")" + text + R"(", "mime_type": "text/plain"}, {"file": ")" +
                          m_place.file("missing") + R"(", "error": "No such file or directory"}])"));
}

TEST_F(TavctlTest, JsonTellsNamesApartThatAreNotUtf8)
{
    for (const char* command : {"mime", "checksum"})
    {
        ProgramRun run;
        run.directory = m_place.path();
        run.argv = {TAVCTL, "--json", command, "a\xff", "a\xfe"};
        const json list = json::parse(run.run().out);
        EXPECT_EQ(list.at(0).at("file_base64"), "Yf8=") << command;
        EXPECT_EQ(list.at(1).at("file_base64"), "Yf4=") << command;
        EXPECT_FALSE(list.at(0).contains("file")) << command;
    }
    EXPECT_EQ(json::parse(tavctl({"--json", "base64", "encode", m_place.write("\xff", "")}).out).count("input"), 0U);
}

TEST_F(TavctlTest, JsonTellsCommandsApartThatAreNotUtf8)
{
    for (const char* command : {"run", "capture"})
    {
        const json result = json::parse(tavctl({"--json", command, "--", "/bin/echo", "\xff"}).out);
        EXPECT_EQ(result.at("command_base64"), json::parse(R"(["L2Jpbi9lY2hv", "/w=="])")) << command;
        EXPECT_FALSE(result.contains("command")) << command;
    }
}

TEST_F(TavctlTest, JsonTellsAFailureThatLeavesNoResult)
{
    struct Case
    {
        std::vector<std::string> arguments;
        std::string reason;
    };
    const std::string missing = ": No such file or directory";
    for (const Case& c : {Case{{"run", "--", "/nonexist"}, "/nonexist" + missing},
                          Case{{"capture", "--", "/nonexist"}, "/nonexist" + missing},
                          Case{{"base64", "encode", "/none\xff\xfe"}, "/none\\xff\\xfe" + missing}})
    {
        std::vector<std::string> arguments = c.arguments;
        arguments.insert(arguments.begin(), "--json");
        const ProgramResult result = tavctl(arguments);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(json::parse(result.out), (json{{"success", false}, {"error", c.reason}}));
        EXPECT_EQ(result.err, "tavctl: " + c.reason + "\n");
        EXPECT_THAT(tavctl(c.arguments).out, IsEmpty());
    }
}

TEST_F(TavctlTest, ChecksumOfAFile)
{
    const std::string file = m_place.write("abc", "abc");
    EXPECT_EQ(tavctl({"checksum", file}).out,
              file + "\n  md5     900150983cd24fb0d6963f7d28e17f72\n"
                     "  sha1    a9993e364706816aba3e25717850c26c9cd0d89d\n"
                     "  sha256  ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n");
    const json list = json::parse(tavctl({"--json", "checksum", file}).out);
    EXPECT_EQ(list.at(0).at("sha1"), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST_F(TavctlTest, ChecksumOfATextIsMd5)
{
    EXPECT_EQ(tavctl({"checksum", "--data", "abc"}).out, "data\n  md5     900150983cd24fb0d6963f7d28e17f72\n");
    EXPECT_EQ(tavctl({"checksum", "--data", ""}).out, "data\n  md5     d41d8cd98f00b204e9800998ecf8427e\n");
}

TEST_F(TavctlTest, ChecksumDoesNotWaitForAPipe)
{
    ::mkfifo(m_place.file("pipe").c_str(), 0600);
    const ProgramResult result = tavctl({"checksum", m_place.file("pipe"), m_place.path()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, AllOf(HasSubstr("not a regular file"), HasSubstr("is a directory")));
}

TEST_F(TavctlTest, HmacTakesKeyAndMessageFromSafePlaces)
{
    // RFC 2202, test case 2.
    const std::string expected = "7/zfauXrL6LSdBbV8YTfnCWafHk=\n";
    const std::string key = m_place.write("key", "Jefe\n");
    const std::string message = "what do ya want for nothing?";
    EXPECT_EQ(tavctl({"hmac", "--key-file", key}, message).out, expected);
    EXPECT_EQ(tavctl({"hmac", "--key-file", key, "-"}, message).out, expected);
    EXPECT_EQ(tavctl({"hmac", "--key-file", key, m_place.write("message", message)}).out, expected);
    ProgramRun run;
    run.argv = {TAVCTL, "hmac", "--key-env", "HMAC_KEY", "--json"};
    run.environment["HMAC_KEY"] = "Jefe";
    run.input = message;
    EXPECT_EQ(json::parse(run.run().out).at("hmac_sha1_base64"), "7/zfauXrL6LSdBbV8YTfnCWafHk=");
}

TEST_F(TavctlTest, HmacRefusesAKeyThatWouldBeCut)
{
    const ProgramResult result = tavctl({"hmac", "--key-file", m_place.write("key", std::string("a\0b", 3))}, "x");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("zero byte"));
}

TEST_F(TavctlTest, Base64SurvivesAnyBytes)
{
    std::string bytes;
    for (int i = 0; i < 100'000; ++i)
        bytes += static_cast<char>((i * 7 + i / 256) & 0xff);
    const ProgramResult encoded = tavctl({"base64", "encode"}, bytes);
    EXPECT_EQ(encoded.exitCode, 0);
    EXPECT_TRUE(tavctl({"base64", "decode"}, encoded.out).out == bytes);
    EXPECT_TRUE(tavctl({"base64", "decode", m_place.write("text", encoded.out)}).out == bytes);
}

TEST_F(TavctlTest, Base64KnowsTheEmptyInput)
{
    EXPECT_EQ(tavctl({"base64", "encode"}).out, "\n");
    EXPECT_EQ(tavctl({"base64", "encode"}).exitCode, 0);
    EXPECT_EQ(tavctl({"base64", "decode"}, "\n").exitCode, 0);
    EXPECT_EQ(tavctl({"base64", "decode"}, "\n").out, "");
}

TEST_F(TavctlTest, Base64DecodesWrappedText)
{
    EXPECT_EQ(tavctl({"base64", "decode"}, "Zm9v\nYm\r\n Fy\n").out, "foobar");
}

TEST_F(TavctlTest, Base64RefusesOddTexts)
{
    for (const char* text : {"====", "=AAA", "Zg==Zg==", "Zm9vx", "abc", "Zm9_", "Zm9="})
    {
        const ProgramResult result = tavctl({"base64", "decode"}, text);
        EXPECT_EQ(result.exitCode, 1) << text;
        EXPECT_THAT(result.out, IsEmpty()) << text;
        EXPECT_THAT(result.err, HasSubstr("not base64")) << text;
    }
}

TEST_F(TavctlTest, Base64JsonHoldsAnyBytes)
{
    EXPECT_EQ(json::parse(tavctl({"--json", "base64", "decode"}, "Zm9v").out).at("data"), "foo");
    EXPECT_EQ(json::parse(tavctl({"--json", "base64", "decode"}, "/w==").out).at("data_base64"), "/w==");
}

TEST_F(TavctlTest, RunTellsSuccessFromFailure)
{
    EXPECT_EQ(tavctl({"run", "--", "/bin/true"}).exitCode, 0);
    EXPECT_EQ(tavctl({"run", "--", "/bin/true"}).out, "success\n");
    for (const char* script : {"exit 1", "kill -9 $$", "exit 127"})
    {
        const ProgramResult result = tavctl({"run", "--", "/bin/sh", "-c", script});
        EXPECT_EQ(result.exitCode, 1) << script;
        EXPECT_THAT(result.err, HasSubstr("did not end with status 0")) << script;
    }
}

TEST_F(TavctlTest, RunComesBackFromAProgramThatComplainsAtLength)
{
    EXPECT_EQ(tavctl({"run", "--", "/bin/sh", "-c", "head -c 1000000 /dev/zero >&2"}).exitCode, 0);
}

TEST_F(TavctlTest, RunHandsOnWhatIsKeptAndNothingElse)
{
    // Collected first and written last: a shell redirects itself for a while when it writes.
    const std::string inner =
        R"x(for f in 0 1 2 3 7 8; do s="$s $(readlink /proc/$$/fd/$f || echo closed)"; done; echo "$s" >&3)x";
    const std::string outer = R"(exec "$1" run --keep 3 -- /bin/sh -c "$2" 3>"$3" 7</dev/zero 8</etc/passwd)";
    const std::string log = m_place.file("log");
    EXPECT_EQ(runProgram({"/bin/sh", "-c", outer, "sh", TAVCTL, inner, log}).exitCode, 0);
    EXPECT_EQ(readFile(log), " /dev/null /dev/null /dev/null " + log + " closed closed\n");
}

TEST_F(TavctlTest, RunKeepsItsOwnOutputForTheAnswer)
{
    EXPECT_EQ(tavctl({"run", "--", "/bin/echo", "unseen"}).out, "success\n");
    EXPECT_EQ(tavctl({"run", "--keep", "1", "--", "/bin/echo", "seen"}).out, "seen\nsuccess\n");
    EXPECT_EQ(tavctl({"run", "--keep", "0", "--keep", "1", "--", "/bin/cat"}, "fed").out, "fedsuccess\n");
}

TEST_F(TavctlTest, RefusesProgramsThatCannotRun)
{
    for (const char* command : {"run", "capture"})
    {
        EXPECT_THAT(tavctl({command, "--", "true"}).err, HasSubstr("PATH is not searched")) << command;
        EXPECT_THAT(tavctl({command, "--", "/etc"}).err, HasSubstr("not a regular file")) << command;
        EXPECT_THAT(tavctl({command, "--", m_place.write("plain", "x")}).err, HasSubstr("Permission denied"))
            << command;
        EXPECT_EQ(tavctl({command, "--", "/nowhere"}).exitCode, 1) << command;
    }
}

TEST_F(TavctlTest, AProgramThatDoesNotStartLeavesOneAnswer)
{
    const std::string program = m_place.write("program", "#!/nowhere/interpreter\n");
    ::chmod(program.c_str(), 0700);
    for (const char* command : {"run", "capture"})
    {
        const ProgramResult result = tavctl({"--json", command, "--", program});
        EXPECT_EQ(result.exitCode, 1) << command;
        EXPECT_EQ(json::parse(result.out).at("success"), false) << command << ": " << result.out;
    }
}

TEST_F(TavctlTest, CapturePrintsOutputOfAnySize)
{
    const ProgramResult result = tavctl({"capture", "--", "/bin/sh", "-c", "head -c 3000000 /dev/zero; echo end"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out.size(), 3000004U);
    EXPECT_TRUE(result.out.compare(3000000, 4, "end\n") == 0);
}

TEST_F(TavctlTest, CaptureDoesNotWaitForWhatTheProgramLeftBehind)
{
    const ProgramResult result = tavctl({"capture", "--", "/bin/sh", "-c", "sleep 300 & echo $!"});
    EXPECT_EQ(result.exitCode, 0);
    const int left = std::stoi(result.out);
    EXPECT_EQ(::kill(left, SIGKILL), 0) << "it should still run";
}

TEST_F(TavctlTest, CaptureTakesArgumentsAsTheyAre)
{
    EXPECT_EQ(tavctl({"capture", "--", "/bin/echo", "--json", "--", "-x", "a  b"}).out, "--json -- -x a  b\n");
}

TEST_F(TavctlTest, CaptureGivesJsonAlsoOfAFailure)
{
    const ProgramResult result = tavctl({"capture", "--json", "--", "/bin/sh", "-c", "echo out; exit 3"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(
        json::parse(result.out),
        json::parse(R"({"command": ["/bin/sh", "-c", "echo out; exit 3"], "output": "out\n", "success": false})"));
}

TEST_F(TavctlTest, TellsWhenItsOutputIsLost)
{
    for (const char* redirection : {">/dev/full", ">&-", "<&- >&-"})
        for (const char* arguments : {"checksum --data abc", "--help", "mime --help", "--version"})
        {
            const std::string script = std::string(TAVCTL " ") + arguments + " " + redirection;
            const ProgramResult result = runProgram({"/bin/sh", "-c", script});
            EXPECT_EQ(result.exitCode, 1) << script;
            EXPECT_THAT(result.err, StartsWith("tavctl: cannot write the output: ")) << script;
        }
}

TEST_F(TavctlTest, NeedsNoOutputWhereNothingIsWritten)
{
    EXPECT_EQ(runProgram({"/bin/sh", "-c", "printf '' | " TAVCTL " base64 decode >&-"}).exitCode, 0);
}

TEST_F(TavctlTest, VerbosePrintsTheLibrarysLines)
{
    const ProgramResult result = tavctl({"--verbose", "run", "--", "/bin/true"});
    EXPECT_EQ(result.err, "[6] TAVUtils: Child process called to execute the system command :  /bin/true\n");
}

class TavctlArchiveTest : public TavctlTest
{
protected:
    void SetUp() override
    {
        if (::access(ARCHIVE_TOOL, X_OK) != 0)
            GTEST_SKIP() << "the archive tool is not at " ARCHIVE_TOOL;
    }
};

TEST_F(TavctlArchiveTest, FilesComeBackFromAnArchiveWithAPassword)
{
    const std::string password = m_place.write("pw", "pass word\n");
    const std::string file = m_place.write("with blank ü", "content");
    const ProgramResult created =
        tavctl({"--verbose", "archive", "create", "--password-file", password, m_place.file("a.7z"), file});
    EXPECT_EQ(created.exitCode, 0) << created.err;
    EXPECT_FALSE(fs::exists(file)) << "files are moved";
    EXPECT_THAT(created.err, AllOf(HasSubstr(" -p**** "), Not(HasSubstr("pass"))));

    const ProgramResult extracted =
        tavctl({"archive", "extract", "--password-file", password, "--to", m_place.file("out"), m_place.file("a.7z")});
    EXPECT_EQ(extracted.exitCode, 0) << extracted.err;
    EXPECT_EQ(readFile(m_place.file("out/with blank ü")), "content");
}

TEST_F(TavctlArchiveTest, TakesNamesLiterally)
{
    m_place.write("@list", "the list");
    m_place.write("-x", "the switch");
    ProgramRun run;
    run.directory = m_place.path();
    run.argv = {TAVCTL, "archive", "create", "a.zip", "@list", "./-x"};
    const ProgramResult created = run.run();
    EXPECT_EQ(created.exitCode, 0) << created.err;
    run.argv = {TAVCTL, "archive", "extract", "--to", "out", "a.zip"};
    EXPECT_EQ(run.run().exitCode, 0);
    EXPECT_EQ(readFile(m_place.file("out/@list")), "the list");
    EXPECT_EQ(readFile(m_place.file("out/-x")), "the switch");
}

TEST_F(TavctlArchiveTest, ShowsNamesThatCannotSteerATerminal)
{
    const std::string archive = m_place.file("a\x1b\xff.7z");
    const ProgramResult created = tavctl({"archive", "create", archive, m_place.write("f", "x")});
    EXPECT_EQ(created.out, "created " + m_place.file("a\\x1b\\xff.7z") + " from 1 file(s)\n");
    const ProgramResult extracted = tavctl({"archive", "extract", "--to", m_place.file("o\x1b"), archive});
    EXPECT_THAT(extracted.out, HasSubstr(" into " + m_place.file("o\\x1b\n")));
    const json result = json::parse(tavctl({"--json", "archive", "extract", "--to", m_place.path(), archive}).out);
    EXPECT_EQ(result.count("archive_base64"), 1U) << result;
    EXPECT_EQ(result.at("directory"), m_place.path());
}

TEST_F(TavctlArchiveTest, AMissingFileKeepsTheOthersInPlace)
{
    const std::string file = m_place.write("a", "content");
    const ProgramResult result = tavctl({"archive", "create", m_place.file("a.7z"), file, m_place.file("missing")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("nothing was archived"));
    EXPECT_EQ(readFile(file), "content");
    EXPECT_FALSE(fs::exists(m_place.file("a.7z")));
}

TEST_F(TavctlArchiveTest, RefusesTwoFilesOfOneName)
{
    fs::create_directory(m_place.file("sub"));
    const ProgramResult result =
        tavctl({"archive", "create", m_place.file("a.7z"), m_place.write("x", "1"), m_place.write("sub/x", "2")});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(readFile(m_place.file("x")), "1");
}

TEST_F(TavctlArchiveTest, AWrongPasswordIsAFailure)
{
    const std::string archive = m_place.file("a.7z");
    ASSERT_EQ(
        tavctl({"archive", "create", "--password-file", m_place.write("pw", "right"), archive, m_place.write("f", "x")})
            .exitCode,
        0);
    for (const std::vector<std::string>& password :
         {std::vector<std::string>{"--password-file", m_place.write("pw", "wrong")}, std::vector<std::string>{}})
    {
        std::vector<std::string> arguments{"archive", "extract", "--to", m_place.file("out"), archive};
        arguments.insert(arguments.end(), password.begin(), password.end());
        const ProgramResult result = tavctl(arguments);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.err, HasSubstr("wrong password"));
    }
}

} // namespace
