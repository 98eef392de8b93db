#pragma once

#include <string>
#include <vector>

namespace tavctl::doctor
{

/// A line of /proc/self/mounts.
struct Mount
{
    std::string place;
    std::string type;
    std::vector<std::string> options;

    bool hasOption(const std::string& option) const;

    /// The value of an option NAME=VALUE; empty if it is not set.
    std::string valueOf(const std::string& name) const;
};

/// Lines that are none are left out.
std::vector<Mount> parseMounts(const std::string& text);

} // namespace tavctl::doctor
