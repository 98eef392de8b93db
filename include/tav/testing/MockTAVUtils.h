#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tav/ITAVUtils.h"

namespace TAV::test
{

/// Commands and CPU limits as a test expects them, by GoogleMock. `FakeTAVUtils` answers without expectations and needs
/// no GoogleMock.
///
///     ::testing::StrictMock<TAV::test::MockTAVUtils> utils; // fails on any other command
///     EXPECT_CALL(utils, executeSystemCommand(ElementsAre("/usr/sbin/ip", "link"), IsNull())).WillOnce(Return(true));
///     EXPECT_CALL(utils, setCPULimit(ElementsAre(4711), 20, _)).WillOnce(Return(false));
///
///     EXPECT_EQ(Scanner(utils).start(), Scanner::Unlimited);
///
/// What is not expected gives false.
///
/// The program that uses it links GTest::gmock itself.
class MockTAVUtils : public ITAVUtils
{
public:
    MOCK_METHOD(std::chrono::system_clock::time_point, getCurrentSystemClockNow, (), (override));
    MOCK_METHOD(bool, setCPULimit, (std::set<int> pids, unsigned short limit, std::string groupName), (override));
    MOCK_METHOD(void, removeCPULimit, (std::set<int> pids, std::string groupName), (override));
    MOCK_METHOD(bool,
                executeSystemCommand,
                (const std::vector<std::string>& argv, (const std::map<int, bool>* fdsToKeepOpen)),
                (override));
    MOCK_METHOD(bool,
                readSystemCommandOutput,
                (std::vector<std::string> argv, (const std::map<int, bool>* fdsToKeepOpen), int* outPipe),
                (override));
    MOCK_METHOD(bool, isCGroupsSupported, (), (override));
    MOCK_METHOD(bool, isDefaultCGroupsMountAvailable, (), (override));
};

} // namespace TAV::test
