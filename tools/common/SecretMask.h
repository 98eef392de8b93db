#pragma once

#include <string>
#include <vector>

namespace programs
{

/// Takes archive passwords out of log lines. The line that announces a command holds every argument of it, and the
/// archive tool takes its password as an argument: "-p" and the password in one.
class SecretMask
{
public:
    /// A password to look for. Needed for one that holds a blank, where the end of the argument cannot be seen.
    void add(const std::string& password);

    /// `message`, with every "-pPASSWORD" of an announced command as "-p****". Other messages stay as they are.
    std::string masked(const std::string& message) const;

private:
    std::vector<std::string> m_arguments;
};

} // namespace programs
