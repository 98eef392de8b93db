#include "reputation_server/Answers.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>

namespace reputationserver
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr std::size_t kDigestLength = 64;
constexpr const char* kBlanks = " \t\r\n";

// HTTP statuses.
constexpr int kBadRequest = 400;
constexpr int kUnavailable = 503;

std::string toText(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

/// The digest in a request, in lower case; empty if there is none.
std::string digestIn(const std::string& body)
{
    std::string digest = trimmed(body);
    const Json request = Json::parse(body, nullptr, false);
    if (request.is_object())
        digest = request.contains("sha256") && request["sha256"].is_string() ? request["sha256"] : "";
    std::transform(digest.begin(),
                   digest.end(),
                   digest.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const bool isDigest =
        digest.size() == kDigestLength && digest.find_first_not_of("0123456789abcdef") == std::string::npos;
    return isDigest ? digest : "";
}

} // namespace

Answer Answers::answer(const std::string& body)
{
    const std::uint64_t number = ++m_asked;
    if (m_failEvery != 0 && number % m_failEvery == 0)
    {
        ++m_failed;
        return problem(kUnavailable, "this failure was asked for (--fail-every)");
    }
    const std::string digest = digestIn(body);
    if (digest.empty())
    {
        ++m_failed;
        return problem(kBadRequest, R"(send a SHA-256 digest as 64 hexadecimal digits, or as {"sha256": "..."})");
    }
    const bool isMalicious = m_list.contains(digest);
    if (isMalicious)
        ++m_malicious;
    return {Answer().status, toText({{"sha256", digest}, {"verdict", isMalicious ? "malicious" : "clean"}})};
}

std::string Answers::summary() const
{
    return std::to_string(m_asked) + " requests: " + std::to_string(m_malicious) + " malicious, " +
           std::to_string(m_asked - m_malicious - m_failed) + " clean, " + std::to_string(m_failed) +
           " without a verdict";
}

Answer problem(int status, const std::string& what)
{
    return {status, toText({{"error", what}})};
}

} // namespace reputationserver
