// An answer that does not fit into memory: what it leaves behind of a session.

#include <gtest/gtest.h>

#include "RawTlsServer.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

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

TEST_F(MemoryTest, ExceptionCrossesTheTransfer)
{
    EXPECT_EQ(outputWith({"memory=30000000", "ask"}), "threw std::bad_alloc\n");
}

TEST_F(MemoryTest, SessionReportsASuccessWithoutAskingAfterwards)
{
    EXPECT_EQ(outputWith({"memory=30000000", "ask", "ask"}), "threw std::bad_alloc\ntrue 0\n");
    EXPECT_EQ(m_server.connections().size(), 1U);
    EXPECT_EQ(m_server.connections().at(0).requests.size(), 1U);
}

TEST_F(MemoryTest, ReopenedSessionAsksAgain)
{
    EXPECT_EQ(outputWith({"memory=30000000", "ask", "reopen", "ask"}), "threw std::bad_alloc\ntrue 5\n");
}

// libcurl takes itself to be in a callback still: it does not close the connection, nor the pair of sockets beside it.
TEST_F(MemoryTest, ClosedSessionLeavesItsConnectionOpen)
{
    EXPECT_EQ(outputWith({"sockets", "memory=30000000", "ask", "reopen", "sockets"}),
              "sockets 0\nthrew std::bad_alloc\nsockets 3\n");
}

} // namespace
} // namespace TAV::test
