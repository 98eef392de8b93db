#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace TAV::test
{

/// What a program did.
struct ProgramResult
{
    int exitCode = -1; ///< 128 + the signal if it was killed, as a shell says it
    std::string out;
    std::string err;
};

/// How to run a program.
struct ProgramRun
{
    std::vector<std::string> argv;                  ///< the path first
    std::string input;                              ///< its standard input
    std::map<std::string, std::string> environment; ///< added to the test's own
    std::string directory;                          ///< where it runs; empty for here
    std::string outputFile;                         ///< its standard output instead of `out`
    long fileSizeLimit = -1;                        ///< bytes that it may write into a file; -1 for any
    int signalToSend = 0;                           ///< sent after the delay; 0 for none
    unsigned int signalDelayMs = 0;

    /// Runs it to its end, in a session of its own, without a terminal. One that hangs is killed at last.
    ProgramResult run() const;
};

ProgramResult runProgram(std::vector<std::string> argv, const std::string& input = "");

} // namespace TAV::test
