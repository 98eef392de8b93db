#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "common/QueryLog.h"
#include "tav/ICurlWrapper.h"

namespace tavctl
{

/// What became of one request, or of several over one session.
struct QueryReport
{
    std::string server;
    std::string body;                     ///< of the last request; of a failed one too
    std::vector<TAV::LumoStats> answered; ///< one per request that was answered with 200, in their order
    std::size_t failed = 0;
    std::vector<programs::QueryLine> lines; ///< what the client logged about the last failure

    void addFailure(std::vector<programs::QueryLine> failureLines);
    bool isSuccess() const { return failed == 0; }
};

/// The report for people.
/// @param output  the file that the body was written to; empty if the body is to stand here
std::string textOf(const QueryReport& report, const std::string& output);
nlohmann::json jsonOf(const QueryReport& report, const std::string& output);

} // namespace tavctl
