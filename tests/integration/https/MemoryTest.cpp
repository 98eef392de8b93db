// An answer that does not fit into memory: what it leaves behind of a session.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "RawTlsServer.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

using namespace std::string_literals;
using testing::MatchesRegex;

constexpr std::size_t kMebibyte = 1024U * 1024U;

/// Each connection gets one large answer, and then small ones.
class MemoryTest : public testing::Test
{
protected:
    std::string outputWith(const std::vector<std::string>& steps)
    {
        std::vector<std::string> child = {
            TAV_QUERY_CHILD, "127.0.0.1:" + std::to_string(m_server.port()), TestAuthority::shared().caFile()};
        child.insert(child.end(), steps.begin(), steps.end());
        return outputOf(child);
    }

    RawTlsServer m_server{
        {afterRequest({send(answer(std::string(40 * kMebibyte, 'x')))}), afterRequest({send(answer("small"))})}};
};

constexpr const char* kThrown = "threw std::bad_alloc [0-9]+ untouched\n";

TEST_F(MemoryTest, ExceptionCrossesTheTransfer)
{
    const std::string output = outputWith({"memory=30000000", "ask"});
    ASSERT_THAT(output, MatchesRegex(kThrown));

    // What fitted: more than nothing, and less than the memory.
    std::istringstream words(output);
    std::string word;
    std::size_t length = 0;
    words >> word >> word >> length;
    EXPECT_GE(length, kMebibyte);
    EXPECT_LT(length, 30'000'000U);
}

TEST_F(MemoryTest, SessionReportsASuccessWithoutAskingAfterwards)
{
    EXPECT_THAT(outputWith({"memory=30000000", "ask", "ask"}), MatchesRegex(kThrown + "true 0 written\n"s));
    EXPECT_EQ(m_server.connections().size(), 1U);
    EXPECT_EQ(m_server.connections().at(0).requests.size(), 1U);
}

TEST_F(MemoryTest, ReopenedSessionAsksAgain)
{
    EXPECT_THAT(outputWith({"memory=30000000", "ask", "reopen", "ask"}), MatchesRegex(kThrown + "true 5 written\n"s));
}

// libcurl takes itself to be in a callback still: it does not close the connection, nor the pair of sockets beside it.
TEST_F(MemoryTest, ClosedSessionLeavesItsConnectionOpen)
{
    EXPECT_THAT(outputWith({"sockets", "memory=30000000", "ask", "reopen", "sockets"}),
                MatchesRegex("sockets 0\n"s + kThrown + "sockets 3\n"));
}

} // namespace
} // namespace TAV::test
