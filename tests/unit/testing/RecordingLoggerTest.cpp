#include "tav/testing/RecordingLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

std::string printed(const LogLine& line)
{
    std::ostringstream out;
    out << line;
    return out.str();
}

TEST(RecordingLoggerTest, KeepsEveryLineInOrder)
{
    RecordingLogger recording;
    ILogger& logger = recording;
    EXPECT_THAT(recording.lines(), IsEmpty());
    logger.log(2, "first");
    logger.log(6, "TAVUtils", "second");
    logger.log(5, "", "third");
    EXPECT_THAT(
        recording.lines(),
        ElementsAre(LogLine{2, std::nullopt, "first"}, LogLine{6, "TAVUtils", "second"}, LogLine{5, "", "third"}));
    EXPECT_EQ(recording.lines().size(), 3U) << "looking does not forget";
}

TEST(RecordingLoggerTest, TakingTheLinesForgetsThem)
{
    RecordingLogger logger;
    logger.log(2, "first");
    EXPECT_THAT(logger.takeLines(), ElementsAre(LogLine{2, std::nullopt, "first"}));
    EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST(RecordingLoggerTest, LinesDifferByEachPart)
{
    const LogLine line{6, "TAVUtils", "text"};
    EXPECT_TRUE(line == (LogLine{6, "TAVUtils", "text"}));
    for (const LogLine& other :
         {LogLine{5, "TAVUtils", "text"}, LogLine{6, "Other", "text"}, LogLine{6, "TAVUtils", "txt"}})
    {
        EXPECT_FALSE(line == other) << other;
        EXPECT_TRUE(line != other) << other;
    }
    EXPECT_TRUE((LogLine{6, std::nullopt, ""}) != (LogLine{6, "", ""})) << "none is not an empty one";
}

TEST(RecordingLoggerTest, LinesArePrintedWhole)
{
    EXPECT_EQ(printed({6, "TAVUtils", "text"}), "[6] TAVUtils: text");
    EXPECT_EQ(printed({2, std::nullopt, "text"}), "[2] (none): text");
}

TEST(RecordingLoggerTest, KeepsTheLinesOfSeveralThreads)
{
    RecordingLogger logger;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int n = 0; n < 100; ++n)
                    logger.log(6, "Thread", "line");
                for (int n = 0; n < 100; ++n)
                    logger.log(6, "line");
            });
    }
    while (logger.lines().size() < 800)
        std::this_thread::yield();
    for (std::thread& thread : threads)
        thread.join();
    std::size_t named = 0;
    for (const LogLine& line : logger.lines())
    {
        EXPECT_EQ(line.message, "line");
        named += line.component == "Thread" ? 1U : 0U;
    }
    EXPECT_EQ(named, 400U);
}

} // namespace
} // namespace TAV::test
