#include "endpoint_scan/TicketDuringScan.h"

#include <utility>

namespace endpointscan
{

TicketDuringScan::TicketDuringScan(std::unique_ptr<programs::KrbTicket> ticket) : m_ticket(std::move(ticket)) {}

std::string TicketDuringScan::begin()
{
    renew();
    m_mayRenew = m_last.isRenewed;
    return m_last.isRenewed ? "" : m_last.obstacle(m_ticket->principal()) + ". " + m_last.failure.advice;
}

TicketDuringScan::Age TicketDuringScan::whileNobodyRenews(const std::function<void()>& question)
{
    std::unique_lock<std::mutex> entrance(m_entrance);
    const std::shared_lock<std::shared_mutex> asking(m_asking);
    entrance.unlock();
    const Age age = m_age;
    question();
    return age;
}

bool TicketDuringScan::renewUnlessDone(Age age)
{
    const std::lock_guard<std::mutex> entrance(m_entrance);
    const std::unique_lock<std::shared_mutex> alone(m_asking);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_age == age && std::exchange(m_mayRenew, false))
        renew();
    return m_age != age && m_last.isRenewed;
}

void TicketDuringScan::noteAnswer()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_mayRenew = true;
}

std::string TicketDuringScan::obstacle() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_last.isRenewed ? "" : m_last.obstacle(m_ticket->principal());
}

void TicketDuringScan::renew()
{
    m_last = m_ticket->renew();
    ++m_age;
}

} // namespace endpointscan
