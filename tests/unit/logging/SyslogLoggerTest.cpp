#include "tav/logging/SyslogLogger.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace
{

/// What was asked of syslog.
struct Entry
{
    int priority = 0;
    std::string text;

    friend bool operator==(const Entry& a, const Entry& b) { return a.priority == b.priority && a.text == b.text; }
    friend std::ostream& operator<<(std::ostream& out, const Entry& e) { return out << e.priority << " " << e.text; }
};

struct Opened
{
    const char* identity = nullptr; ///< the pointer, which syslog keeps
    int options = 0;
    int facility = 0;
};

std::vector<Entry> g_entries;
std::vector<Opened> g_opened;
int g_closed = 0;

void note(int priority, const char* format, va_list values)
{
    va_list again;
    va_copy(again, values);
    const int size = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<std::size_t>(size) + 1, '\0');
    static_cast<void>(std::vsnprintf(text.data(), text.size(), format, values));
    text.pop_back();
    g_entries.push_back({priority, text});
}

} // namespace

// In place of the C library's.
extern "C"
{
    void syslog(int priority, const char* format, ...)
    {
        va_list values;
        va_start(values, format);
        note(priority, format, values);
        va_end(values);
    }

    void vsyslog(int priority, const char* format, va_list values)
    {
        note(priority, format, values);
    }

    void openlog(const char* identity, int options, int facility)
    {
        g_opened.push_back({identity, options, facility});
    }

    void closelog(void)
    {
        ++g_closed;
    }
}

namespace TAV::test
{
namespace
{

class SyslogLoggerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        g_entries.clear();
        g_opened.clear();
        g_closed = 0;
    }
};

TEST_F(SyslogLoggerTest, HandsTheLevelOnAsPriority)
{
    SyslogLogger logger;
    for (const int level : {2, 5, 6, 0, 7, -1, 8, 1000})
        logger.log(level, "text");

    std::vector<int> priorities;
    for (const Entry& entry : g_entries)
        priorities.push_back(entry.priority);
    EXPECT_EQ(
        priorities,
        (std::vector<int>{LOG_CRIT, LOG_NOTICE, LOG_INFO, LOG_EMERG, LOG_DEBUG, LOG_EMERG, LOG_DEBUG, LOG_DEBUG}));
}

TEST_F(SyslogLoggerTest, NamesTheComponentIfThereIsOne)
{
    SyslogLogger logger;
    logger.log(2, "TAVUtils", "text");
    logger.log(2, "text");

    EXPECT_EQ(g_entries, (std::vector<Entry>{{2, "[TAVUtils] text"}, {2, "text"}}));
}

TEST_F(SyslogLoggerTest, TakesPercentSignsForText)
{
    SyslogLogger logger;
    logger.log(6, "%s%n%d 100%");
    logger.log(6, "%s", "%n%m");

    EXPECT_EQ(g_entries, (std::vector<Entry>{{6, "%s%n%d 100%"}, {6, "[%s] %n%m"}}));
}

TEST_F(SyslogLoggerTest, MakesOneEntryOfAnyText)
{
    SyslogLogger logger;
    logger.log(6, "TAVUtils", "a\nOct 1 host sshd: forged\n");
    logger.log(6, std::string("a\0b\xff", 4));
    logger.log(6, "");

    EXPECT_EQ(g_entries,
              (std::vector<Entry>{{6, "[TAVUtils] a\\x0aOct 1 host sshd: forged\\x0a"}, {6, "a\\x00b\\xff"}, {6, ""}}));
}

TEST_F(SyslogLoggerTest, CutsOnlyWhatIsTooLongAndSaysSo)
{
    const std::string longest(SyslogLogger::kLongestText, 'x');
    SyslogLogger logger;
    logger.log(6, longest);
    logger.log(6, longest + "yz");

    EXPECT_EQ(g_entries, (std::vector<Entry>{{6, longest}, {6, longest + " ... (2 bytes more)"}}));
}

TEST_F(SyslogLoggerTest, LeavesTheSettingsOfTheProcessAlone)
{
    {
        SyslogLogger logger;
        logger.log(6, "text");
    }
    EXPECT_TRUE(g_opened.empty());
    EXPECT_EQ(g_closed, 0);
}

TEST_F(SyslogLoggerTest, OpensAndClosesWhenAsked)
{
    {
        const std::string name = std::string(64, 'n'); // in memory of its own, which is gone before the object
        SyslogLogger logger{std::string(name), LOG_PID | LOG_NDELAY, LOG_LOCAL3};
        ASSERT_EQ(g_opened.size(), 1U);
        EXPECT_EQ(g_opened.front().identity, name);
        EXPECT_EQ(g_opened.front().options, LOG_PID | LOG_NDELAY);
        EXPECT_EQ(g_opened.front().facility, LOG_LOCAL3);
        EXPECT_EQ(g_closed, 0);
    }
    EXPECT_EQ(g_closed, 1);
}

TEST_F(SyslogLoggerTest, DaemonIsTheFacilityByDefault)
{
    const SyslogLogger logger("exampled");

    EXPECT_EQ(g_opened.at(0).options, LOG_PID);
    EXPECT_EQ(g_opened.at(0).facility, LOG_DAEMON);
}

} // namespace
} // namespace TAV::test
