#pragma once

#include <string>
#include <vector>

namespace TAV::test
{

/// How a program ended.
struct ToolRun
{
    int exitCode = -1; ///< -1 if a signal ended it
    std::string output;
};

/// Runs one of the machine's programs (found through PATH) to its end.
/// @param input  the file for its standard input
/// @return its exit code and its standard output; code 127 if it could not be started
ToolRun runTool(const std::vector<std::string>& argv, const std::string& input = "/dev/null");

/// The standard output of a program that has to succeed; throws std::runtime_error if it does not.
std::string outputOf(const std::vector<std::string>& argv, const std::string& input = "/dev/null");

/// Whether a program of this name is found through PATH.
bool hasTool(const std::string& name);

} // namespace TAV::test
