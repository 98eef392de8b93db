#include "endpoint_scan/DenyList.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "common/Text.h"
#include "endpoint_scan/Types.h"

namespace endpointscan
{
namespace
{

constexpr std::size_t kDigestLength = 64;
constexpr std::size_t kShownErrors = 10;
constexpr std::size_t kShownCharacters = 80;
constexpr const char* kBlanks = " \t\r\n\v\f";

/// The line without comment and surrounding blanks, in lower case.
std::string digestOf(const std::string& line)
{
    std::string text = line.substr(0, line.find('#'));
    text.erase(0, std::min(text.find_first_not_of(kBlanks), text.size()));
    text.erase(text.find_last_not_of(kBlanks) + 1);
    std::transform(
        text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool isDigest(const std::string& text)
{
    return text.size() == kDigestLength && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

std::string complaint(const std::string& name, std::size_t number, const std::string& line)
{
    return programs::printable(name) + ":" + std::to_string(number) +
           ": not a SHA-256 digest (64 hexadecimal digits): \"" +
           programs::printable(line.substr(0, kShownCharacters)) + "\"";
}

} // namespace

DenyList DenyList::parse(std::istream& text, const std::string& name)
{
    DenyList list;
    std::string complaints;
    std::size_t bad = 0;
    std::string line;
    for (std::size_t number = 1; std::getline(text, line); ++number)
    {
        const std::string digest = digestOf(line);
        if (digest.empty())
            continue;
        if (isDigest(digest))
            list.m_digests.insert(digest);
        else if (++bad <= kShownErrors)
            complaints += (bad == 1 ? "" : "\n") + complaint(name, number, line);
    }
    if (text.bad())
        throw UsageError(programs::printable(name) + ": cannot be read to its end");
    if (bad > kShownErrors)
        complaints += "\n" + programs::printable(name) + ": " + std::to_string(bad - kShownErrors) + " more bad lines";
    if (bad > 0)
        throw UsageError(complaints);
    return list;
}

DenyList DenyList::load(const std::string& path)
{
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored))
        throw UsageError(programs::printable(path) + ": is a directory");
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw UsageError(programs::printable(path) + ": " + std::strerror(errno));
    return parse(file, path);
}

} // namespace endpointscan
