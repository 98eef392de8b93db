#include "endpoint_scan/Interrupt.h"

#include <atomic>
#include <csignal>

namespace endpointscan
{
namespace
{

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set in a signal handler");

void note(int)
{
    interrupted = true;
}

} // namespace

void noteInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = note;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

bool isInterrupted()
{
    return interrupted;
}

} // namespace endpointscan
