// Recipe: see in a test what your code does when the system refuses.

#include <gtest/gtest.h>

#include <cerrno>

#include "tav/TAVUtils.h"
#include "tav/testing/FakeTAVSystemUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

using TAV::test::FakeTAVSystemUtils;
using TAV::test::LogLine;
using TAV::test::RecordingLogger;

//! [failing system]
TEST(FailingSystemTest, CommandFailsWithoutPipe)
{
    RecordingLogger logger;
    const auto system = std::make_shared<FakeTAVSystemUtils>(); // forwards to the real system,
    system->failCall("pipe", 1, EMFILE);                        // but is out of descriptors once
    TAV::TAVUtils utils(system, logger, std::make_shared<TAV::kernelVersion>());

    EXPECT_FALSE(utils.executeSystemCommand({"/bin/true"}, nullptr));
    EXPECT_EQ(logger.lines().back(), (LogLine{2, "TAVUtils", "Failed to create Pipe FD to execute system command"}));
    EXPECT_EQ(system->countOf("fork"), 0U);
}
//! [failing system]

} // namespace
