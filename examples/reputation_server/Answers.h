#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "endpoint_scan/DenyList.h"

namespace reputationserver
{

/// What goes back to a client.
struct Answer
{
    int status = 200;
    std::string json;
};

/// The protocol: a digest comes in, a verdict goes out. Any thread.
class Answers
{
public:
    /// @param list       the malicious contents
    /// @param failEvery  each so manieth request fails; 0 for none
    Answers(endpointscan::DenyList list, std::uint64_t failEvery) : m_list(std::move(list)), m_failEvery(failEvery) {}

    /// @param body  a SHA-256 in hexadecimal digits, or a JSON object with one under "sha256"
    Answer answer(const std::string& body);

    /// What has been answered so far, in one sentence.
    std::string summary() const;

private:
    endpointscan::DenyList m_list;
    std::uint64_t m_failEvery;
    std::atomic<std::uint64_t> m_asked{0};
    std::atomic<std::uint64_t> m_malicious{0};
    std::atomic<std::uint64_t> m_failed{0};
};

/// An answer that says only what is wrong.
Answer problem(int status, const std::string& what);

} // namespace reputationserver
