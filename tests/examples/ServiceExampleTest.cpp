// Each example program does what it says.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "TestAuthority.h"
#include "apps/ProgramRun.h"
#include "integration/cgroup/PrivateController.h"
#include "support/Kdc.h"
#include "support/NginxServer.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class ServiceExampleTest : public testing::Test
{
protected:
    ProgramResult run(const std::string& example, std::vector<std::string> arguments)
    {
        m_run.argv = {TAV_EXAMPLES "/" + example};
        m_run.argv.insert(m_run.argv.end(), arguments.begin(), arguments.end());
        return m_run.run();
    }

    ProgramRun m_run;
    TemporaryDirectory m_files;
};

TEST_F(ServiceExampleTest, FileTypeTellsTypes)
{
    const std::string text = m_files.write("text", "some words\n");

    const ProgramResult result = run("file_type", {text, "/"});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, text + ": text/plain\n/: inode/directory\n");
}

TEST_F(ServiceExampleTest, ChecksumsTellThreeOfEachFile)
{
    const std::string file = m_files.write("abc", "abc");

    const ProgramResult result = run("checksums", {file});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out,
              "MD5 (" + file + ") = 900150983cd24fb0d6963f7d28e17f72\n" + "SHA1 (" + file +
                  ") = a9993e364706816aba3e25717850c26c9cd0d89d\n" + "SHA256 (" + file +
                  ") = ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n");
}

TEST_F(ServiceExampleTest, ChecksumsPassOverWhatIsNoFile)
{
    const ProgramResult result = run("checksums", {"/", m_files.file("missing")});

    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.out, IsEmpty());
}

TEST_F(ServiceExampleTest, RunCommandRunsIt)
{
    const ProgramResult result = run("run_command", {"/bin/echo", "some", "words"});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "some words\n");
    EXPECT_THAT(result.err, HasSubstr("succeeded\n"));
}

TEST_F(ServiceExampleTest, RunCommandTellsFailureOnce)
{
    EXPECT_THAT(run("run_command", {"/bin/false"}).err, MatchesRegex(".*\nfailed\n"));
    EXPECT_THAT(run("run_command", {"/no/such/program"}).err, MatchesRegex("(\\[[^\n]*\n)*failed\n"));
}

TEST_F(ServiceExampleTest, CaptureOutputTakesMoreThanAPipeHolds)
{
    const ProgramResult result = run("capture_output", {"/usr/bin/seq", "100000"});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "588895 bytes, 100000 lines\n");
}

TEST_F(ServiceExampleTest, CpuLimitPutsTheProgramIntoTheGroup)
{
    if (const std::string reason = PrivateController::whyUnavailable(); !reason.empty())
        GTEST_SKIP() << reason;
    const PrivateController controller(Place::First);

    const ProgramResult result = run("cpu_limit", {"20", "/bin/cat", "/proc/self/cgroup"});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("/zell_tp_ods\n"));
}

TEST_F(ServiceExampleTest, CpuLimitStartsTheProgramWithoutAControllerToo)
{
    const ProgramResult result = run("cpu_limit", {"20", "/bin/echo", "started"});

    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "started\n");
}

TEST_F(ServiceExampleTest, CpuLimitTakesNothingButAPercentage)
{
    for (const char* percent : {"abc", "-5", "0", "101", "65556", "20x", ""})
    {
        const ProgramResult result = run("cpu_limit", {percent, "/bin/echo", "started"});
        EXPECT_EQ(result.exitCode, 2) << percent;
        EXPECT_THAT(result.out, IsEmpty()) << percent;
    }
}

TEST_F(ServiceExampleTest, ArchiveMovesFilesThereAndBack)
{
    const std::string file = m_files.write("file", "content");
    const std::string archive = m_files.file("archive.7z");
    m_run.environment["ARCHIVE_PASSWORD"] = "secret";

    EXPECT_EQ(run("archive", {"create", archive, file}).exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(run("archive", {"extract", archive, m_files.path()}).exitCode, 0);
    EXPECT_EQ(readFile(file), "content");
}

TEST_F(ServiceExampleTest, QueryAsksOverOneConnection)
{
    if (const std::string missing = NginxServer::missing(); !missing.empty())
        GTEST_SKIP() << missing;
    NginxSite site;
    site.certificate = TestAuthority::shared().good().certificate;
    site.key = TestAuthority::shared().good().key;
    const NginxServer server({site});

    const ProgramResult result = run(
        "query", {"localhost:" + std::to_string(server.port()), TestAuthority::shared().caFile(), "first", "second"});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, MatchesRegex("first: fine \\([0-9]+ ms\\)\nsecond: fine \\([0-9]+ ms\\)\n"));
    EXPECT_EQ(server.requests(2).at(1).ordinal, 2U);
}

TEST_F(ServiceExampleTest, KerberosMakesAKeytabAndRemovesIt)
{
    if (const std::string missing = Kdc::missing(); !missing.empty())
        GTEST_SKIP() << missing;
    Kdc kdc;
    kdc.addUser("user", "a password");
    m_run.environment["KRB5_CONFIG"] = kdc.clientConfig();
    m_run.input = "a password\n";

    const ProgramResult result = run("kerberos", {"user@" + kdc.realm(), m_files.path()});

    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, m_files.file("client.keytab") + "\n");
    EXPECT_THAT(result.err, HasSubstr("[5] KrbHandler: Kerberos configuration was set successfully.\n"));
    EXPECT_FALSE(std::filesystem::exists(m_files.file("client.keytab")));
}

TEST_F(ServiceExampleTest, EachTellsHowToUseIt)
{
    for (const char* example : {"run_command", "cpu_limit", "archive", "query", "kerberos"})
    {
        const ProgramResult result = run(example, {});
        EXPECT_EQ(result.exitCode, 2) << example;
        EXPECT_THAT(result.err, HasSubstr(std::string("usage: ") + example));
    }
}

} // namespace
} // namespace TAV::test
