#include "tav/logging/SpdlogLogger.h"

#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/sinks/ringbuffer_sink.h>

#include <sstream>
#include <thread>
#include <vector>

namespace TAV::test
{
namespace
{

/// A logger of spdlog's that writes "level text" into a string.
class SpdlogLoggerTest : public testing::Test
{
protected:
    SpdlogLoggerTest()
        : target(std::make_shared<spdlog::logger>("test", std::make_shared<spdlog::sinks::ostream_sink_mt>(out)))
    {
        target->set_pattern("%l %v");
        target->set_level(spdlog::level::trace);
    }

    std::ostringstream out;
    std::shared_ptr<spdlog::logger> target;
};

TEST_F(SpdlogLoggerTest, MapsFailuresToErrorAndTheRestToInfo)
{
    SpdlogLogger logger(target);
    for (const int level : {2, 5, 6})
        logger.log(level, std::to_string(level));

    EXPECT_EQ(out.str(), "error 2\ninfo 5\ninfo 6\n");
}

TEST_F(SpdlogLoggerTest, MapsAsItIsTold)
{
    SpdlogLogger logger(target, {spdlog::level::critical, spdlog::level::warn, spdlog::level::debug});
    for (const int level : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 100})
        logger.log(level, std::to_string(level));

    EXPECT_EQ(out.str(),
              "critical -1\ncritical 0\ncritical 1\ncritical 2\nwarning 3\nwarning 4\nwarning 5\ndebug 6\ndebug 7\n"
              "debug 100\n");
}

TEST_F(SpdlogLoggerTest, NamesTheComponentIfThereIsOne)
{
    SpdlogLogger logger(target);
    logger.log(2, "TAVUtils", "text");
    logger.log(2, "text");

    EXPECT_EQ(out.str(), "error [TAVUtils] text\nerror text\n");
}

TEST_F(SpdlogLoggerTest, TakesBracesAndPercentSignsForText)
{
    SpdlogLogger logger(target);
    logger.log(6, "{} {0} %s %v {");
    logger.log(6, "{}", "%n{:d}");

    EXPECT_EQ(out.str(), "info {} {0} %s %v {\ninfo [{}] %n{:d}\n");
}

TEST_F(SpdlogLoggerTest, MakesOneLineOfAnyText)
{
    SpdlogLogger logger(target);
    logger.log(6, "TAVUtils", "a\nerror forged\n\x1b[2J");
    logger.log(6, std::string("a\0b\xff", 4));
    logger.log(6, "");

    EXPECT_EQ(out.str(), "info [TAVUtils] a\\x0aerror forged\\x0a\\x1b[2J\ninfo a\\x00b\\xff\ninfo \n");
}

TEST_F(SpdlogLoggerTest, HandsLongTextOnWhole)
{
    const std::string text(1 << 20, 'x');
    SpdlogLogger(target).log(6, text);

    EXPECT_EQ(out.str(), "info " + text + "\n");
}

TEST_F(SpdlogLoggerTest, LeavesOutWhatTheTargetDoesNotWant)
{
    target->set_level(spdlog::level::err);
    SpdlogLogger logger(target);
    logger.log(6, "TAVUtils", "detail");
    logger.log(2, "TAVUtils", "failure");

    EXPECT_EQ(out.str(), "error [TAVUtils] failure\n");
}

TEST_F(SpdlogLoggerTest, KeepsUnwantedLinesForABacktrace)
{
    target->set_level(spdlog::level::err);
    target->enable_backtrace(4);
    SpdlogLogger(target).log(6, "TAVUtils", "detail");
    target->dump_backtrace();

    EXPECT_NE(out.str().find("info [TAVUtils] detail\n"), std::string::npos) << out.str();
}

TEST_F(SpdlogLoggerTest, KeepsLinesOfManyThreadsWhole)
{
    SpdlogLogger logger(target);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&logger]
            {
                for (int n = 0; n < 100; ++n)
                    logger.log(5, "TAVUtils", "text");
            });
    }
    for (std::thread& thread : threads)
        thread.join();

    std::string expected;
    for (int n = 0; n < 400; ++n)
        expected += "info [TAVUtils] text\n";
    EXPECT_EQ(out.str(), expected);
}

TEST_F(SpdlogLoggerTest, RefusesToBeWithoutATarget)
{
    EXPECT_THROW(SpdlogLogger(nullptr), std::invalid_argument);
}

} // namespace
} // namespace TAV::test
