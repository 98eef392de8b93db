#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "common/KrbTicket.h"

namespace endpointscan
{

/// The ticket of a scan whose threads ask through a proxy. It is renewed when questions are not answered at all: once,
/// whichever threads find that out, and not again before an answer has come, as a renewal that did not help will not
/// help the next time, and wrong passwords lock accounts.
class TicketDuringScan
{
public:
    /// How many renewals there had been.
    using Age = unsigned long;

    explicit TicketDuringScan(std::unique_ptr<programs::KrbTicket> ticket);

    /// Gets the first ticket, before the threads start.
    /// @return why there is none, with what to do about it; empty if there is one
    std::string begin();

    /// Does a thread's question. Many at once; no renewal takes keytab and tickets away meanwhile.
    /// @return the age of the ticket that it was done with
    Age whileNobodyRenews(const std::function<void()>& question);

    /// Renews the ticket, unless another thread has done so since a question with a ticket of that age.
    /// @return whether there is a newer ticket, with which to ask again
    bool renewUnlessDone(Age age);

    /// Notes that somebody answered, so that a later silence is worth another renewal.
    void noteAnswer();

    /// Why there is no ticket; empty if there is one.
    std::string obstacle() const;

private:
    void renew();

    std::unique_ptr<programs::KrbTicket> m_ticket;
    std::mutex m_entrance;      ///< held by who waits for the questions to end, so that no others begin
    std::shared_mutex m_asking; ///< shared by the questions
    mutable std::mutex m_mutex; ///< for what follows
    Age m_age = 0;              ///< changed only while nobody asks
    bool m_mayRenew = false;
    programs::KrbRenewal m_last;
};

} // namespace endpointscan
