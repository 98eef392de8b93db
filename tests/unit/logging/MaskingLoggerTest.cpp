#include "tav/logging/MaskingLogger.h"

#include <gtest/gtest.h>

#include <thread>

#include "tav/QelArchiveUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/FakeTAVSystemUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{
namespace
{

const std::string kStarted = "Child process called to execute the system command : ";

struct MaskCase
{
    const char* name;
    std::vector<std::string> secrets;
    std::string message;
    std::string masked;
};

void PrintTo(const MaskCase& c, std::ostream* out)
{
    *out << c.name;
}

MaskCase command(const char* name, std::vector<std::string> secrets, const std::string& line, const std::string& masked)
{
    return {name, std::move(secrets), kStarted + line, kStarted + masked};
}

class MaskingLoggerTest : public testing::TestWithParam<MaskCase>
{
};

TEST_P(MaskingLoggerTest, MasksBothKindsOfLine)
{
    const MaskCase& c = GetParam();
    RecordingLogger real;
    MaskingLogger logger(real, c.secrets);
    logger.log(6, "TAVUtils", c.message);
    logger.log(2, c.message);

    EXPECT_EQ(real.lines(), (std::vector<LogLine>{{6, "TAVUtils", c.masked}, {2, std::nullopt, c.masked}}));
}

std::string nameOf(const testing::TestParamInfo<MaskCase>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    CommandOfUnknownPassword,
    MaskingLoggerTest,
    testing::Values(command("InTheMiddle", {}, " /7za a -sdel -psecret /a.7z /b", " /7za a -sdel -p**** /a.7z /b"),
                    command("AtTheEnd", {}, " /7za e -psecret", " /7za e -p****"),
                    command("Several", {}, " /7za -pa -x -pb -pc", " /7za -p**** -x -p**** -p****"),
                    command("Quoted", {}, " sh -c 7za -p\"two words\" /a", " sh -c 7za -p**** /a"),
                    command("QuotedAtTheEnd", {}, " sh -c 7za -p'two words'", " sh -c 7za -p****"),
                    command("QuoteThatNeverEnds", {}, " 7za -p\"two words", " 7za -p**** words"),
                    command("OneThatIsOnlyAQuote", {}, " 7za -p' /a", " 7za -p**** /a"),
                    command("TabAndNewlineInside", {}, " 7za -pa\tb\nc /a", " 7za -p**** /a"),
                    command("NoPassword", {}, " /bin/mkdir -p /a", " /bin/mkdir -p /a"),
                    command("NoPasswordAtTheEnd", {}, " /bin/mkdir -p", " /bin/mkdir -p"),
                    command("InsideAnArgument", {}, " /a-pb", " /a-pb"),
                    command("NothingAtAll", {}, "", "")),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    CommandOfKnownPassword,
    MaskingLoggerTest,
    testing::Values(
        command("WithBlanks", {"two words -pand more"}, " /7za a -ptwo words -pand more /a", " /7za a -p**** /a"),
        command("AtTheEndWithBlanks", {"pass word "}, " /7za a -ppass word ", " /7za a -p****"),
        command("ThatBeginsWithAnother", {"a", "a b"}, " /7za a -pa b /x", " /7za a -p**** /x"),
        command("ThatBeginsWithAnotherLater", {"a b", "a"}, " /7za a -pa b /x", " /7za a -p**** /x"),
        command("ElsewhereToo", {"sesame"}, " /7za a -psesame /q/sesame.7z", " /7za a -p**** /q/****.7z"),
        command("ShortStaysElsewhere", {"b"}, " /7za a -pb /b", " /7za a -p**** /b"),
        command("OfStars", {"****"}, " /7za a -p**** /b", " /7za a -p**** /b"),
        command("EmptyOneToldOf", {""}, " /bin/mkdir -p /b", " /bin/mkdir -p /b")),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    OtherLine,
    MaskingLoggerTest,
    testing::Values(
        MaskCase{"WithoutSecret", {}, "a message with -psecret", "a message with -psecret"},
        MaskCase{"WithSecrets", {"open sesame", "other"}, "other: open sesame, other", "****: ****, ****"},
        MaskCase{"SecretAlone", {"sesame"}, "sesame", "****"},
        MaskCase{"OfShortSecret", {"pas"}, "a message: pass -ppas", "a message: pass -ppas"},
        MaskCase{"OfShortestSecret", {"pass"}, "a message: pass", "a message: ****"},
        MaskCase{"OfPercents", {"100%"}, "%s %n 100%", "%s %n ****"},
        MaskCase{"Empty", {"sesame"}, "", ""},
        MaskCase{"Long", {"sesame"}, std::string(1 << 20, 'x') + "sesame", std::string(1 << 20, 'x') + "****"},
        MaskCase{"ThatQuotesAnAnnouncement", {}, "x " + kStarted + " -psecret", "x " + kStarted + " -psecret"}),
    nameOf);

TEST(MaskingLoggerLinesTest, HidesWhatItIsToldLater)
{
    RecordingLogger real;
    MaskingLogger logger(real);
    logger.log(2, "sesame");
    logger.hide("sesame");
    logger.log(2, "sesame");

    EXPECT_EQ(real.lines(), (std::vector<LogLine>{{2, std::nullopt, "sesame"}, {2, std::nullopt, "****"}}));
    EXPECT_EQ(logger.masked("open sesame"), "open ****");
}

TEST(MaskingLoggerLinesTest, HidesTheArchivePasswordThatTheLibraryAnnounces)
{
    RecordingLogger real;
    MaskingLogger logger(real);
    auto system = std::make_shared<FakeTAVSystemUtils>();
    system->onPipe = [](std::array<int, 2>& fds, int&, int) { return fds = {40, 41}, 0; };
    system->onFork = [](int&) { return 4711; }; // no process is made
    system->onWaitpid = [](pid_t pid, int* status, int, int&) { return *status = 0, pid; };
    system->onClose = [](int, int&) { return 0; };
    QelArchiveUtils archives(logger, std::make_shared<TAVUtils>(system, logger, std::make_shared<kernelVersion>()));
    ASSERT_TRUE(archives.createArchive("/q/a.7z", ArchiveType::SevenZip, {"/q/x"}, {}, "sesame"));

    EXPECT_EQ(real.lines().back(),
              (LogLine{6, "TAVUtils", kStarted + " /opt/Brenlow/zel/tav/bin/7za a -sdel -p**** /q/a.7z /q/x"}));
}

TEST(MaskingLoggerLinesTest, MasksInManyThreads)
{
    RecordingLogger real;
    MaskingLogger logger(real, {"sesame"});
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&logger]
            {
                for (int n = 0; n < 100; ++n)
                    logger.log(6, "TAVUtils", kStarted + " /7za -psesame");
            });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(real.lines(), std::vector<LogLine>(400, {6, "TAVUtils", kStarted + " /7za -p****"}));
}

} // namespace
} // namespace TAV::test
