#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

namespace TAV::test
{

/// Open descriptors and what each is, in the words of tav_self_report: "+ /dev/null", "r pipe:[4711]".
using DescriptorTable = std::map<int, std::string>;

enum class Operation
{
    Execute,
    Capture,
};

/// The process that runs a command.
struct CallerState
{
    DescriptorTable table;
    int limit = 0;                       ///< its soft limit of descriptors
    std::array<int, 2> outPipe{-1, -1};  ///< for capture
    std::string errPipe = "pipe:[none]"; ///< what the pipe for standard error will be called, if one is made
};

/// What becomes of the child.
struct ChildFate
{
    enum class Kind
    {
        NeverMade,   ///< the caller gets false
        RunsProgram, ///< with `table`
        ComesBack,   ///< with `table`, and goes on in the caller's code with `returned`
    };

    Kind kind = Kind::RunsProgram;
    DescriptorTable table;
    bool returned = false;
    std::string complaint; ///< logged at level 2
};

/// The rules for descriptors, acted out on a table instead of a process.
ChildFate predictChild(Operation operation, const CallerState& caller, const std::map<int, bool>* keepMap);

} // namespace TAV::test
