#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>

#include "common/GuardedUtils.h"
#include "common/KernelVersion.h"
#include "common/Password.h"
#include "common/Text.h"
#include "endpoint_scan/Logger.h"
#include "endpoint_scan/Types.h"
#include "support/TemporaryDirectory.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/logging/MaskingLogger.h"
#include "tav/logging/SpdlogLogger.h"
#include "tav/testing/RecordingLogger.h"

using namespace programs;
using TAV::test::readFile;
using TAV::test::RecordingLogger;
using TAV::test::TemporaryDirectory;
using ::testing::HasSubstr;
using ::testing::Not;

namespace
{

const std::string kStarted = "Child process called to execute the system command : ";

TEST(EndpointScanLoggerTest, WritesMaskedLinesAtOnce)
{
    const TemporaryDirectory place;
    TAV::SpdlogLogger lines(endpointscan::makeSink(place.file("log"), false));
    TAV::MaskingLogger logger(lines);
    logger.hide("pass word");
    logger.log(6, "TAVUtils", kStarted + " /7za a -ppass word /a.7z\x1b[31m");
    logger.log(2, "plain {} braces");
    const std::string text = readFile(place.file("log"));
    EXPECT_THAT(text, HasSubstr("[info] [TAVUtils] " + kStarted + " /7za a -p**** /a.7z\\x1b[31m\n"));
    EXPECT_THAT(text, HasSubstr("[error] plain {} braces\n"));
    EXPECT_THAT(text, Not(HasSubstr("word /")));
}

TEST(EndpointScanLoggerTest, MakesNoDirectories)
{
    const TemporaryDirectory place;
    EXPECT_THROW(endpointscan::makeSink(place.file("mistyped/log"), false), endpointscan::UsageError);
    EXPECT_NE(::access(place.file("mistyped").c_str(), F_OK), 0);
}

TEST(KernelVersionTest, ReadsTheNumbersOfARelease)
{
    struct Case
    {
        const char* release;
        int major;
        int minor;
        int patch;
    };
    for (const Case& c : {Case{"6.1.0-13-amd64", 6, 1, 0},
                          Case{"2.6.32", 2, 6, 32},
                          Case{"5.15", 5, 15, 0},
                          Case{"4.4.302-cip80", 4, 4, 255},
                          Case{"99999.1.1", 255, 1, 1},
                          Case{"", 0, 0, 0},
                          Case{"unknown", 0, 0, 0}})
    {
        const TAV::kernelVersion version = parseKernelRelease(c.release);
        EXPECT_EQ(version.major, c.major) << c.release;
        EXPECT_EQ(version.minor, c.minor) << c.release;
        EXPECT_EQ(version.patch, c.patch) << c.release;
    }
}

TEST(KernelVersionTest, KnowsTheRunningKernel)
{
    EXPECT_GE(runningKernel().major, 2);
}

TEST(TextTest, KnowsUtf8)
{
    for (const char* text : {"", "abc", "Grüße", "日本", "\xf0\x9f\x98\x80", "\xed\x9f\xbf"})
        EXPECT_TRUE(isUtf8(text)) << text;
    for (const char* text : {"\xff", "\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "a\x80", "\xe2\x82"})
        EXPECT_FALSE(isUtf8(text)) << text;
}

TEST(TextTest, MakesNamesHarmless)
{
    EXPECT_EQ(printable("plain Grüße"), "plain Grüße");
    EXPECT_EQ(printable("a\x1b[2J\n\x7f"), "a\\x1b[2J\\x0a\\x7f");
    EXPECT_EQ(printable("\xff\xc3x"), "\\xff\\xc3x");
    EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b");
}

TEST(TextTest, CountsColumnsByCharacter)
{
    EXPECT_EQ(columnsOf("Grüße"), 5U);
}

TEST(PasswordTest, ComesFromAFileWithoutItsNewline)
{
    const TemporaryDirectory place;
    SecretSource source;
    source.file = place.write("pw", "pass word\n");
    EXPECT_EQ(readPassword(source), "pass word");
}

TEST(PasswordTest, ComesFromTheEnvironment)
{
    ::setenv("TAV_TEST_PASSWORD", "secret", 1);
    SecretSource source;
    source.environment = "TAV_TEST_PASSWORD";
    EXPECT_EQ(readPassword(source), "secret");
    ::unsetenv("TAV_TEST_PASSWORD");
    EXPECT_THROW(readPassword(source), SecretError);
}

TEST(PasswordTest, RefusesWhatWouldNotArriveWhole)
{
    const TemporaryDirectory place;
    for (const std::string& text :
         {std::string(), std::string("\n"), std::string("a\0b", 3), std::string("a\nb"), std::string("a\r\n")})
    {
        SecretSource source;
        source.file = place.write("pw", text);
        EXPECT_THROW(readPassword(source), SecretError) << text;
    }
    SecretSource missing;
    missing.file = place.file("missing");
    EXPECT_THROW(readPassword(missing), SecretError);
}

class GuardedUtilsTest : public ::testing::Test
{
protected:
    RecordingLogger m_logger;
    GuardedUtils m_utils{std::make_shared<TAV::TAVUtils>(
        std::make_shared<TAV::TAVSystemUtils>(), m_logger, std::make_shared<TAV::kernelVersion>(runningKernel()))};
};

TEST_F(GuardedUtilsTest, RunsPrograms)
{
    EXPECT_TRUE(m_utils.executeSystemCommand({"/bin/true"}, nullptr));
}

TEST_F(GuardedUtilsTest, ComesBackFromAProgramThatFailsWithoutAWord)
{
    EXPECT_FALSE(m_utils.executeSystemCommand({"/bin/false"}, nullptr));
    EXPECT_FALSE(m_utils.executeSystemCommand({"/bin/sh", "-c", "kill -9 $$"}, nullptr));
}

TEST_F(GuardedUtilsTest, ComesBackFromAProgramThatComplainsAtLength)
{
    EXPECT_TRUE(m_utils.executeSystemCommand({"/bin/sh", "-c", "head -c 1000000 /dev/zero >&2"}, nullptr));
}

TEST_F(GuardedUtilsTest, RefusesWhatCannotRunWithoutMakingAChild)
{
    const TemporaryDirectory place;
    for (const std::string& program : {place.file("missing"), place.write("plain", "text"), place.path()})
        EXPECT_FALSE(m_utils.executeSystemCommand({program}, nullptr)) << program;
    EXPECT_FALSE(m_utils.executeSystemCommand({}, nullptr));
    EXPECT_TRUE(m_logger.lines().empty()) << "the service was asked";
}

TEST_F(GuardedUtilsTest, EndsTheChildWhoseProgramDoesNotStart)
{
    const TemporaryDirectory place;
    const std::string program = place.write("program", "#!/nowhere/interpreter\n");
    ::chmod(program.c_str(), 0700);
    const std::string trace = place.file("trace");
    const auto trySo = [&]
    {
        int fds[2] = {-1, -1};
        ASSERT_EQ(::pipe(fds), 0);
        EXPECT_FALSE(m_utils.executeSystemCommand({program}, nullptr));
        EXPECT_FALSE(m_utils.readSystemCommandOutput({program}, nullptr, fds));
        ::close(fds[0]);
        ::close(fds[1]);
        std::ofstream(trace, std::ios::app) << "here\n"; // once, not by each child as well
    };
    trySo();
    EXPECT_EQ(readFile(trace), "here\n");
}

} // namespace
