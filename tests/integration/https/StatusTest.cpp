#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NginxScene.h"

namespace TAV::test
{
namespace
{

using testing::HasSubstr;
using testing::IsEmpty;

/// A status that fails, and the text that the log knows for it.
struct Refusal
{
    int status;
    const char* text;
};

std::string nameOf(int status)
{
    return std::to_string(status);
}

std::string bodyOf(int status)
{
    return "the body of " + std::to_string(status);
}

/// An nginx that answers each of these, with a body of its own.
std::vector<NginxSite> answering(const std::vector<Refusal>& refusals)
{
    std::vector<NginxCase> cases;
    for (const Refusal& refusal : refusals)
        cases.push_back(
            {nameOf(refusal.status), "return " + nameOf(refusal.status) + " '" + bodyOf(refusal.status) + "';"});
    return {goodSite(std::move(cases))};
}

class StatusTest : public NginxTest
{
protected:
    /// Each fails with its own three lines, keeps the body, leaves the figures alone, and leaves the session usable.
    static void expectEachRefused(const std::vector<Refusal>& refusals)
    {
        const NginxServer server(answering(refusals));
        QueryScene scene(configTowards(server));
        for (const Refusal& refusal : refusals)
        {
            SCOPED_TRACE(refusal.status);
            const QueryOutcome outcome = scene.ask(caseQuery(nameOf(refusal.status)));

            EXPECT_FALSE(outcome.success);
            EXPECT_EQ(outcome.log, failureLog(CURLE_OK, refusal.status, refusal.text));
            EXPECT_EQ(outcome.response, bodyOf(refusal.status));
            EXPECT_EQ(outcome.stats, kUntouchedStats);
        }
        EXPECT_TRUE(isSuccess(scene.ask()));
    }

    /// The one answer of a case, whose body is not compared.
    static QueryOutcome answerTo(const std::string& directives)
    {
        const NginxServer server({goodSite({{"it", directives}})});
        return QueryScene(configTowards(server)).ask(caseQuery("it"));
    }

    static void expectFailed(const QueryOutcome& outcome, const std::vector<LogLine>& log)
    {
        EXPECT_FALSE(outcome.success);
        EXPECT_EQ(outcome.log, log);
        EXPECT_EQ(outcome.stats, kUntouchedStats);
    }
};

TEST_F(StatusTest, SucceedsWith200)
{
    const QueryOutcome outcome = answerTo("return 200 'clean';");

    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "clean");
}

TEST_F(StatusTest, SucceedsWith200WithoutBody)
{
    const QueryOutcome outcome = answerTo("return 200;");

    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_THAT(outcome.response, IsEmpty());
}

TEST_F(StatusTest, OtherSuccessesAreFailures)
{
    expectEachRefused({{206, ""}, {201, ""}, {202, ""}});
}

TEST_F(StatusTest, NoContentIsFailure)
{
    const QueryOutcome outcome = answerTo("return 204;");

    expectFailed(outcome, failureLog(CURLE_OK, 204, ""));
    EXPECT_THAT(outcome.response, IsEmpty());
}

TEST_F(StatusTest, NotModifiedIsFailure)
{
    const QueryOutcome outcome = answerTo("return 304;");

    expectFailed(outcome, failureLog(CURLE_OK, 304, ""));
    EXPECT_THAT(outcome.response, IsEmpty());
}

TEST_F(StatusTest, RedirectsAreNotFollowed)
{
    const std::vector<int> redirects = {301, 302, 303, 307, 308};
    std::vector<NginxCase> cases;
    for (const int status : redirects)
        cases.push_back({nameOf(status), "return " + nameOf(status) + " https://$http_host/1;"});
    const NginxServer server({goodSite(std::move(cases))});
    QueryScene scene(configTowards(server));

    for (const int status : redirects)
    {
        SCOPED_TRACE(status);
        const QueryOutcome outcome = scene.ask(caseQuery(nameOf(status)));
        expectFailed(outcome, failureLog(CURLE_OK, status, ""));
        EXPECT_THAT(outcome.response, HasSubstr(nameOf(status)));
    }
    EXPECT_EQ(server.requests(redirects.size()).size(), redirects.size());
}

TEST_F(StatusTest, RefusalsOfTheRequestAreNamed)
{
    expectEachRefused({{400, "Bad Request"},
                       {401, "Unauthorized"},
                       {402, "Payment Required"},
                       {403, "Forbidden"},
                       {404, "Not Found"},
                       {405, "Method Not Allowed"},
                       {406, "Not Acceptable"},
                       {407, "Proxy Authentication Required"},
                       {408, "Request Timeout"},
                       {409, "Conflict"},
                       {410, "Gone"},
                       {411, "Length Required"},
                       {412, "Precondition Failed"},
                       {413, "Payload Too Large"},
                       {414, "URI Too Long"},
                       {415, "Unsupported Media Type"},
                       {416, "Range Not Satisfiable"},
                       {417, "Expectation Failed"},
                       {426, "Upgrade Required"}});
}

TEST_F(StatusTest, FailuresOfTheServerAreNamed)
{
    expectEachRefused({{500, "Internal Server Error"},
                       {501, "Not Implemented"},
                       {502, "Bad Gateway"},
                       {503, "Service Unavailable"},
                       {504, "Gateway Timeout"},
                       {505, "HTTP Version Not Supported"}});
}

TEST_F(StatusTest, UnknownStatusesHaveNoText)
{
    expectEachRefused({{418, ""}, {429, ""}, {451, ""}, {506, ""}, {599, ""}, {999, ""}});
}

TEST_F(StatusTest, ClosingWithoutAnswerIsStatus0)
{
    const QueryOutcome outcome = answerTo("return 444;");

    expectFailed(outcome, noStatusLog(CURLE_GOT_NOTHING));
    EXPECT_THAT(outcome.response, IsEmpty());
}

TEST_F(StatusTest, RefusedMethodIsNamed)
{
    const QueryOutcome outcome = answerTo("root .; try_files /output =404;");

    expectFailed(outcome, failureLog(CURLE_OK, 405, "Method Not Allowed"));
    EXPECT_THAT(outcome.response, HasSubstr("405 Not Allowed"));
}

TEST_F(StatusTest, EmptyMethodIsBadRequest)
{
    const NginxServer server({goodSite()});
    TAVQueryConfig config = configTowards(server);
    config.requestType.clear();

    const QueryOutcome outcome = QueryScene(config).ask();

    expectFailed(outcome, failureLog(CURLE_OK, 400, "Bad Request"));
    EXPECT_THAT(outcome.response, HasSubstr("400 Bad Request"));
}

TEST_F(StatusTest, MissingClientCertificateIsBadRequest)
{
    const NginxServer server(
        {goodSite({}, "ssl_verify_client on; ssl_client_certificate " + TestAuthority::shared().caFile() + ";")});

    const QueryOutcome outcome = QueryScene(configTowards(server)).ask();

    expectFailed(outcome, failureLog(CURLE_OK, 400, "Bad Request"));
    EXPECT_THAT(outcome.response, HasSubstr("No required SSL certificate was sent"));
}

} // namespace
} // namespace TAV::test
