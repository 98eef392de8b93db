#include "endpoint_scan/Staging.h"

#include <unistd.h>

#include <stdexcept>
#include <system_error>

#include "common/Text.h"
#include "endpoint_scan/WholeFiles.h"

namespace endpointscan
{
namespace
{

constexpr mode_t kPrivateDirectory = 0700;
const std::string kPrefix = ".staging-";
constexpr const char* kOriginals = "originals";

void makeDirectory(int parent, const std::string& name)
{
    if (::mkdirat(parent, name.c_str(), kPrivateDirectory) != 0)
        fail("cannot make directory " + name);
}

/// A file that is there already and holds the same is ours: a crash came between copying it and removing one of the
/// two.
bool isSameFile(int directory, const std::string& name, const RecordEntry& entry)
{
    try
    {
        return sha256At(directory, name) == entry.facts.sha256;
    }
    catch (const std::system_error&)
    {
        return false;
    }
}

} // namespace

std::string archiveName(const std::string& id)
{
    return id + ".7z";
}

std::string recordName(const std::string& id)
{
    return id + ".json";
}

bool Staging::isName(const std::string& name)
{
    return name.rfind(kPrefix, 0) == 0;
}

Staging::Staging(int quarantine, const Record& record)
    : m_quarantine(quarantine), m_name(kPrefix + record.id), m_record(record)
{
    makeDirectory(quarantine, m_name);
    m_directory = openBelow(quarantine, m_name);
    makeDirectory(m_directory.get(), kOriginals);
    m_originals = openBelow(m_directory.get(), kOriginals);
    writeAtomically(m_directory.get(), kRecordInArchive, toText(record));
    syncDirectory(quarantine);
}

Staging::Staging(int quarantine, std::string name, Leftover)
    : m_quarantine(quarantine), m_name(std::move(name)), m_directory(openBelow(quarantine, m_name)), m_isFinished(true)
{
    if (existsAt(m_directory.get(), kOriginals))
        m_originals = openBelow(m_directory.get(), kOriginals);
    if (existsAt(m_directory.get(), kRecordInArchive))
        m_record = recordFromText(readAt(m_directory.get(), kRecordInArchive));
    else if (m_originals.get() >= 0 && !namesIn(m_originals.get()).empty())
        throw std::runtime_error(m_name + " holds files but no record of where they came from");
}

Staging::~Staging()
{
    try
    {
        if (!m_isFinished)
            putBack();
    }
    catch (const std::exception&)
    {
        // What could not be put back is still here, with its record; the next run tries again and tells.
        m_isFinished = true;
    }
}

void Staging::take(const RecordEntry& entry)
{
    const auto [parentPath, name] = splitPath(entry.path);
    const Fd parent = openBelow(openDirectory(m_record.root).get(), parentPath);
    if (!(factsOf(statusAt(parent.get(), name)).identity == entry.facts.identity))
        throw std::runtime_error("it was replaced after it was examined");
    moveFile(parent.get(), name, m_originals.get(), entry.storedAs);
    syncDirectory(m_originals.get());
    syncDirectory(parent.get());
    if (isSameFile(m_originals.get(), entry.storedAs, entry))
        return;
    moveFile(m_originals.get(), entry.storedAs, parent.get(), name);
    throw std::runtime_error("it was changed after it was examined");
}

void Staging::makePayload(const Record& taken)
{
    makeDirectory(m_directory.get(), kPayload);
    const Fd payload = openBelow(m_directory.get(), kPayload);
    for (const RecordEntry& entry : taken.files)
        linkOrCopy(m_originals.get(), entry.storedAs, payload.get(), entry.storedAs);
    writeAtomically(payload.get(), kRecordInArchive, toText(taken));
}

void Staging::compareCheck(const Record& taken) const
{
    const Fd check = openBelow(m_directory.get(), kCheck);
    if (readAt(check.get(), kRecordInArchive) != toText(taken))
        throw std::runtime_error("the archive does not hold its record");
    for (const RecordEntry& entry : taken.files)
    {
        if (sha256At(check.get(), entry.storedAs) != entry.facts.sha256)
            throw std::runtime_error("the archive does not give back " + programs::printable(entry.path));
    }
}

Staging::Problems Staging::commit(const Record& taken)
{
    for (const RecordEntry& entry : taken.files)
        ::unlinkat(m_originals.get(), entry.storedAs.c_str(), 0);
    return putBack();
}

void Staging::putBackOne(int root, const RecordEntry& entry)
{
    const auto [parentPath, name] = splitPath(entry.path);
    const Fd parent = openBelow(root, parentPath);
    if (isSameFile(parent.get(), name, entry))
        return;
    moveFile(m_originals.get(), entry.storedAs, parent.get(), name);
    syncDirectory(parent.get());
}

void Staging::removeCopies()
{
    try
    {
        for (const std::string& name : namesIn(m_directory.get()))
        {
            if (name != kOriginals && name != kRecordInArchive)
                removeEntry(m_directory.get(), name);
        }
    }
    catch (const std::system_error&)
    {
        // It was to make room only: the files go back all the same.
    }
}

Staging::Problems Staging::putBack()
{
    m_isFinished = true;
    removeCopies();
    Problems problems;
    for (const RecordEntry& entry : m_record.files)
    {
        if (m_originals.get() < 0 || !existsAt(m_originals.get(), entry.storedAs))
            continue;
        try
        {
            putBackOne(openDirectory(m_record.root).get(), entry);
        }
        catch (const std::exception& error)
        {
            problems[entry.storedAs] = programs::printable(placeOf(m_record, entry)) + " could not be put back (" +
                                       error.what() + ") and is kept as " + m_name + "/" + kOriginals + "/" +
                                       entry.storedAs;
        }
    }
    if (problems.empty())
        removeTree(m_quarantine, m_name);
    return problems;
}

Staging::Problems Staging::recover(int quarantine, const std::string& name)
{
    const std::string id = name.substr(kPrefix.size());
    Staging leftover(quarantine, name, Leftover{});
    if (existsAt(quarantine, archiveName(id)))
        return leftover.commit(recordFromText(readAt(quarantine, recordName(id))));
    ::unlinkat(quarantine, recordName(id).c_str(), 0);
    return leftover.putBack();
}

} // namespace endpointscan
