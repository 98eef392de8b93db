#include "endpoint_scan/Progress.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace endpointscan
{
namespace
{

constexpr std::size_t kWidth = 40;

} // namespace

Progress::Progress() : m_isTerminal(::isatty(STDERR_FILENO) == 1) {}

Progress::~Progress()
{
    if (m_isTerminal)
        static_cast<void>(std::fputs("\r\x1b[K", stderr));
}

void Progress::show(std::size_t done, std::size_t all) const
{
    if (!m_isTerminal)
        return;
    const std::size_t filled = all == 0 ? kWidth : done * kWidth / all;
    std::string bar(filled, '#');
    bar.resize(kWidth, '.');
    static_cast<void>(std::fputs(
        ("\r[" + bar + "] " + std::to_string(done) + " of " + std::to_string(all) + " files").c_str(), stderr));
}

} // namespace endpointscan
