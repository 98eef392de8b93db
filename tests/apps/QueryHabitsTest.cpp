#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "common/QueryLog.h"
#include "common/QueryText.h"
#include "common/StandardDescriptors.h"
#include "endpoint_scan/CappedCurl.h"
#include "reputation_server/Answers.h"
#include "support/SacrificialProcess.h"
#include "tav/testing/RecordingLogger.h"

using endpointscan::CappedCurl;
using endpointscan::DenyList;
using programs::QueryLog;
using reputationserver::Answers;
using TAV::test::LogLine;
using TAV::test::RecordingLogger;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace
{

TEST(QueryTextTest, KnowsServers)
{
    for (const char* server :
         {"localhost", "a.example.org:443", "127.0.0.1:1", "my_host-1:65535", "[::1]", "[fe80::1]:8443"})
        EXPECT_EQ(programs::obstacleToServer(server), "") << server;
}

TEST(QueryTextTest, RefusesServersThatWouldLeadElsewhere)
{
    for (const char* server : {"", ":443"})
        EXPECT_THAT(programs::obstacleToServer(server), HasSubstr("host is missing")) << server;
    for (const char* server : {"https://host",
                               "host/path",
                               "user@host",
                               "ho st",
                               "host?x",
                               "host#x",
                               "host\n",
                               ".",
                               "-host",
                               "[::1",
                               "[]",
                               "[host]",
                               "[",
                               "hö"})
        EXPECT_THAT(programs::obstacleToServer(server), Not(IsEmpty())) << server;
    for (const char* server :
         {"host:", "host:0", "host:65536", "host:99999999999999999999", "host:x", "host:1:2", "[::1]x"})
        EXPECT_THAT(programs::obstacleToServer(server), HasSubstr("port")) << server;
}

TEST(QueryTextTest, KnowsProxiesByAddressOrUrl)
{
    for (const char* proxy : {"localhost", "proxy:3128", "http://proxy:3128", "https://proxy/", "socks5h://[::1]:1080"})
        EXPECT_EQ(programs::obstacleToProxy(proxy), "") << proxy;
}

TEST(QueryTextTest, RefusesProxiesThatCannotBe)
{
    for (const char* proxy : {"", "http://", ":3128"})
        EXPECT_THAT(programs::obstacleToProxy(proxy), HasSubstr("host is missing")) << proxy;
    for (const char* proxy : {"x y", "https://h:1/x", "http://me@h:1", "http://me:pw@h:1", "a://b://c"})
        EXPECT_EQ(programs::obstacleToProxy(proxy), "not HOST:PORT or http://HOST:PORT, without user and path")
            << proxy;
    EXPECT_THAT(programs::obstacleToProxy("http://h:x"), HasSubstr("port"));
}

TEST(QueryTextTest, KnowsMethods)
{
    for (const char* method : {"POST", "GET", "PUT", "M-SEARCH"})
        EXPECT_EQ(programs::obstacleToMethod(method), "") << method;
    for (const char* method : {"", "TWO WORDS", "A\r\nB", "HEAD"})
        EXPECT_THAT(programs::obstacleToMethod(method), Not(IsEmpty())) << method;
}

TEST(QueryTextTest, KnowsHeaderLines)
{
    for (const char* line : {"Name: value", "Name:value", "Expect:", "X-A_b.c: \"q\": r"})
        EXPECT_EQ(programs::obstacleToHeaderLine(line), "") << line;
    for (const char* line : {"", "Name", ": value", "Two words: x", "Name : x", "A: b\r\nC: d", "A: \x01"})
        EXPECT_THAT(programs::obstacleToHeaderLine(line), Not(IsEmpty())) << line;
}

/// The lines in the order in which the client sends them.
std::vector<std::string> sentLines(const TAV::TAVHTTPHeader& header)
{
    return {header.firstHeader,
            header.key1 + header.value1,
            header.key2 + header.value3,
            header.key4 + header.value4,
            header.key3 + header.value2};
}

TEST(QueryTextTest, PutsEachHeaderLineInItsPlace)
{
    const std::vector<std::string> lines{"A: 1", "B: 2", "C:3", "D:  4: 5", "E:"};
    for (std::size_t count = 0; count <= lines.size(); ++count)
    {
        std::vector<std::string> expected(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(count));
        const TAV::TAVHTTPHeader header = programs::headerOf(expected);
        expected.resize(lines.size());
        EXPECT_EQ(sentLines(header), expected);
    }
    const TAV::TAVHTTPHeader header = programs::headerOf(lines);
    EXPECT_EQ(header.key1, "B: ");
    EXPECT_EQ(header.value1, "2");
    EXPECT_EQ(header.key4, "D:  ");
    EXPECT_EQ(header.value4, "4: 5");
}

TEST(QueryLogTest, KeepsTheLinesOfEachThreadApart)
{
    RecordingLogger all;
    QueryLog log(all);
    log.log(2, "mine");
    std::vector<programs::QueryLine> others;
    std::thread other(
        [&]
        {
            log.log(6, "CurlWrapper", "theirs");
            others = log.takeLines();
        });
    other.join();
    ASSERT_EQ(others.size(), 1U);
    EXPECT_EQ(others[0].level, 6);
    EXPECT_EQ(others[0].component, "CurlWrapper");
    EXPECT_EQ(others[0].message, "theirs");
    EXPECT_EQ(log.takeLines().at(0).message, "mine");
    EXPECT_TRUE(log.takeLines().empty()) << "they are taken";
    EXPECT_THAT(all.lines(), ElementsAre(LogLine{2, std::nullopt, "mine"}, LogLine{6, "CurlWrapper", "theirs"}));
}

TEST(IgnoreBrokenPipesTest, MakesAWriteFailInsteadOfTheProgram)
{
    TAV::test::SacrificialProcess process(
        []
        {
            programs::ignoreBrokenPipes();
            int fds[2] = {-1, -1};
            if (::pipe(fds) != 0 || ::close(fds[0]) != 0 || ::write(fds[1], "x", 1) != -1 || errno != EPIPE)
                throw std::runtime_error("the write did not fail");
        });
    EXPECT_EQ(process.wait(), 0);
}

TEST(CappedCurlTest, TakesAnAnswerUpToItsLimit)
{
    std::string answer = "ab";
    std::string piece(CappedCurl::kLongestAnswer - 2, 'x');
    EXPECT_EQ(CappedCurl::write(piece.data(), 1, piece.size(), &answer), piece.size());
    EXPECT_EQ(answer, "ab" + piece);
    EXPECT_EQ(CappedCurl::write(nullptr, 1, 0, &answer), 0U);
}

TEST(CappedCurlTest, BreaksALongerAnswerOff)
{
    std::string answer = "ab";
    std::string piece(CappedCurl::kLongestAnswer - 1, 'x');
    EXPECT_EQ(CappedCurl::write(piece.data(), 1, piece.size(), &answer), 0U);
    EXPECT_EQ(answer, "ab");
}

TEST(CappedCurlTest, TakesNothingBehindWhatIsTooLongAlready)
{
    std::string answer(CappedCurl::kLongestAnswer + 1, 'a');
    std::string piece = "x";
    EXPECT_EQ(CappedCurl::write(piece.data(), 1, piece.size(), &answer), 0U);
    EXPECT_EQ(answer.size(), CappedCurl::kLongestAnswer + 1);
}

TEST(CappedCurlTest, ThrowsNothingThroughTheClient)
{
    std::string answer;
    EXPECT_EQ(CappedCurl::write(nullptr, 1, 5, &answer), 0U) << "the library's callback throws here";
}

class AnswersTest : public ::testing::Test
{
protected:
    static Answers answers(std::uint64_t failEvery = 0)
    {
        std::istringstream list(kBad);
        return {DenyList::parse(list, "list"), failEvery};
    }

    static inline const std::string kBad = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
    static inline const std::string kGood = std::string(64, '0');
};

TEST_F(AnswersTest, TellWhatIsOnTheList)
{
    Answers asked = answers();
    EXPECT_EQ(asked.answer(kBad).status, 200);
    EXPECT_EQ(asked.answer(kBad).json, R"({"sha256":")" + kBad + R"(","verdict":"malicious"})" + "\n");
    EXPECT_EQ(asked.answer(kGood).json, R"({"sha256":")" + kGood + R"(","verdict":"clean"})" + "\n");
}

TEST_F(AnswersTest, TakeADigestInEitherFormAndCase)
{
    std::string upper = kBad;
    std::transform(
        upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    Answers asked = answers();
    for (const std::string& body :
         {" " + kBad + "\r\n", upper, R"({"sha256": ")" + upper + R"("})", R"({"a": 1, "sha256": ")" + kBad + "\"}\n"})
        EXPECT_THAT(asked.answer(body).json, HasSubstr(R"("verdict":"malicious")")) << body;
}

TEST_F(AnswersTest, RefuseWhatIsNoDigest)
{
    Answers asked = answers();
    for (const std::string& body : {std::string(),
                                    std::string("hello"),
                                    kBad.substr(1),
                                    kBad + "0",
                                    std::string(64, 'g'),
                                    std::string("{}"),
                                    std::string(R"({"sha256": 1})"),
                                    R"({"sha256": " )" + kBad + R"("})",
                                    "[\"" + kBad + "\"]",
                                    R"({"sha256": ")" + kBad})
    {
        EXPECT_EQ(asked.answer(body).status, 400) << body;
        EXPECT_THAT(asked.answer(body).json, HasSubstr(R"({"error":"send a SHA-256)")) << body;
    }
}

TEST_F(AnswersTest, FailEachTimeThatTheyAreToldTo)
{
    Answers asked = answers(3);
    std::vector<int> statuses;
    for (int i = 0; i < 7; ++i)
        statuses.push_back(asked.answer(kBad).status);
    EXPECT_THAT(statuses, ElementsAre(200, 200, 503, 200, 200, 503, 200));
}

TEST_F(AnswersTest, CountWhatTheySaid)
{
    Answers asked = answers(4);
    for (const std::string& body : {kBad, kGood, kGood, kBad, std::string("x")})
        asked.answer(body);
    EXPECT_EQ(asked.summary(), "5 requests: 1 malicious, 2 clean, 2 without a verdict");
}

} // namespace
