#pragma once

#include <iosfwd>
#include <string>
#include <unordered_set>

namespace endpointscan
{

/// The digests of the files that must not be on the machine.
///
/// A text with one SHA-256 digest per line, as 64 hexadecimal digits in either case. Empty lines count for nothing, and
/// so does what stands behind a '#'.
class DenyList
{
public:
    /// @param name  what to call the text in an error
    /// @throws UsageError  with the name and number of each line that is no digest
    static DenyList parse(std::istream& text, const std::string& name);

    /// Reads the list from a file.
    /// @throws UsageError  as above, and if the file cannot be read
    static DenyList load(const std::string& path);

    /// @param sha256  in lower case
    bool contains(const std::string& sha256) const { return m_digests.count(sha256) > 0; }
    std::size_t size() const { return m_digests.size(); }

private:
    std::unordered_set<std::string> m_digests;
};

} // namespace endpointscan
