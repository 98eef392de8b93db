#pragma once

#include <gmock/gmock.h>

#include <string>

#include "tav/ILogger.h"

namespace TAV::test
{

/// A logger of GoogleMock's, for a test that says beforehand which lines must come. `RecordingLogger` keeps the lines
/// and needs no GoogleMock.
///
///     ::testing::StrictMock<TAV::test::MockLogger> logger; // fails on any other line
///     EXPECT_CALL(logger, log(2, "TAVUtils", HasSubstr("Failed to create Pipe")));
///
///     TAV::TAVUtils utils(system, logger, kernel);
///     utils.executeSystemCommand({"/bin/true"}, nullptr);
///
/// A line without a component comes through the other operation: `log(2, HasSubstr("not found"))`.
///
/// The program that uses it links GTest::gmock itself.
class MockLogger : public ILogger
{
public:
    MOCK_METHOD(void, log, (int level, std::string message), (override));
    MOCK_METHOD(void, log, (int level, std::string component, const std::string& message), (override));
};

} // namespace TAV::test
