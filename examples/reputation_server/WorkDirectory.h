#pragma once

#include <string>

namespace reputationserver
{

/// A directory of this process's own, with mode 0700, removed with everything in it at the end.
class WorkDirectory
{
public:
    /// Makes it below TMPDIR, or below /tmp.
    /// @throws std::system_error
    WorkDirectory();
    WorkDirectory(const WorkDirectory&) = delete;
    WorkDirectory& operator=(const WorkDirectory&) = delete;
    ~WorkDirectory();

    /// Writes a file into it.
    /// @return its path
    /// @throws std::runtime_error
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string m_path;
};

} // namespace reputationserver
