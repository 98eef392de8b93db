#include "endpoint_scan/ServerVerdicts.h"

#include <nlohmann/json.hpp>

#include <exception>
#include <utility>

#include "common/QueryText.h"
#include "common/Text.h"
#include "tav/FMXException.h"

namespace endpointscan
{
namespace
{

constexpr std::size_t kShownBytes = 40;

Opinion unknown(const std::string& reason)
{
    return {Verdict::Unknown, reason, std::nullopt};
}

/// Does the work, and tells why it failed; an empty text if it did not.
template <typename Work>
std::string obstacleIn(Work work)
{
    try
    {
        work();
        return "";
    }
    catch (const TAV::FMXException& error)
    {
        return error.message;
    }
    catch (const std::exception& error)
    {
        return error.what();
    }
}

/// The text under `name`; empty if there is none.
std::string textIn(const nlohmann::json& object, const char* name)
{
    const auto member = object.find(name);
    return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

TAV::TAVHTTPHeader requestHeader()
{
    return programs::headerOf({"Content-Type: application/json",
                               "Accept: application/json",
                               "X-Client: endpoint_scan " ENDPOINT_SCAN_VERSION});
}

} // namespace

ServerVerdicts::ServerVerdicts(std::unique_ptr<programs::QueryLog> log,
                               std::unique_ptr<TAV::ICurlWrapper> client,
                               ServerAddress address,
                               std::unique_ptr<TicketDuringScan> ticket)
    : m_log(std::move(log)), m_ticket(std::move(ticket)), m_client(std::move(client)), m_address(std::move(address))
{
}

ServerVerdicts::~ServerVerdicts()
{
    for (std::size_t asker = 0; asker < m_obstacles.size(); ++asker)
    {
        if (m_obstacles[asker].empty())
            m_client->deInitSession(asker);
    }
}

void ServerVerdicts::prepare(std::size_t askers)
{
    TAV::TAVQueryConfig config;
    config.requestType = "POST";
    config.caCertPath = m_address.caFile;
    config.timeout = m_address.timeout;
    config.serverHost = m_address.server;
    config.proxyAddress = m_address.proxy;
    m_client->configureOptions(config, 0);
    // Here and not where they are needed: no session may be opened while another one is at work.
    for (std::size_t asker = m_obstacles.size(); asker < askers; ++asker)
        m_obstacles.push_back(obstacleIn([this, asker] { m_client->initSession(asker); }));
}

Opinion ServerVerdicts::ask(const std::string& sha256, std::size_t asker)
{
    if (!m_obstacles.at(asker).empty())
        return unknown("no session: " + m_obstacles[asker]);
    Opinion opinion;
    const std::string obstacle = obstacleIn([&] { opinion = askServer(sha256, asker); });
    return obstacle.empty() ? opinion : unknown("not asked: " + obstacle);
}

Opinion ServerVerdicts::askServer(const std::string& sha256, std::size_t asker)
{
    const std::string question = nlohmann::json{{"sha256", sha256}}.dump();
    const Reply reply = m_ticket == nullptr ? send(question, asker) : sendWithTicket(question, asker);
    if (!reply.isSuccess)
        return unknown(reply.cause);
    Opinion opinion = readAnswer(reply.body, sha256);
    opinion.times = reply.times;
    return opinion;
}

ServerVerdicts::Reply ServerVerdicts::send(const std::string& question, std::size_t asker)
{
    m_log->takeLines();
    TAV::TAVHTTPHeader header = requestHeader();
    TAV::LumoStats stats;
    Reply reply;
    reply.isSuccess = m_client->sendNetworkRequest(header, question, reply.body, asker, stats);
    reply.times = {stats.totalTimeMs, stats.tlsConnectTimeMs};
    const programs::QueryFailure failure = failureIn(m_log->takeLines());
    reply.isAnswered = reply.isSuccess || failure.status != 0;
    if (!reply.isSuccess)
        reply.cause = failure.cause();
    return reply;
}

/// A proxy that refuses looks the same as a server that is down: with another ticket the question is asked once more.
ServerVerdicts::Reply ServerVerdicts::sendWithTicket(const std::string& question, std::size_t asker)
{
    Reply reply;
    const TicketDuringScan::Age age = m_ticket->whileNobodyRenews([&] { reply = send(question, asker); });
    if (!reply.isAnswered && m_ticket->renewUnlessDone(age))
        m_ticket->whileNobodyRenews([&] { reply = send(question, asker); });
    if (reply.isAnswered)
        m_ticket->noteAnswer();
    else if (const std::string obstacle = m_ticket->obstacle(); !obstacle.empty())
        reply.cause += "; " + obstacle;
    return reply;
}

Opinion readAnswer(const std::string& body, const std::string& sha256)
{
    const nlohmann::json answer = nlohmann::json::parse(body, nullptr, false);
    if (!answer.is_object())
        return unknown("the answer is not JSON, or not all of it: \"" +
                       programs::printable(body.substr(0, kShownBytes)) + "\"");
    if (textIn(answer, "sha256") != sha256)
        return unknown("the answer is about another content");
    const std::string verdict = textIn(answer, "verdict");
    if (verdict == "malicious")
        return {Verdict::Denied, "", std::nullopt};
    if (verdict == "clean")
        return {Verdict::Clean, "", std::nullopt};
    return unknown("the answer has no verdict that is known: \"" + programs::printable(verdict.substr(0, kShownBytes)) +
                   "\"");
}

} // namespace endpointscan
