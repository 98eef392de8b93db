// Recipe: keep secrets out of the log, although the library logs whole command lines.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tav/QelArchiveUtils.h"
#include "tav/TAVUtils.h"
#include "tav/logging/MaskingLogger.h"
#include "tav/testing/FakeTAVSystemUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

using TAV::test::FakeTAVSystemUtils;
using TAV::test::RecordingLogger;
using testing::HasSubstr;
using testing::Not;

//! [masking logger]
/// Stores a file in an archive with a password, which does not get into the log behind `real`.
bool storeUnderPassword(TAV::ILogger& real, std::shared_ptr<TAV::ITAVSystemUtils> system, const std::string& password)
{
    TAV::MaskingLogger logger(real); // hides "-pPASSWORD" by itself, up to a blank
    logger.hide(password);           // and this text as a whole, wherever it stands
    auto version = std::make_shared<TAV::kernelVersion>(TAV::kernelVersion{6, 1, 0});
    TAV::QelArchiveUtils archives(logger, std::make_shared<TAV::TAVUtils>(std::move(system), logger, version));
    return archives.createArchive("/q/a.7z", TAV::ArchiveType::SevenZip, {"/q/x"}, {}, password);
}
//! [masking logger]

/// The line that announces the making of an archive with this password, as the real logger gets it.
std::string announcementWith(const std::string& password)
{
    RecordingLogger real;
    auto system = std::make_shared<FakeTAVSystemUtils>();
    system->onPipe = [](std::array<int, 2>& fds, int&, int) { return fds = {40, 41}, 0; };
    system->onFork = [](int&) { return 4711; }; // no process is made
    system->onWaitpid = [](pid_t pid, int* status, int, int&) { return *status = 0, pid; };
    system->onClose = [](int, int&) { return 0; };
    EXPECT_TRUE(storeUnderPassword(real, system, password));
    return real.lines().back().message;
}

TEST(MaskingLoggerTest, HidesArchivePassword)
{
    EXPECT_EQ(announcementWith("sesame"),
              "Child process called to execute the system command :  /opt/Brenlow/zel/tav/bin/7za a -sdel -p**** "
              "/q/a.7z /q/x");
}

TEST(MaskingLoggerTest, HidesPasswordWithBlanksWhole)
{
    EXPECT_THAT(announcementWith("open sesame now"), testing::AllOf(HasSubstr(" -p**** "), Not(HasSubstr("sesame"))));
}

} // namespace
