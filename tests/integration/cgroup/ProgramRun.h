#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{

struct ProgramResult
{
    int code = -1;
    std::string out;
    std::string err;
};

/// Runs a shell command in this process's namespace and waits for it.
inline ProgramResult runProgram(const std::string& command)
{
    const TemporaryDirectory directory;
    const std::string errors = directory.file("errors");
    ProgramResult result;
    FILE* pipe = popen((command + " 2>" + errors).c_str(), "re");
    if (pipe == nullptr)
        return result;
    std::array<char, 4096> buffer = {};
    for (std::size_t n = 0; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
        result.out.append(buffer.data(), n);
    const int status = pclose(pipe);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.err = readFile(errors);
    return result;
}

} // namespace TAV::test
