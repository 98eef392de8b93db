#pragma once

#include <algorithm>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tav/IQelArchiveUtils.h"
#include "tav/testing/Fake.h"
#include "tav/testing/FakeArchiveFile.h"

namespace TAV::test
{

/// Archives without 7-Zip: files move into one file in a simple format of its own, and come back out of it. No process
/// is made.
///
///     FakeQelArchiveUtils archives;
///     archives.failCall("createArchive", 2);                     // the second one is false, and nothing was done
///     archives.failure = FakeQelArchiveUtils::Failure::HalfDone; // or: its first file was stored and deleted
///     ...
///     EXPECT_THAT(FakeQelArchiveUtils::contentOf("/var/q/1.7z"), ElementsAre(Pair("bad", "its content")));
///     EXPECT_THAT(archives.problems(), IsEmpty()); // no name that 7-Zip would take for something else
///
/// **As the real one** it adds to an archive that exists, gives ".7z" to a name without extension, makes missing
/// directories, deletes what it stored, and stores directories with all that is in them. With an input missing it gives
/// false, yet the others are stored and deleted. Two inputs of one name, and an archive that cannot be read or written,
/// give false and leave the inputs. Extraction is flat and overwrites; it brings back permissions and times. Each file
/// has the password that it was stored with; with a wrong one the others come out, the result is false, and of the
/// protected file an archive *.zip leaves an empty one, any other none. A changed, cut or foreign archive gives false.
/// The library's own tests hold it against 7-Zip.
///
/// **Unlike the real one**
///
/// - 7-Zip cannot read these archives, nor can this class read those of 7-Zip. The format does not depend on the name,
///   and nothing in it is encrypted: the password stands in it.
/// - Of a damaged archive nothing is extracted; 7-Zip extracts what comes before the damage.
/// - Names mean just themselves. Those that 7-Zip takes for a list of files ("@x"), a switch ("-x") or a pattern ("*",
///   "?") are noted in `problems`.
/// - A file is replaced in an archive whatever the passwords; 7-Zip refuses when others were stored together with it
///   under another password.
/// - A link is followed, and its content stored; 7-Zip stores the link.
/// - Nothing is logged, neither command line nor password. The password does not stand in `calls` either, but
///   whether there was one.
///
/// **A planned failure** gives false with nothing done, or half done: see `failure`. The error of the plan says nothing
/// here.
class FakeQelArchiveUtils : public IQelArchiveUtils, public Fake
{
public:
    using Fake::Fake;

    /// What a planned failure leaves.
    enum class Failure
    {
        NothingDone, ///< as if the tool could not be started
        HalfDone,    ///< the first file is stored and deleted, or extracted; the rest is as it was
    };
    Failure failure = Failure::NothingDone; ///< what the next ones leave

    /// Whether inputs can be deleted. On a read-only file system they cannot: they are stored, stay, and the result is
    /// true.
    bool deletesInputs = true;

    /// The files of an archive, name in the archive to content, protected ones too; empty for what is no archive of
    /// this class.
    static std::map<std::string, std::string> contentOf(const std::string& archivePath);

    /// The names so far that 7-Zip would not have taken as they are: "@x is a list of files to 7-Zip".
    std::vector<std::string> problems() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_problems;
    }

    bool createArchive(const std::string& archivePath,
                       ArchiveType type,
                       const std::vector<std::string>& files,
                       const std::vector<ArchiveInputFileInfo>& fileInfos,
                       const std::string& password) override;
    bool extractArchive(const std::string& archivePath,
                        const std::string& outputDirectory,
                        const std::string& password) override;

private:
    using Entry = detail::ArchiveEntry;
    using Entries = std::vector<Entry>;
    using Path = std::filesystem::path;

    void lookAt(const std::string& name);

    static Path withExtension(const Path& archive);
    static std::string nameOf(const Path& input);
    static bool collect(const std::string& input, const std::string& password, Entries& entries);
    static std::optional<Entry> entryOf(const Path& source, std::string name);
    static bool hasNoNameTwice(const Entries& entries);
    static void keepFirstFile(Entries& entries);
    static bool store(const Path& archive, const Entries& entries);
    static void removeSources(const Entries& entries);
    static bool bringOut(Entry entry, const Path& directory, const std::string& password, bool isZip);
    static bool write(const Entry& entry, const Path& target);

    mutable std::mutex m_mutex;
    std::vector<std::string> m_problems;
};

inline std::map<std::string, std::string> FakeQelArchiveUtils::contentOf(const std::string& archivePath)
{
    std::map<std::string, std::string> content;
    for (const Entry& entry : detail::readArchive(archivePath).value_or(Entries{}))
    {
        if (!entry.isDirectory)
            content[entry.name] = entry.content;
    }
    return content;
}

inline bool FakeQelArchiveUtils::createArchive(const std::string& archivePath,
                                               ArchiveType,
                                               const std::vector<std::string>& files,
                                               const std::vector<ArchiveInputFileInfo>&,
                                               const std::string& password)
{
    std::string text = archivePath;
    for (const std::string& file : files)
        text += ", " + file;
    const auto fault = enter("createArchive", text + (password.empty() ? "" : ", with a password"));
    if (archivePath.empty() || files.empty() || (fault && failure == Failure::NothingDone))
        return false;
    lookAt(archivePath);
    Entries entries;
    bool isComplete = true;
    for (const std::string& file : files)
    {
        lookAt(file);
        isComplete = collect(file, password, entries) && isComplete;
    }
    if (fault)
        keepFirstFile(entries);
    if (!hasNoNameTwice(entries) || !store(withExtension(archivePath), entries))
        return false;
    if (deletesInputs)
        removeSources(entries);
    return isComplete && !fault;
}

inline bool FakeQelArchiveUtils::extractArchive(const std::string& archivePath,
                                                const std::string& outputDirectory,
                                                const std::string& password)
{
    const std::string text = joined({archivePath, outputDirectory});
    const auto fault = enter("extractArchive", text + (password.empty() ? "" : ", with a password"));
    if (archivePath.empty() || outputDirectory.empty() || (fault && failure == Failure::NothingDone))
        return false;
    lookAt(archivePath);
    std::optional<Entries> entries = detail::readArchive(archivePath);
    if (!entries)
        return false;
    if (fault)
        keepFirstFile(*entries);
    std::error_code ignored;
    if (!entries->empty())
        std::filesystem::create_directories(outputDirectory, ignored);
    const bool isZip = Path(archivePath).extension() == ".zip";
    bool isComplete = !fault;
    for (const Entry& entry : *entries)
        isComplete = bringOut(entry, outputDirectory, password, isZip) && isComplete;
    return isComplete;
}

/// Notes a name that the tool's command line gives another meaning.
inline void FakeQelArchiveUtils::lookAt(const std::string& name)
{
    const char* meaning = nullptr;
    if (name.find_first_of("*?") != std::string::npos)
        meaning = " is a pattern to 7-Zip";
    else if (name[0] == '@' || name[0] == '-')
        meaning = name[0] == '@' ? " is a list of files to 7-Zip" : " is a switch to 7-Zip";
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (meaning != nullptr)
        m_problems.push_back(name + meaning);
}

inline std::filesystem::path FakeQelArchiveUtils::withExtension(const Path& archive)
{
    const bool hasOne = archive.filename().string().find('.') != std::string::npos;
    return hasOne ? archive : Path(archive.string() + ".7z");
}

/// An input's name in the archive: plain relative paths are kept, of all others the last part.
inline std::string FakeQelArchiveUtils::nameOf(const Path& input)
{
    const Path path = input.has_filename() ? input : input.parent_path();
    const bool isPlain = !path.empty() && path.is_relative() && *path.begin() != "." && *path.begin() != "..";
    return isPlain ? path.string() : path.filename().string();
}

/// Adds an input, and all that is in it.
/// @return false if any of it is missing or cannot be read
inline bool FakeQelArchiveUtils::collect(const std::string& input, const std::string& password, Entries& entries)
{
    std::vector<std::pair<Path, std::string>> found{{input, nameOf(input)}};
    std::error_code error;
    if (std::filesystem::is_directory(input, error))
    {
        for (std::filesystem::recursive_directory_iterator it(input, error), end; !error && it != end;
             it.increment(error))
            found.emplace_back(it->path(), found[0].second / it->path().lexically_relative(input));
    }
    std::sort(found.begin(), found.end());
    bool isComplete = !error;
    for (const auto& [source, name] : found)
    {
        std::optional<Entry> entry = entryOf(source, name);
        isComplete = isComplete && entry;
        if (!entry)
            continue;
        if (!entry->isDirectory)
            entry->password = password;
        entries.push_back(std::move(*entry));
    }
    return isComplete;
}

inline std::optional<detail::ArchiveEntry> FakeQelArchiveUtils::entryOf(const Path& source, std::string name)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(source, error);
    Entry entry;
    entry.name = std::move(name);
    entry.source = source;
    entry.mode = static_cast<unsigned int>(status.permissions());
    entry.modified = std::filesystem::last_write_time(source, error).time_since_epoch().count();
    entry.isDirectory = std::filesystem::is_directory(status);
    if (entry.isDirectory)
        return entry;
    std::optional<std::string> content = detail::readWhole(source);
    if (!content)
        return std::nullopt;
    entry.content = std::move(*content);
    return entry;
}

inline bool FakeQelArchiveUtils::hasNoNameTwice(const Entries& entries)
{
    std::set<std::string> names;
    return std::all_of(entries.begin(), entries.end(), [&](const Entry& it) { return names.insert(it.name).second; });
}

inline void FakeQelArchiveUtils::keepFirstFile(Entries& entries)
{
    const auto isFile = [](const Entry& entry) { return !entry.isDirectory; };
    const auto first = std::find_if(entries.begin(), entries.end(), isFile);
    entries = first == entries.end() ? Entries{} : Entries{*first};
}

/// Makes the archive, or adds to it: an entry takes the place of one of its name.
inline bool FakeQelArchiveUtils::store(const Path& archive, const Entries& entries)
{
    std::error_code error;
    Entries all;
    if (std::filesystem::exists(archive, error))
    {
        std::optional<Entries> former = detail::readArchive(archive);
        if (!former)
            return false;
        all = std::move(*former);
    }
    for (const Entry& entry : entries)
    {
        const auto isOfThatName = [&entry](const Entry& it) { return it.name == entry.name; };
        all.erase(std::remove_if(all.begin(), all.end(), isOfThatName), all.end());
    }
    all.insert(all.end(), entries.begin(), entries.end());
    if (archive.has_parent_path())
        std::filesystem::create_directories(archive.parent_path(), error);
    return detail::writeWhole(archive, detail::archiveText(all));
}

/// Deletes what is stored: what is in a directory before the directory, and that only if nothing is left in it.
inline void FakeQelArchiveUtils::removeSources(const Entries& entries)
{
    std::error_code staysThere;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
        std::filesystem::remove(entry->source, staysThere);
}

/// Extracts a file or a directory. Of a file that is locked, only a zip archive leaves something: an empty file.
inline bool FakeQelArchiveUtils::bringOut(Entry entry, const Path& directory, const std::string& password, bool isZip)
{
    const bool needsPassword = !entry.password.empty() && (isZip || !entry.content.empty());
    const bool isLocked = needsPassword && entry.password != password;
    if (isLocked)
        entry.content.clear();
    const bool isWritten = (isLocked && !isZip) || write(entry, directory / Path(entry.name).filename());
    return isWritten && !isLocked;
}

inline bool FakeQelArchiveUtils::write(const Entry& entry, const Path& target)
{
    std::error_code error;
    if (entry.isDirectory)
    {
        std::filesystem::create_directories(target, error);
        return !error;
    }
    std::filesystem::remove(target, error); // an empty directory, too, and a link instead of what it leads to
    if (!detail::writeWhole(target, entry.content))
        return false;
    using Clock = std::filesystem::file_time_type::clock;
    const std::filesystem::file_time_type modified{Clock::duration(entry.modified)};
    std::filesystem::permissions(target, static_cast<std::filesystem::perms>(entry.mode), error);
    std::filesystem::last_write_time(target, modified, error);
    return true;
}

} // namespace TAV::test
