#pragma once

#include <optional>
#include <string>

#include "common/KrbTicket.h"
#include "common/Password.h"

namespace endpointscan
{

enum class Command
{
    Scan,
    Restore,
    List,
};

struct Options
{
    Command command = Command::Scan;
    std::string directory;
    std::string denyList;   ///< empty if a server is asked
    std::string server;     ///< empty if a deny list is used
    std::string caFile;     ///< whom to trust as the server
    long queryTimeout = 10; ///< seconds for each question to the server
    std::string proxy;      ///< HOST:PORT of a proxy to the server
    bool isProxyGiven = false;
    programs::KrbAccount account; ///< whose ticket the proxy gets; not given for none
    std::string quarantine;
    std::string target;
    std::string archive; ///< restore: only this one; empty for all
    std::string json;    ///< where the report goes; empty for none
    unsigned int threads = 0;
    unsigned short cpuLimit = 0; ///< percentage of the whole machine; 0 for none
    programs::SecretSource password;
    std::string logFile;
    bool isVerbose = false;
};

/// Reads the command line. Help and version are printed here.
/// @return the options, or nothing if there is nothing to do
/// @throws UsageError  if it makes no sense
std::optional<Options> parseOptions(int argc, const char* const* argv);

} // namespace endpointscan
