// The only checks that send anything, and only to whom the user names.
#include <array>
#include <cstdio>

#include "common/Text.h"
#include "tavctl/doctor/Checks.h"

namespace tavctl::doctor
{
namespace
{

constexpr double kMsPerSecond = 1000;
constexpr double kSlowSeconds = 2;
constexpr long kProxyWantsUser = 407;

std::string milliseconds(double seconds)
{
    std::array<char, 32> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%.0f ms", seconds * kMsPerSecond));
    return text.data();
}

std::string timesText(const Attempt& attempt)
{
    const std::string tls = attempt.tlsSeconds > 0 ? ", TLS stood after " + milliseconds(attempt.tlsSeconds) : "";
    return " in " + milliseconds(attempt.seconds) + tls;
}

std::vector<std::string> whyNoServer(const Questions& questions)
{
    std::vector<std::string> advice{"tavctl query --verbose with the same server shows the client's own lines"};
    if (!questions.proxy.empty())
        advice.emplace_back("a proxy that refuses, or that wants a user or a Kerberos ticket, looks the same: ask it");
    return advice;
}

} // namespace

std::optional<Finding> checkProxy(Host& host, const Questions& questions)
{
    if (questions.proxy.empty())
        return std::nullopt;
    const std::string shown = programs::printable(questions.proxy);
    const Attempt attempt = host.connectTo(questions.proxy, questions.timeout);
    if (!attempt.error.empty())
        return Finding{State::Problem,
                       shown + ": " + programs::printable(attempt.error),
                       {"check its name and port, and what stands between (firewall, name server)"}};
    return Finding{State::Ok, shown + " takes connections" + timesText(attempt), {}};
}

std::optional<Finding> checkServer(Host& host, const Questions& questions)
{
    if (questions.server.empty())
        return Finding{State::Note, "not tried; --server HOST:PORT --ca FILE sends it a query", {}};
    const std::string shown = programs::printable(questions.server);
    const Attempt attempt = host.query(questions);
    if (!attempt.error.empty())
        return Finding{State::Problem, shown + ": " + programs::printable(attempt.error), whyNoServer(questions)};
    const std::string text = shown + " answers with HTTP " + std::to_string(attempt.status) + timesText(attempt);
    if (attempt.status == kProxyWantsUser)
        return Finding{State::Warning, text, {"somebody on the way wants a user: see the page on Kerberos"}};
    if (attempt.seconds > kSlowSeconds)
        return Finding{State::Note, text + ", which is long", {}};
    return Finding{State::Ok, text, {}};
}

} // namespace tavctl::doctor
