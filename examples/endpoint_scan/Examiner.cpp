#include "endpoint_scan/Examiner.h"

#include <unistd.h>

#include <stdexcept>
#include <system_error>

#include "endpoint_scan/SafeFiles.h"

namespace endpointscan
{
namespace
{

constexpr int kAttempts = 3;

/// Reads one byte, since the checksums tell no read error from the end of the file.
void requireReadable(int fd)
{
    char byte = 0;
    if (::pread(fd, &byte, 1, 0) < 0)
        fail("cannot read");
}

bool isSameTime(const struct timespec& a, const struct timespec& b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool wasWrittenTo(const struct stat& before, const struct stat& after)
{
    return before.st_size != after.st_size || !isSameTime(before.st_mtim, after.st_mtim) ||
           !isSameTime(before.st_ctim, after.st_ctim);
}

} // namespace

Examiner::Examiner(int root, Verdicts& verdicts, std::size_t asker) : m_root(root), m_verdicts(verdicts), m_asker(asker)
{
    m_magic.magicOpen();
    try
    {
        m_magic.magicLoad(nullptr);
    }
    catch (...)
    {
        m_magic.magicClose();
        throw;
    }
}

Examiner::~Examiner()
{
    m_magic.magicClose();
}

void Examiner::examine(Finding& finding)
{
    try
    {
        int attempts = 0;
        while (!examineOnce(finding))
        {
            if (++attempts == kAttempts)
                throw std::runtime_error("keeps changing while it is read");
        }
        judge(finding);
    }
    catch (const std::exception& error)
    {
        finding.verdict = Verdict::Failed;
        finding.reason = error.what();
        finding.facts = {};
    }
}

void Examiner::judge(Finding& finding)
{
    Opinion opinion = m_verdicts.ask(finding.facts.sha256, m_asker);
    finding.verdict = opinion.verdict;
    finding.reason = std::move(opinion.reason);
    finding.source = m_verdicts.name();
    finding.times = opinion.times;
}

/// @return false if the file was written to meanwhile
bool Examiner::examineOnce(Finding& finding)
{
    const auto [parent, name] = splitPath(finding.path);
    const Fd file = openRegularFile(openBelow(m_root, parent).get(), name);
    const struct stat before = statusOf(file.get());
    requireReadable(file.get());

    FileFacts facts = factsOf(before);
    const char* type = m_magic.magicDescriptor(file.get());
    if (type == nullptr)
        throw std::runtime_error("its type cannot be told");
    facts.mimeType = type;
    // By the descriptor, so that it is the same file whatever happens to the name.
    if (!m_ssl.getChecksumValues(file.path(), TAV::INPUT_FILE_PATH, facts.md5, facts.sha1, facts.sha256))
        throw std::runtime_error("its checksums cannot be computed");
    finding.facts = std::move(facts);
    return !wasWrittenTo(before, statusOf(file.get()));
}

} // namespace endpointscan
