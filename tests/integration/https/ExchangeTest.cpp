#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NginxScene.h"

namespace TAV::test
{
namespace
{

using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Lt;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::size_t kMebibyte = 1024UL * 1024UL;

/// Answers with the request as it came: its line, its header lines, its body.
NginxCase arrivalCase()
{
    return {"arrival",
            "echo_read_request_body; echo_duplicate 1 $echo_client_request_headers;"
            "echo_request_body;"};
}

/// Bytes of every value, in an order that tells a lost or doubled piece.
std::string patternOf(std::size_t size)
{
    std::string pattern(size, '\0');
    unsigned int state = 1;
    for (char& byte : pattern)
    {
        state = state * 1103515245U + 12345U;
        byte = static_cast<char>(state >> 16U);
    }
    return pattern;
}

/// What goes to and from nginx.
class ExchangeTest : public NginxTest
{
protected:
    static QueryOutcome
    answerTo(const NginxCase& entry, std::string payload = "a question", const char* directives = kNoLimit)
    {
        const NginxServer server({goodSite({entry}, directives)});
        return QueryScene(configTowards(server)).ask(caseQuery(entry.name, std::move(payload)));
    }

    /// With a time limit of one second.
    static QueryOutcome answerInTimeTo(const NginxCase& entry)
    {
        const NginxServer server({goodSite({entry})});
        TAVQueryConfig config = configTowards(server);
        config.timeout = 1;
        return QueryScene(config).ask(caseQuery(entry.name));
    }

    static constexpr const char* kNoLimit = "client_max_body_size 0;";
    static constexpr const char* kUsualLimit = "client_max_body_size 1m;";
};

/// The lines of a request, which nginx sends back.
class RequestLinesTest : public NginxTest
{
protected:
    void SetUp() override
    {
        NginxTest::SetUp();
        if (!IsSkipped())
            m_server = std::make_unique<NginxServer>(std::vector<NginxSite>{goodSite({arrivalCase()})});
    }

    TAVQueryConfig config() const { return configTowards(*m_server); }

    std::string host() const { return "Host: 127.0.0.1:" + std::to_string(m_server->port()) + kEnd; }

    /// The request with these header lines behind the one that chooses the case.
    static std::string arrivalOf(const TAVQueryConfig& config, TAVHTTPHeader header, std::string payload = "")
    {
        header.firstHeader = "X-Case: arrival";
        QueryOutcome outcome = QueryScene(config).ask({std::move(payload), std::move(header), ""});
        EXPECT_TRUE(isSuccess(outcome));
        return std::move(outcome.response);
    }

    /// The request with one header line.
    std::string arrivalOf(const std::string& line) const
    {
        TAVHTTPHeader header;
        header.key1 = line;
        return arrivalOf(config(), header);
    }

    static constexpr const char* kEnd = "\r\n";

private:
    std::unique_ptr<NginxServer> m_server;
};

TEST_F(RequestLinesTest, ComeInTheirCrossedOrder)
{
    const TAVHTTPHeader header{
        "", "X-Key1: ", "X-Key2: ", "X-Key3: ", "X-Key4: ", "value1", "value2", "value3", "value4"};

    EXPECT_EQ(arrivalOf(config(), header, "a question"),
              "POST /1 HTTP/1.1\r\n" + host() +
                  "Accept: */*\r\n"
                  "X-Case: arrival\r\n"
                  "X-Key1: value1\r\n"
                  "X-Key2: value3\r\n"
                  "X-Key4: value4\r\n"
                  "X-Key3: value2\r\n"
                  "Content-Length: 10\r\n"
                  "Content-Type: application/x-www-form-urlencoded\r\n"
                  "\r\n"
                  "a question");
}

TEST_F(RequestLinesTest, LeaveEmptyOnesOut)
{
    EXPECT_EQ(arrivalOf(config(), {}),
              "POST /1 HTTP/1.1\r\n" + host() +
                  "Accept: */*\r\n"
                  "X-Case: arrival\r\n"
                  "Content-Length: 0\r\n"
                  "Content-Type: application/x-www-form-urlencoded\r\n"
                  "\r\n");
}

TEST_F(RequestLinesTest, BeginWithTheConfiguredMethod)
{
    for (const char* method : {"GET", "PUT", "DELETE", "REPORT"})
    {
        TAVQueryConfig other = config();
        other.requestType = method;
        EXPECT_THAT(arrivalOf(other, {}), StartsWith(std::string(method) + " /1 HTTP/1.1\r\n"));
    }
}

TEST_F(RequestLinesTest, TakeThePlaceOfTheUsualOnes)
{
    EXPECT_THAT(arrivalOf("Content-Type: application/json"),
                AllOf(HasSubstr("\r\nContent-Type: application/json\r\n"), Not(HasSubstr("urlencoded"))));
    EXPECT_THAT(arrivalOf("Host: elsewhere.invalid"),
                AllOf(HasSubstr("\r\nHost: elsewhere.invalid\r\n"), Not(HasSubstr(host()))));
}

TEST_F(RequestLinesTest, WithoutValueRemoveTheUsualOne)
{
    EXPECT_THAT(arrivalOf("Accept:"), Not(HasSubstr("Accept")));
}

TEST_F(RequestLinesTest, EndingInSemicolonAreSentWithoutValue)
{
    EXPECT_THAT(arrivalOf("X-Empty;"), HasSubstr("\r\nX-Empty:\r\n"));
}

TEST_F(RequestLinesTest, WithoutColonAreLeftOut)
{
    EXPECT_THAT(arrivalOf("nonsense"), Not(HasSubstr("nonsense")));
}

TEST_F(RequestLinesTest, EndAtAZeroByte)
{
    EXPECT_THAT(arrivalOf(std::string("X-Cut: kept\0lost", 16)),
                AllOf(HasSubstr("\r\nX-Cut: kept\r\n"), Not(HasSubstr("lost"))));
}

TEST_F(RequestLinesTest, WithALineBreakBecomeTwo)
{
    EXPECT_THAT(arrivalOf("X-One: 1\r\nX-Two: 2"), HasSubstr("\r\nX-One: 1\r\nX-Two: 2\r\n"));
}

TEST_F(ExchangeTest, CarriesZeroBytesBothWays)
{
    const std::string payload("a\0b\0\0c", 6);

    const QueryOutcome outcome = answerTo(echoCase(), payload);

    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, payload);
}

TEST_F(ExchangeTest, CarriesAnEmptyBody)
{
    const QueryOutcome outcome = answerTo(echoCase(), "");

    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_THAT(outcome.response, IsEmpty());
}

TEST_F(ExchangeTest, CarriesLargeBodiesBothWays)
{
    const std::string payload = patternOf(64 * kMebibyte);

    const QueryOutcome outcome = answerTo(echoCase(), payload);

    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_THAT(outcome.response, SizeIs(payload.size()));
    EXPECT_TRUE(outcome.response == payload) << "the bytes differ";
}

TEST_F(ExchangeTest, AsksBeforeItSendsALargeBody)
{
    const NginxCase expectation{"expectation", "echo_read_request_body; echo -n \"$http_expect\";"};

    EXPECT_TRUE(isSuccess(answerTo(expectation, std::string(kMebibyte, 'x')), ""));
    EXPECT_TRUE(isSuccess(answerTo(expectation, std::string(kMebibyte + 1, 'x')), "100-continue"));
}

TEST_F(ExchangeTest, BodyOverTheServersLimitIsRefused)
{
    for (const std::size_t size : {kMebibyte + 1, 64 * kMebibyte})
    {
        SCOPED_TRACE(size);
        const QueryOutcome outcome =
            answerTo({"limited", "echo_read_request_body; echo_request_body;"}, std::string(size, 'x'), kUsualLimit);

        EXPECT_FALSE(outcome.success);
        EXPECT_EQ(outcome.log, failureLog(CURLE_OK, 413, "Payload Too Large"));
        EXPECT_THAT(outcome.response, HasSubstr("413 Request Entity Too Large"));
        EXPECT_EQ(outcome.stats, kUntouchedStats);
    }
}

TEST_F(ExchangeTest, AppendsToTheResponse)
{
    const NginxServer server({goodSite({{"second", "return 200 ' second';"}, {"missing", "return 404 ' missing';"}})});
    QueryScene scene(configTowards(server));
    const auto ask = [&scene](const char* name, const char* response)
    {
        Query query = caseQuery(name);
        query.response = response;
        return scene.ask(std::move(query));
    };

    EXPECT_TRUE(isSuccess(ask("", "before "), "before fine"));
    EXPECT_TRUE(isSuccess(ask("second", "before fine"), "before fine second"));
    EXPECT_TRUE(isFailure(
        ask("missing", "before fine second"), failureLog(CURLE_OK, 404, "Not Found"), "before fine second missing"));
}

TEST_F(ExchangeTest, TimesTheWholeTransfer)
{
    const QueryOutcome outcome = answerTo({"late", "echo_sleep 0.25; echo -n late;"});

    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "late");
    EXPECT_THAT(outcome.stats.totalTimeMs, Ge(250));
    EXPECT_THAT(outcome.stats.tlsConnectTimeMs, Lt(outcome.stats.totalTimeMs));
}

/// A body of 4000 bytes that takes four seconds.
NginxCase slowCase(int status)
{
    return {"slow", "limit_rate 1000; return " + std::to_string(status) + " '" + std::string(4000, 's') + "';"};
}

TEST_F(ExchangeTest, SuccessOutlivesATimeOutInTheBody)
{
    const QueryOutcome outcome = answerInTimeTo(slowCase(200));

    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.transfer, CURLE_OPERATION_TIMEDOUT);
    EXPECT_THAT(outcome.response, SizeIs(AllOf(Ge(1U), Lt(4000U))));
    EXPECT_THAT(outcome.stats.totalTimeMs, Ge(990)); // the limit of a second: libcurl rounds it
}

TEST_F(ExchangeTest, FailureKeepsItsStatusAfterATimeOutInTheBody)
{
    const QueryOutcome outcome = answerInTimeTo(slowCase(503));

    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.log, failureLog(CURLE_OPERATION_TIMEDOUT, 503, "Service Unavailable"));
    EXPECT_THAT(outcome.response, SizeIs(AllOf(Ge(1U), Lt(4000U))));
    EXPECT_EQ(outcome.stats, kUntouchedStats);
}

TEST_F(ExchangeTest, TimeOutBeforeTheHeadersIsStatus0)
{
    const QueryOutcome outcome = answerInTimeTo({"late", "echo_sleep 30; echo -n late;"});

    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.log, noStatusLog(CURLE_OPERATION_TIMEDOUT));
    EXPECT_THAT(outcome.response, IsEmpty());
    EXPECT_EQ(outcome.stats, kUntouchedStats);
}

/// nginx in front of another server, which may fail it.
class UpstreamTest : public NginxTest
{
protected:
    /// A server without TLS.
    static std::vector<NginxSite> upstream(const std::string& directives)
    {
        NginxSite site;
        site.cases = {{"it", directives}};
        return {site};
    }

    static QueryOutcome askThrough(const NginxServer& behind)
    {
        const std::string target = "proxy_pass http://127.0.0.1:" + std::to_string(behind.port()) + ";";
        const NginxServer front({goodSite({{"it", target + " proxy_read_timeout 50ms;"}})});
        return QueryScene(configTowards(front)).ask(caseQuery("it"));
    }
};

TEST_F(UpstreamTest, AnswersThroughTheFront)
{
    const NginxServer behind(upstream("return 200 'from behind';"));

    const QueryOutcome outcome = askThrough(behind);

    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "from behind");
}

TEST_F(UpstreamTest, CuttingTheBodyIsSuccess)
{
    const NginxServer behind(upstream("add_header Content-Length 1000; echo -n 0123456789;"));

    const QueryOutcome outcome = askThrough(behind);

    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.transfer, CURLE_PARTIAL_FILE);
    EXPECT_EQ(outcome.response, "0123456789");
}

TEST_F(UpstreamTest, GoneIsBadGateway)
{
    NginxServer behind(upstream("return 200 'from behind';"));
    behind.stop();

    const QueryOutcome outcome = askThrough(behind);

    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.log, failureLog(CURLE_OK, 502, "Bad Gateway"));
    EXPECT_THAT(outcome.response, HasSubstr("502 Bad Gateway"));
    EXPECT_EQ(outcome.stats, kUntouchedStats);
}

TEST_F(UpstreamTest, NotAnsweringIsGatewayTimeout)
{
    const NginxServer behind(upstream("echo_sleep 30; echo -n late;"));

    const QueryOutcome outcome = askThrough(behind);

    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.log, failureLog(CURLE_OK, 504, "Gateway Timeout"));
    EXPECT_THAT(outcome.response, HasSubstr("504 Gateway Time-out"));
    EXPECT_EQ(outcome.stats, kUntouchedStats);
}

} // namespace
} // namespace TAV::test
