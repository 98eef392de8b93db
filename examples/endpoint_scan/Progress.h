#pragma once

#include <cstddef>

namespace endpointscan
{

/// A progress bar on standard error; nothing where that is not a terminal.
class Progress
{
public:
    Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    /// Wipes the bar off.
    ~Progress();

    void show(std::size_t done, std::size_t all) const;

private:
    bool m_isTerminal;
};

} // namespace endpointscan
