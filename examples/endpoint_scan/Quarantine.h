#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "endpoint_scan/Record.h"
#include "endpoint_scan/SafeFiles.h"
#include "tav/IQelArchiveUtils.h"

namespace endpointscan
{

class Staging;

/// What became of the files that were to be moved into the quarantine.
struct StoreResult
{
    std::string archive;               ///< path; empty if there is none
    std::string record;                ///< path of the plain copy of its record
    std::vector<std::string> problems; ///< one per file: why it is not in the archive, empty if it is
    std::set<std::size_t> setAside;    ///< which of them are not in their places either, but in the staging directory
};

/// What became of the files of an archive.
struct RestoreResult
{
    Record record;
    std::vector<std::string> problems; ///< one per file: why it was not restored, empty if it was
};

/// A directory of password-protected archives, each with its record; open to its owner only.
///
/// Every file is at all times in its place, in the staging directory with a record of its place, or in an archive that
/// was extracted again and compared. One process at a time works in a quarantine.
class Quarantine
{
public:
    /// Makes the directory, if it is missing.
    static void make(const std::string& directory);

    /// Opens the directory, locks it, and puts back what a crash left half moved.
    /// @throws std::runtime_error, std::system_error  if there is none, or if another process works in it
    Quarantine(const std::string& directory, TAV::IQelArchiveUtils& archives, std::string password);

    /// What a crash left and could not be put back, with what to do about it; empty if there is no such thing.
    const std::string& leftover() const { return m_leftover; }

    /// Moves files into a new archive. Files that cannot be moved stay in their place; if the archive fails, all are
    /// put back, as far as their places are free.
    /// @param root         the directory that the paths are below, absolute
    /// @param files        `storedAs` is filled in here
    /// @param isCancelled  asked between the steps; when it says so, all are put back
    StoreResult
    store(const std::string& root, std::vector<RecordEntry> files, const std::function<bool()>& isCancelled);

    /// The archives here, oldest first.
    std::vector<std::string> ids() const;

    /// The plain copy of an archive's record.
    Record record(const std::string& id) const;

    /// Puts the files of an archive into a directory, under their paths, with permissions and time. Nothing that exists
    /// is replaced; the archive stays.
    /// @throws std::runtime_error, std::system_error  if the archive cannot be extracted, or holds no record
    RestoreResult restore(const std::string& id, const std::string& target, const std::function<bool()>& isCancelled);

    Identity identity() const;
    std::string pathOf(const std::string& name) const { return m_path + "/" + name; }

private:
    void lock();
    void recover();
    void archive(Staging& staging, const Record& taken, const std::function<bool()>& isCancelled);
    void publish(const Staging& staging, const Record& taken);
    void discard(const std::string& id);

    std::string m_path;
    Fd m_directory;
    Fd m_lock;
    TAV::IQelArchiveUtils& m_archives;
    std::string m_password;
    std::string m_leftover;
};

} // namespace endpointscan
