#include "endpoint_scan/Walker.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <system_error>

#include "endpoint_scan/SafeFiles.h"

namespace endpointscan
{
namespace
{

constexpr const char* kExcluded = "the quarantine itself";
constexpr const char* kKernelFiles = "file system of the kernel";

const char* kindOf(mode_t mode)
{
    switch (mode & S_IFMT)
    {
    case S_IFLNK:
        return "symbolic link";
    case S_IFIFO:
        return "named pipe";
    case S_IFSOCK:
        return "socket";
    case S_IFBLK:
        return "block device";
    case S_IFCHR:
        return "character device";
    default:
        return "unknown kind of file";
    }
}

std::string joined(const std::string& directory, const std::string& name)
{
    return directory.empty() ? name : directory + "/" + name;
}

/// Files there are made up while they are read, and some make the reader wait.
bool isKernelFileSystem(int directory)
{
    constexpr std::array<long, 7> kTypes{PROC_SUPER_MAGIC,
                                         SYSFS_MAGIC,
                                         DEBUGFS_MAGIC,
                                         TRACEFS_MAGIC,
                                         SECURITYFS_MAGIC,
                                         CGROUP_SUPER_MAGIC,
                                         CGROUP2_SUPER_MAGIC};
    struct statfs status = {};
    return ::fstatfs(directory, &status) == 0 &&
           std::find(kTypes.begin(), kTypes.end(), static_cast<long>(status.f_type)) != kTypes.end();
}

class Walk
{
public:
    Walk(int root, const std::vector<Identity>& excluded) : m_root(root), m_excluded(excluded)
    {
        m_pending.emplace_back();
    }

    bool isDone() const { return m_pending.empty(); }

    /// Lists one directory; those in it become pending.
    void step()
    {
        const std::string path = std::move(m_pending.back());
        m_pending.pop_back();
        try
        {
            listDirectory(path);
        }
        catch (const std::system_error& error)
        {
            if (path.empty())
                throw;
            add(path, Verdict::Failed, error.what());
        }
    }

    std::vector<Finding> findings()
    {
        std::sort(
            m_findings.begin(), m_findings.end(), [](const Finding& a, const Finding& b) { return a.path < b.path; });
        return std::move(m_findings);
    }

private:
    void listDirectory(const std::string& path)
    {
        const Fd directory = openBelow(m_root, path);
        const Identity identity = factsOf(statusOf(directory.get())).identity;
        if (std::find(m_excluded.begin(), m_excluded.end(), identity) != m_excluded.end())
            return add(path.empty() ? "." : path, Verdict::Skipped, kExcluded);
        if (isKernelFileSystem(directory.get()))
            return add(path.empty() ? "." : path, Verdict::Skipped, kKernelFiles);
        for (const std::string& name : namesIn(directory.get()))
            addEntry(directory.get(), name, joined(path, name));
    }

    void addEntry(int directory, const std::string& name, const std::string& path)
    {
        try
        {
            const mode_t mode = statusAt(directory, name).st_mode;
            if (S_ISDIR(mode))
                m_pending.push_back(path);
            else if (S_ISREG(mode))
                add(path, Verdict::Failed, "");
            else
                add(path, Verdict::Skipped, kindOf(mode));
        }
        catch (const std::system_error& error)
        {
            add(path, Verdict::Failed, error.what());
        }
    }

    void add(const std::string& path, Verdict verdict, const std::string& reason)
    {
        m_findings.push_back({path, verdict, reason, {}, "", std::nullopt});
    }

    int m_root;
    const std::vector<Identity>& m_excluded;
    std::vector<std::string> m_pending;
    std::vector<Finding> m_findings;
};

} // namespace

std::vector<Finding> walk(int root, const std::vector<Identity>& excluded, const std::function<bool()>& isCancelled)
{
    Walk walk(root, excluded);
    while (!walk.isDone() && !isCancelled())
        walk.step();
    return walk.findings();
}

bool isToBeExamined(const Finding& finding)
{
    return finding.verdict == Verdict::Failed && finding.reason.empty();
}

} // namespace endpointscan
