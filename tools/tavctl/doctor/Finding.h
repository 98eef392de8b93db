#pragma once

#include <string>
#include <vector>

namespace tavctl::doctor
{

/// How well something is.
enum class State
{
    Ok,
    Note,    ///< worth knowing, nothing to do
    Warning, ///< works, but will bite somebody
    Problem, ///< a service cannot work
};

/// What a check has found.
struct Finding
{
    State state = State::Ok;
    std::string text;                ///< one line
    std::vector<std::string> advice; ///< lines that say what to do about it; empty if nothing
};

/// What a check has found, with the check's name.
struct Entry
{
    std::string service;
    std::string check;
    Finding finding;
};

} // namespace tavctl::doctor
