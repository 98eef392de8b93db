// A program outside the tree that tests its own code with a ready-made mock, and a GoogleMock of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tav/testing/MockTAVUtils.h"

namespace
{

/// What is tested: a worker is held to a fifth of the machine where that is possible.
bool begin(TAV::ITAVUtils& utils, int worker)
{
    return !utils.isCGroupsSupported() || utils.setCPULimit({worker}, 20, "workers");
}

TEST(MockTest, LimitsTheWorkerWherePossible)
{
    ::testing::StrictMock<TAV::test::MockTAVUtils> utils;
    EXPECT_CALL(utils, isCGroupsSupported()).WillOnce(::testing::Return(true));
    EXPECT_CALL(utils, setCPULimit(::testing::ElementsAre(4711), 20, ::testing::_)).WillOnce(::testing::Return(true));
    EXPECT_TRUE(begin(utils, 4711));
}

} // namespace
