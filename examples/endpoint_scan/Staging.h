#pragma once

#include <map>
#include <string>

#include "endpoint_scan/Record.h"
#include "endpoint_scan/SafeFiles.h"

namespace endpointscan
{

/// A private directory in the quarantine where denied files lie between their place and the archive.
///
///     .staging-ID/record.json   written before the first file is moved: enough to put everything back
///     .staging-ID/originals/    the files themselves, as "0001-SHA256"
///     .staging-ID/payload/      second names of them, which the archive tool stores and deletes
///     .staging-ID/check/        what the finished archive gives back
///
/// Unless it is told that the archive is safe, it puts every file back at the end of its life. After a crash, `recover`
/// does that.
class Staging
{
public:
    /// By the stored name of the file.
    using Problems = std::map<std::string, std::string>;

    /// Makes the directory and writes the record.
    Staging(int quarantine, const Record& record);
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;
    ~Staging();

    /// Moves a file here, if it still is the one that was examined.
    /// @throws std::system_error, std::runtime_error  with the file where it was
    void take(const RecordEntry& entry);

    /// Makes what the archive tool is to store: the files that were taken, and a record of them.
    void makePayload(const Record& taken);

    /// Compares what the archive gives back with what was taken.
    /// @throws std::runtime_error  at the first difference
    void compareCheck(const Record& taken) const;

    /// From now on the files of `taken` live in the archive: removes them here, and puts back whatever else there is.
    /// @return as `putBack`
    Problems commit(const Record& taken);

    /// Puts every file that is here back, and removes all else: what goes back may need the room of the archive and of
    /// the copies, and what cannot is no reason to keep them.
    /// @return what could not be put back, which stays here, and why
    Problems putBack();

    /// Finishes what a crash left in the directory `name`: its files go if their archive is safe, and back otherwise.
    /// @return as `putBack`
    static Problems recover(int quarantine, const std::string& name);

    const std::string& name() const { return m_name; }

    static bool isName(const std::string& name);

private:
    struct Leftover
    {
    };
    Staging(int quarantine, std::string name, Leftover);

    void removeCopies();
    void putBackOne(int root, const RecordEntry& entry);

    int m_quarantine;
    std::string m_name;
    Record m_record;
    Fd m_directory;
    Fd m_originals;
    bool m_isFinished = false;
};

/// The files of an archive and of a record in the quarantine.
std::string archiveName(const std::string& id);
std::string recordName(const std::string& id);
constexpr const char* kRecordInArchive = "record.json";
constexpr const char* kPayload = "payload";
constexpr const char* kCheck = "check";

} // namespace endpointscan
