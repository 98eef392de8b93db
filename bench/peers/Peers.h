#pragma once

#include "Pair.h"

// What the library is compared with. A peer that this machine does not have is an empty function.
//
// The libraries that run commands are asked for what this one does, as far as they offer it: standard input and output
// on /dev/null, standard error captured, every other descriptor closed. (Boost.Process 1.74 leaves the others open: its
// limit_handles takes the pipes away too. Poco::Process leaves standard input and output where they are.)
namespace TAV::bench::peers
{

constexpr const char* kTrue = "/bin/true";
constexpr const char* kEcho = "/bin/echo";
constexpr const char* kWord = "hello";

/// fork(2), one close_range(2), execv(3), waitpid(2), and nothing else.
Work plainRun();
/// The same with the output going into a pipe, which is then read.
Work plainCapture();

Work glibRun();
Work glibCapture();

Work pocoRun();
Work pocoCapture();

Work boostRun();
Work boostCapture();

/// MD5, SHA-1 and SHA-256 of a file in one pass.
Work rhashOf(const std::string& path);

} // namespace TAV::bench::peers
