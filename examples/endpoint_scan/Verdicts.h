#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "endpoint_scan/Types.h"

namespace endpointscan
{

/// What is thought of a content.
struct Opinion
{
    Verdict verdict = Verdict::Unknown; ///< Clean, Denied or Unknown
    std::string reason;                 ///< why it is unknown
    std::optional<AskTimes> times;      ///< of a question that was answered over the network
};

/// Who tells which contents must not be on the machine.
class Verdicts
{
public:
    Verdicts() = default;
    Verdicts(const Verdicts&) = delete;
    Verdicts& operator=(const Verdicts&) = delete;
    virtual ~Verdicts() = default;

    /// Who it is, for the reports.
    virtual const char* name() const = 0;

    /// Makes ready for so many askers. Called before any of them asks, and by one thread only.
    virtual void prepare(std::size_t askers) = 0;

    /// Asks for the content with this digest. An answer that cannot be had is an opinion too: nothing is thrown.
    /// @param sha256  in lower case
    /// @param asker   below the number given to `prepare`; one thread at a time for each
    virtual Opinion ask(const std::string& sha256, std::size_t asker) = 0;
};

} // namespace endpointscan
