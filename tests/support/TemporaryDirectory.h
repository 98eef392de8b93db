#pragma once

#include <string>
#include <string_view>

namespace TAV::test
{

/// A directory of the test's own, removed with everything in it at the end.
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    const std::string& path() const { return m_path; }

    /// The path of a file in it, whether it exists or not.
    std::string file(const std::string& name) const { return m_path + "/" + name; }

    /// Makes a file with this content and returns its path.
    std::string write(const std::string& name, std::string_view content) const;

private:
    std::string m_path;
};

/// The whole content of a file; throws std::runtime_error if it cannot be read.
std::string readFile(const std::string& path);

} // namespace TAV::test
