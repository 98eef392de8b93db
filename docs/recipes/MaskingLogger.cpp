// Recipe: keep secrets out of the log, although the library logs whole command lines.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FakeSystemUtils.h"
#include "support/RecordingLogger.h"
#include "tav/QelArchiveUtils.h"
#include "tav/TAVUtils.h"

namespace
{

using TAV::test::FakeSystemUtils;
using TAV::test::RecordingLogger;
using testing::HasSubstr;
using testing::Not;

//! [masking logger]
/// Hands each line on with every occurrence of one secret replaced. It changes nothing in itself, so it needs no lock.
class MaskingLogger : public TAV::ILogger
{
public:
    MaskingLogger(TAV::ILogger& next, std::string secret) : m_next(next), m_secret(std::move(secret)) {}

    void log(int level, std::string message) override { m_next.log(level, masked(std::move(message))); }

    void log(int level, std::string component, const std::string& message) override
    {
        m_next.log(level, std::move(component), masked(message));
    }

private:
    [[nodiscard]] std::string masked(std::string text) const
    {
        if (m_secret.empty())
            return text;
        for (auto at = text.find(m_secret); at != std::string::npos; at = text.find(m_secret, at + 3))
            text.replace(at, m_secret.size(), "***");
        return text;
    }

    TAV::ILogger& m_next;
    const std::string m_secret;
};
//! [masking logger]

/// The line that announces the making of an archive with this password, as the real logger gets it.
std::string announcementWith(const std::string& password)
{
    RecordingLogger real;
    MaskingLogger masking(real, password);
    auto system = std::make_shared<FakeSystemUtils>();
    system->onPipe = [](std::array<int, 2>& fds, int&, int) { return fds = {40, 41}, 0; };
    system->onFork = [](int&) { return 4711; }; // no process is made
    system->onWaitpid = [](pid_t pid, int* status, int, int&) { return *status = 0, pid; };
    system->onClose = [](int, int&) { return 0; };
    auto utils = std::make_shared<TAV::TAVUtils>(system, masking, std::make_shared<TAV::kernelVersion>());
    TAV::QelArchiveUtils archives(masking, utils);

    EXPECT_TRUE(archives.createArchive("/q/a.7z", TAV::ArchiveType::SevenZip, {"/q/x"}, {}, password));
    return real.lines().back().message;
}

TEST(MaskingLoggerTest, HidesArchivePassword)
{
    EXPECT_EQ(announcementWith("sesame"),
              "Child process called to execute the system command :  /opt/Brenlow/zel/tav/bin/7za a -sdel -p*** "
              "/q/a.7z /q/x");
}

TEST(MaskingLoggerTest, HidesPasswordWithBlanksWhole)
{
    EXPECT_THAT(announcementWith("open sesame now"), testing::AllOf(HasSubstr(" -p*** "), Not(HasSubstr("sesame"))));
}

TEST(MaskingLoggerTest, HidesEveryOccurrence)
{
    RecordingLogger real;
    MaskingLogger masking(real, "*"); // the mask itself holds the secret, and must not be masked for ever
    masking.log(6, "a*b**c");

    EXPECT_EQ(real.lines().back().message, "a***b******c");
}

TEST(MaskingLoggerTest, LeavesLineAloneWithoutSecret)
{
    RecordingLogger real;
    MaskingLogger masking(real, "");
    masking.log(2, "TAVUtils", "as it is");

    EXPECT_EQ(real.lines().back(), (TAV::test::LogLine{2, "TAVUtils", "as it is"}));
}

} // namespace
