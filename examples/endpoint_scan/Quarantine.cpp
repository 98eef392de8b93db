#include "endpoint_scan/Quarantine.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "common/Text.h"
#include "endpoint_scan/Staging.h"
#include "endpoint_scan/WholeFiles.h"

namespace endpointscan
{
namespace
{

constexpr mode_t kPrivateDirectory = 0700;
constexpr mode_t kPrivate = 0600;
constexpr mode_t kOthers = 0077;
constexpr const char* kLock = ".lock";
constexpr const char* kNewArchive = "new.7z";
constexpr const char* kExtracted = "files";
const std::string kRestorePrefix = ".restore-";
constexpr const char* kCancelled = "interrupted";

void requireNoWildcards(const std::string& path)
{
    if (path.find_first_of("*?") != std::string::npos)
        throw UsageError(programs::printable(path) + ": the archive tool would take * and ? as wildcards");
}

/// The directory as the archive tool gets it: absolute, and without what the tool takes for a wildcard.
std::string existingDirectory(const std::string& directory)
{
    std::error_code error;
    std::string path = std::filesystem::canonical(directory, error).string();
    if (error)
        throw std::runtime_error(programs::printable(directory) + ": no such quarantine: " + error.message());
    requireNoWildcards(path);
    return path;
}

void requirePrivate(int directory, const std::string& path)
{
    const struct stat status = statusOf(directory);
    if (status.st_uid != ::geteuid())
        throw std::runtime_error(path + ": belongs to somebody else");
    if ((status.st_mode & kOthers) != 0)
        throw std::runtime_error(path + ": others may enter it; a quarantine needs mode 0700");
}

std::string timeStamp()
{
    std::string text = timeText(std::time(nullptr));
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == '-' || c == ':'; }), text.end());
    return text;
}

std::string hostName()
{
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

/// A name of time and a number that is not used yet.
std::string freeId(int directory)
{
    const std::string stamp = timeStamp();
    for (unsigned int number = 1;; ++number)
    {
        std::string id = stamp + "-" + std::to_string(number);
        if (!existsAt(directory, archiveName(id)) && !existsAt(directory, recordName(id)))
            return id;
    }
}

std::string storedName(std::size_t index, const std::string& sha256)
{
    std::array<char, 32> number{};
    static_cast<void>(std::snprintf(number.data(), number.size(), "%04zu", index + 1));
    return number.data() + ("-" + sha256);
}

void stopIf(const std::function<bool()>& isCancelled)
{
    if (isCancelled())
        throw std::runtime_error(kCancelled);
}

/// Removes a working directory at the end, whatever happens.
class Workplace
{
public:
    Workplace(int parent, std::string name) : m_parent(parent), m_name(std::move(name))
    {
        if (::mkdirat(parent, m_name.c_str(), kPrivateDirectory) != 0)
            fail("cannot make directory " + m_name);
    }
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;
    ~Workplace()
    {
        try
        {
            removeTree(m_parent, m_name);
        }
        catch (const std::exception&)
        {
            m_name.clear(); // the next run removes it
        }
    }
    const std::string& name() const { return m_name; }

private:
    int m_parent;
    std::string m_name;
};

void putInPlace(int extracted, int target, const RecordEntry& entry)
{
    if (sha256At(extracted, entry.storedAs) != entry.facts.sha256)
        throw std::runtime_error("the archive gives other bytes than the record says");
    applyFacts(openRegularFile(extracted, entry.storedAs).get(), entry.facts);
    const auto [parentPath, name] = splitPath(entry.path);
    const Fd parent = makeBelow(target, parentPath);
    if (existsAt(parent.get(), name))
        throw std::runtime_error("a file of that name exists");
    moveFile(extracted, entry.storedAs, parent.get(), name);
    syncDirectory(parent.get());
}

/// Puts one extracted file into its place.
/// @return why not, or an empty text
std::string restoreOne(int extracted, int target, const RecordEntry& entry, const std::function<bool()>& isCancelled)
{
    try
    {
        stopIf(isCancelled);
        putInPlace(extracted, target, entry);
        return {};
    }
    catch (const std::exception& error)
    {
        return error.what();
    }
}

/// Moves the files into the staging directory.
/// @return the record of those that are there
Record takeAll(Staging& staging,
               const Record& planned,
               std::vector<std::string>& problems,
               const std::function<bool()>& isCancelled)
{
    Record taken = planned;
    taken.files.clear();
    for (std::size_t i = 0; i < planned.files.size(); ++i)
    {
        try
        {
            stopIf(isCancelled);
            staging.take(planned.files[i]);
            taken.files.push_back(planned.files[i]);
        }
        catch (const std::exception& error)
        {
            problems[i] = error.what();
        }
    }
    return taken;
}

/// Tells for each file why it is not in the archive: the reason that holds for all, and what kept it from its old
/// place.
void addProblems(const Record& planned, const std::string& reason, const Staging::Problems& kept, StoreResult& result)
{
    for (std::size_t i = 0; i < planned.files.size(); ++i)
    {
        std::string& problem = result.problems[i];
        if (problem.empty())
            problem = reason;
        const auto found = kept.find(planned.files[i].storedAs);
        if (found == kept.end())
            continue;
        problem += (problem.empty() ? "" : "; ") + found->second;
        result.setAside.insert(i);
    }
}

} // namespace

void Quarantine::make(const std::string& directory)
{
    requireNoWildcards(directory);
    if (::mkdir(directory.c_str(), kPrivateDirectory) != 0 && errno != EEXIST)
        fail("cannot make " + directory);
}

Quarantine::Quarantine(const std::string& directory, TAV::IQelArchiveUtils& archives, std::string password)
    : m_path(existingDirectory(directory)), m_directory(openDirectory(m_path)), m_archives(archives),
      m_password(std::move(password))
{
    requirePrivate(m_directory.get(), m_path);
    lock();
    recover();
}

void Quarantine::lock()
{
    m_lock = Fd(::openat(m_directory.get(), kLock, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kPrivate));
    if (m_lock.get() < 0)
        fail("cannot open " + pathOf(kLock));
    if (::flock(m_lock.get(), LOCK_EX | LOCK_NB) == 0)
        return;
    if (errno == EWOULDBLOCK)
        throw std::runtime_error(m_path + ": another process works in this quarantine");
    fail("cannot lock " + pathOf(kLock));
}

void Quarantine::recover()
{
    std::string problems;
    for (const std::string& name : namesIn(m_directory.get()))
    {
        try
        {
            if (name.rfind(kRestorePrefix, 0) == 0)
                removeTree(m_directory.get(), name);
            if (!Staging::isName(name))
                continue;
            for (const auto& problem : Staging::recover(m_directory.get(), name))
                problems += "\n" + problem.second;
        }
        catch (const std::exception& error)
        {
            problems += std::string("\n") + error.what();
        }
    }
    if (!problems.empty())
        m_leftover = m_path + ": an earlier run was broken off, and not all could be put right:" + problems +
                     "\nFree the place and run again; or move the file out of its staging directory, and remove that.";
}

Identity Quarantine::identity() const
{
    return factsOf(statusOf(m_directory.get())).identity;
}

void Quarantine::archive(Staging& staging, const Record& taken, const std::function<bool()>& isCancelled)
{
    const std::string work = pathOf(staging.name()) + "/";
    stopIf(isCancelled);
    staging.makePayload(taken);
    // One directory stands for all of its files: the command line stays short, however many they are.
    if (!m_archives.createArchive(work + kNewArchive, TAV::ArchiveType::SevenZip, {work + kPayload}, {}, m_password))
        throw std::runtime_error("the archive tool failed");
    stopIf(isCancelled);
    if (!m_archives.extractArchive(work + kNewArchive, work + kCheck, m_password))
        throw std::runtime_error("the archive tool could not read the archive that it had made");
    staging.compareCheck(taken);
    stopIf(isCancelled);
}

void Quarantine::publish(const Staging& staging, const Record& taken)
{
    const Fd work = openBelow(m_directory.get(), staging.name());
    const Fd file = openRegularFile(work.get(), kNewArchive);
    if (::fchmod(file.get(), kPrivate) != 0 || ::fsync(file.get()) != 0)
        fail("cannot sync the archive");
    writeAtomically(m_directory.get(), recordName(taken.id), toText(taken));
    // From this rename on the files live in the archive; before it, in the staging directory.
    moveFile(work.get(), kNewArchive, m_directory.get(), archiveName(taken.id));
    syncDirectory(m_directory.get());
}

void Quarantine::discard(const std::string& id)
{
    ::unlinkat(m_directory.get(), archiveName(id).c_str(), 0);
    ::unlinkat(m_directory.get(), recordName(id).c_str(), 0);
}

StoreResult
Quarantine::store(const std::string& root, std::vector<RecordEntry> files, const std::function<bool()>& isCancelled)
{
    for (std::size_t i = 0; i < files.size(); ++i)
        files[i].storedAs = storedName(i, files[i].facts.sha256);
    const Record planned{freeId(m_directory.get()), timeText(std::time(nullptr)), hostName(), root, files};
    StoreResult result;
    result.problems.resize(files.size());

    Staging staging(m_directory.get(), planned);
    const Record taken = takeAll(staging, planned, result.problems, isCancelled);
    std::string reason;
    try
    {
        if (!taken.files.empty())
        {
            archive(staging, taken, isCancelled);
            publish(staging, taken);
            result.archive = pathOf(archiveName(taken.id));
            result.record = pathOf(recordName(taken.id));
        }
    }
    catch (const std::exception& error)
    {
        reason = error.what();
        discard(taken.id);
    }
    addProblems(planned, reason, reason.empty() ? staging.commit(taken) : staging.putBack(), result);
    return result;
}

std::vector<std::string> Quarantine::ids() const
{
    const std::string extension = archiveName("");
    std::vector<std::string> ids;
    for (const std::string& name : namesIn(m_directory.get()))
    {
        if (name.front() != '.' && name.size() > extension.size() &&
            name.compare(name.size() - extension.size(), extension.size(), extension) == 0)
            ids.push_back(name.substr(0, name.size() - extension.size()));
    }
    return ids;
}

Record Quarantine::record(const std::string& id) const
{
    return recordFromText(readAt(m_directory.get(), recordName(id)));
}

RestoreResult
Quarantine::restore(const std::string& id, const std::string& target, const std::function<bool()>& isCancelled)
{
    const std::vector<std::string> known = ids();
    if (std::find(known.begin(), known.end(), id) == known.end())
        throw std::runtime_error("no such archive in " + m_path);
    const Workplace work(m_directory.get(), kRestorePrefix + id);
    const std::string extractedPath = work.name() + "/" + kExtracted;
    if (!m_archives.extractArchive(pathOf(archiveName(id)), pathOf(extractedPath), m_password))
        throw std::runtime_error("the archive tool failed: wrong password, damaged archive, or no room");

    const Fd extracted = openBelow(m_directory.get(), extractedPath);
    RestoreResult result{recordFromText(readAt(extracted.get(), kRecordInArchive)), {}};
    if (::mkdir(target.c_str(), kPrivateDirectory) != 0 && errno != EEXIST)
        fail("cannot make " + target);
    const Fd directory = openDirectory(target);
    for (const RecordEntry& entry : result.record.files)
        result.problems.push_back(restoreOne(extracted.get(), directory.get(), entry, isCancelled));
    return result;
}

} // namespace endpointscan
