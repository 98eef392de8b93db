// Recipe: see in a test what your code does when the system refuses.

#include <gtest/gtest.h>

#include <cerrno>

#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

//! [failing system]
/// The real system, but out of descriptors when a pipe is made.
class SystemWithoutPipes : public TAV::TAVSystemUtils
{
public:
    int pipe(std::array<int, 2>&, int& err, int) override
    {
        err = EMFILE;
        return -1;
    }
};
//! [failing system]

TEST(FailingSystemTest, CommandFailsWithoutPipe)
{
    TAV::test::RecordingLogger logger;
    TAV::TAVUtils utils(std::make_shared<SystemWithoutPipes>(), logger, std::make_shared<TAV::kernelVersion>());

    EXPECT_FALSE(utils.executeSystemCommand({"/bin/true"}, nullptr));
    EXPECT_EQ(logger.lines().back(),
              (TAV::test::LogLine{2, "TAVUtils", "Failed to create Pipe FD to execute system command"}));
}

} // namespace
