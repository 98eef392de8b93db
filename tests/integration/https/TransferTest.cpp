// Requests and answers byte by byte: heads, bodies of 64 MiB, and answers that come in pieces.

#include <gtest/gtest.h>

#include <cstring>

#include "QueryScene.h"
#include "RawTlsServer.h"

namespace TAV::test
{
namespace
{

using namespace std::string_literals;

const std::string kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
constexpr std::size_t k64Mebibytes = std::size_t{64} << 20U;

TAVQueryConfig towards(const RawTlsServer& server)
{
    return configTowards(server.port(), TestAuthority::shared().caFile());
}

/// Bytes of every value that do not repeat soon.
std::string manyBytes(std::size_t size)
{
    std::string bytes(size, '\0');
    std::uint64_t value = 0x9E3779B97F4A7C15U;
    for (std::size_t at = 0; at + sizeof(value) <= size; at += sizeof(value))
    {
        value ^= value << 13U;
        value ^= value >> 7U;
        value ^= value << 17U;
        std::memcpy(&bytes[at], &value, sizeof(value));
    }
    return bytes;
}

TEST(RequestHeadTest, IsExactlyThis)
{
    RawTlsServer server({afterRequest({send(answer(""))})});
    QueryScene scene(towards(server));
    Query query{"a question", {"First: 0", "Key-1: ", "Key-2: ", "Key-3: ", "Key-4: ", "a", "b", "c", "d"}, ""};
    ASSERT_TRUE(isSuccess(scene.ask(query)));

    const ReceivedRequest request = server.connections().at(0).requests.at(0);
    EXPECT_EQ(request.head,
              "POST /1 HTTP/1.1\r\n"
              "Host: 127.0.0.1:" +
                  std::to_string(server.port()) +
                  "\r\n"
                  "Accept: */*\r\n"
                  "First: 0\r\n"
                  "Key-1: a\r\n"
                  "Key-2: c\r\n"
                  "Key-4: d\r\n"
                  "Key-3: b\r\n"
                  "Content-Length: 10\r\n"
                  "Content-Type: application/x-www-form-urlencoded\r\n"
                  "\r\n");
    EXPECT_EQ(request.body, "a question");
}

struct Method
{
    const char* name;
    const char* text;
};

std::ostream& operator<<(std::ostream& out, const Method& method)
{
    return out << method.name;
}

class RequestMethodTest : public testing::TestWithParam<Method>
{
};

TEST_P(RequestMethodTest, GoesOutAsItIsAndTheBodyWithIt)
{
    RawTlsServer server({afterRequest({send(answer("text"))})});
    TAVQueryConfig config = towards(server);
    config.requestType = GetParam().text;
    QueryScene scene(config);
    const QueryOutcome outcome = scene.ask();
    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "text");

    const ReceivedRequest request = server.connections().at(0).requests.at(0);
    EXPECT_EQ(request.head.substr(0, request.head.find('\r')), std::string(GetParam().text) + " /1 HTTP/1.1");
    EXPECT_EQ(request.body, "a question");
}

INSTANTIATE_TEST_SUITE_P(Methods,
                         RequestMethodTest,
                         testing::Values(Method{"Post", "POST"},
                                         Method{"Get", "GET"},
                                         Method{"None", ""},
                                         Method{"LowerCasePost", "post"},
                                         Method{"LowerCaseGet", "get"},
                                         Method{"Head", "HEAD"},
                                         Method{"Unknown", "PURGE"}),
                         [](const auto& instance) { return instance.param.name; });

TEST(HeadRequestTest, WaitsForABodyThatNeverComes)
{
    RawTlsServer server({afterRequest({send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n"), stayStill()})});
    TAVQueryConfig config = towards(server);
    config.requestType = "HEAD";
    config.timeout = 1;
    QueryScene scene(config);
    const QueryOutcome outcome = scene.ask();
    EXPECT_TRUE(isSuccess(outcome, ""));
    EXPECT_EQ(outcome.transfer, CURLE_OPERATION_TIMEDOUT);
    EXPECT_GE(outcome.stats.totalTimeMs, 990) << "the time limit";
}

TEST(LargeBodyTest, GoesOutWhole)
{
    RawTlsServer server({{handshake(), readHead(), send(kContinue), readBody(), send(answer("got it"))}});
    QueryScene scene(towards(server));
    const std::string body = manyBytes(k64Mebibytes);
    const QueryOutcome outcome = scene.ask({body, {}, ""});
    EXPECT_TRUE(isSuccess(outcome, "got it"));
    EXPECT_TRUE(server.connections().at(0).requests.at(0).body == body);
}

TEST(LargeBodyTest, ComesInWhole)
{
    const std::string body = manyBytes(k64Mebibytes);
    RawTlsServer server({afterRequest({send(answer(body))})});
    QueryScene scene(towards(server));
    const QueryOutcome outcome = scene.ask();
    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_TRUE(outcome.response == body);
}

TEST(LargeBodyTest, IsHeldBackForASecondWithoutContinue)
{
    constexpr std::size_t kLargeEnough = 2000000;
    RawTlsServer server({{handshake(), readRequest(), send(answer("got it"))}});
    QueryScene scene(towards(server));
    const QueryOutcome outcome = scene.ask({std::string(kLargeEnough, 'x'), {}, ""});
    EXPECT_TRUE(isSuccess(outcome, "got it"));
    EXPECT_GE(outcome.stats.totalTimeMs, 990);
    EXPECT_EQ(server.connections().at(0).requests.at(0).body.size(), kLargeEnough);
}

TEST(LargeBodyTest, GoesOutWithoutContinueWhenTheServerExpectsNothing)
{
    RawTlsServer server({{handshake(),
                          readHead(),
                          send("HTTP/1.1 417 Expectation Failed\r\nContent-Length: 2\r\n\r\nno"),
                          readRequest(),
                          send(answer("got it"))}});
    QueryScene scene(towards(server));
    const std::string body = manyBytes(2000000);
    const QueryOutcome outcome = scene.ask({body, {}, ""});
    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "got it");
    EXPECT_TRUE(server.connections().at(0).requests.at(1).body == body);
}

struct WholeAnswer
{
    const char* name;
    std::string bytes;
    std::string body;
};

std::ostream& operator<<(std::ostream& out, const WholeAnswer& whole)
{
    return out << whole.name;
}

/// Answers of some 300 bytes with everything in them that a reader can stumble over.
std::vector<WholeAnswer> wholeAnswers()
{
    std::string body = "zero\0byte\r\n\r\nHTTP/1.1 404 in the body\r\n0\r\n\r\n"s;
    body.resize(120, 'b');
    const std::string headers = "HTTP/1.1 200 OK\r\nServer: raw\r\nDate: Sat, 21 Nov 2026 12:00:00 GMT\r\n"
                                "X-Empty:\r\nContent-Type: text/plain\r\nX-Text: a: b; c=\"d\"\r\n";
    const std::string chunks =
        "1e;name=value\r\n" + body.substr(0, 30) + "\r\n5a\r\n" + body.substr(30) + "\r\n0\r\nX-Trailer: 1\r\n\r\n";
    return {{"WithLength", kContinue + headers + "Content-Length: 120\r\n\r\n" + body, body},
            {"WithChunks", headers + "Transfer-Encoding: chunked\r\n\r\n" + chunks, body}};
}

class SplitAnswerTest : public testing::TestWithParam<WholeAnswer>
{
};

TEST_P(SplitAnswerTest, IsTheSameSplitAtEveryByte)
{
    const std::string& bytes = GetParam().bytes;
    ASSERT_GT(bytes.size(), 290U);
    Script script = {handshake()};
    for (std::size_t split = 1; split < bytes.size(); ++split)
        script.insert(script.end(), {readRequest(), send(bytes.substr(0, split)), send(bytes.substr(split))});
    RawTlsServer server({script});
    QueryScene scene(towards(server));
    for (std::size_t split = 1; split < bytes.size(); ++split)
    {
        const QueryOutcome outcome = scene.ask();
        ASSERT_TRUE(isSuccess(outcome)) << "split at byte " << split;
        ASSERT_EQ(outcome.transfer, CURLE_OK) << "split at byte " << split;
        ASSERT_EQ(outcome.response, GetParam().body) << "split at byte " << split;
    }
    EXPECT_EQ(server.connections().size(), 1U);
}

TEST_P(SplitAnswerTest, IsTheSameOneByteAtATime)
{
    RawTlsServer server({afterRequest({trickle(GetParam().bytes)})});
    QueryScene scene(towards(server));
    const QueryOutcome outcome = scene.ask();
    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, GetParam().body);
}

INSTANTIATE_TEST_SUITE_P(Answers,
                         SplitAnswerTest,
                         testing::ValuesIn(wholeAnswers()),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace TAV::test
