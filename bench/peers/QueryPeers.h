#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Pair.h"

// Other HTTPS clients, each asking the same question over one connection that it keeps.
namespace TAV::bench::peers
{

struct Question
{
    std::uint16_t port = 0; ///< of the server, on this machine
    std::string caFile;
    std::vector<std::pair<std::string, std::string>> header; ///< name and value of each line
    std::string payload;
};

/// Makes a connected client whose call asks once, and fails unless the status is 200.
using Connect = std::function<Work(const Question&)>;

// Empty for a peer that this machine does not have.
Connect httplibClient();
Connect pocoClient();
Connect beastClient();

} // namespace TAV::bench::peers
