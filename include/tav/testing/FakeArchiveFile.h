#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

/// @file
/// The archive files of `FakeQelArchiveUtils`; nothing that a test needs itself.

namespace TAV::test::detail
{

/// A file or a directory in an archive.
struct ArchiveEntry
{
    std::string name;             ///< with the directories that belong to it, "tree/deep/file"
    std::string password;         ///< empty for none
    std::string content;          ///< empty for a directory
    unsigned int mode = 0;        ///< permission bits
    std::int64_t modified = 0;    ///< in ticks of the file system's clock
    bool isDirectory = false;     ///< or a file
    std::filesystem::path source; ///< where it came from; not stored
};

/// The content of a regular file; nothing if it cannot be read, or is something else.
inline std::optional<std::string> readWhole(const std::filesystem::path& path)
{
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored))
        return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    return file.is_open() && !file.bad() ? std::make_optional(std::move(content)) : std::nullopt;
}

/// Makes or replaces a file.
/// @return whether all of it was written
inline bool writeWhole(const std::filesystem::path& path, const std::string& content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    return !file.fail();
}

/// The format: this line, the checksum of what follows it, and six fields for each entry. A field is its length in
/// decimal, a colon, and as many bytes.
inline constexpr const char* kArchiveTitle = "an archive of a test\n";

/// Appends a field.
inline void putField(std::string& text, const std::string& field)
{
    text += std::to_string(field.size()) + ":" + field;
}

/// Gives the field that begins at `at`, and moves that behind it.
inline std::string takeField(const std::string& text, std::size_t& at)
{
    const std::size_t colon = text.find(':', at);
    const std::size_t size = std::stoul(text.substr(at, colon - at));
    at = colon + 1 + size;
    return text.substr(colon + 1, size);
}

/// FNV-1a: no byte can change unnoticed.
inline std::string checksumOf(const std::string& text)
{
    std::uint64_t sum = 14695981039346656037U;
    for (const char byte : text)
        sum = (sum ^ static_cast<unsigned char>(byte)) * 1099511628211U;
    const std::string digits = std::to_string(sum);
    return std::string(20 - digits.size(), '0') + digits;
}

/// The whole text of an archive.
inline std::string archiveText(const std::vector<ArchiveEntry>& entries)
{
    std::string body;
    for (const ArchiveEntry& entry : entries)
    {
        putField(body, entry.name);
        putField(body, entry.password);
        putField(body, entry.content);
        putField(body, std::to_string(entry.mode));
        putField(body, std::to_string(entry.modified));
        putField(body, entry.isDirectory ? "d" : "f");
    }
    return kArchiveTitle + checksumOf(body) + body;
}

/// What such a text holds; nothing for any other text.
inline std::optional<std::vector<ArchiveEntry>> entriesOf(const std::string& text)
{
    const std::string title = kArchiveTitle;
    const std::size_t begin = title.size() + checksumOf({}).size();
    if (text.size() < begin || text.substr(0, begin) != title + checksumOf(text.substr(begin)))
        return std::nullopt;
    std::vector<ArchiveEntry> entries;
    for (std::size_t at = begin; at < text.size();)
    {
        ArchiveEntry& entry = entries.emplace_back();
        entry.name = takeField(text, at);
        entry.password = takeField(text, at);
        entry.content = takeField(text, at);
        entry.mode = static_cast<unsigned int>(std::stoul(takeField(text, at)));
        entry.modified = std::stoll(takeField(text, at));
        entry.isDirectory = takeField(text, at) == "d";
    }
    return entries;
}

/// What an archive holds; nothing for what is none.
inline std::optional<std::vector<ArchiveEntry>> readArchive(const std::filesystem::path& path)
{
    const std::optional<std::string> text = readWhole(path);
    return text ? entriesOf(*text) : std::nullopt;
}

} // namespace TAV::test::detail
