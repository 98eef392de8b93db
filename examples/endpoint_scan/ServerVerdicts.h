#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/QueryLog.h"
#include "endpoint_scan/TicketDuringScan.h"
#include "endpoint_scan/Verdicts.h"
#include "tav/ICurlWrapper.h"

namespace endpointscan
{

/// Which reputation server to ask, and how.
struct ServerAddress
{
    std::string server; ///< HOST or HOST:PORT
    std::string caFile; ///< the certificates of whom to trust, and of nobody else
    long timeout = 0;   ///< seconds for each question
    std::string proxy;  ///< HOST:PORT; empty for none
};

/// The verdicts of a reputation server. Each asker has a session of its own, all of them with one client, and every
/// failure becomes an unknown verdict with its reason.
class ServerVerdicts : public Verdicts
{
public:
    /// @param log     the one that the client writes to
    /// @param client  not configured yet
    /// @param ticket  for the proxy; null if it asks for none. It is renewed when questions are not answered at all
    ServerVerdicts(std::unique_ptr<programs::QueryLog> log,
                   std::unique_ptr<TAV::ICurlWrapper> client,
                   ServerAddress address,
                   std::unique_ptr<TicketDuringScan> ticket = nullptr);

    /// Closes the sessions: nobody asks any more.
    ~ServerVerdicts() override;

    const char* name() const override { return "server"; }
    void prepare(std::size_t askers) override;
    Opinion ask(const std::string& sha256, std::size_t asker) override;

private:
    /// What a question led to.
    struct Reply
    {
        bool isSuccess = false;
        bool isAnswered = false; ///< with any status
        std::string body;
        std::string cause; ///< why it is no success
        AskTimes times;
    };

    Opinion askServer(const std::string& sha256, std::size_t asker);
    Reply send(const std::string& question, std::size_t asker);
    Reply sendWithTicket(const std::string& question, std::size_t asker);

    std::unique_ptr<programs::QueryLog> m_log;
    std::unique_ptr<TicketDuringScan> m_ticket;
    std::unique_ptr<TAV::ICurlWrapper> m_client;
    ServerAddress m_address;
    std::vector<std::string> m_obstacles; ///< one per asker: why it has no session, empty if it has one
};

/// What an answer with status 200 says about the content that was asked for. The client takes a body that breaks off
/// for a success as well: only a complete one about this very content counts.
Opinion readAnswer(const std::string& body, const std::string& sha256);

} // namespace endpointscan
