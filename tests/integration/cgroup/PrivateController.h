#pragma once

#include <set>
#include <string>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{

enum class Place
{
    First,  ///< /sys/fs/cgroup/cpu,cpuacct
    Second, ///< /cgroup/cpu
    Both,   ///< one group, at both
    None,   ///< neither place exists
};

std::string mountPointOf(Place place);

/// The kernel's cgroup v1 `cpu` controller at a place where the library looks, for this process and its later children
/// only: a mount namespace of its own, in which a new cgroup stands for the root of the controller.
///
/// A run that is killed leaves an empty cgroup and a directory behind; the next one removes them.
///
/// At the end the process is back in its namespace, and what was made is gone. Processes that are still in the groups
/// must have been ended by then, but for the test's own.
class PrivateController
{
public:
    /// Why there cannot be one on this machine; empty if there can.
    static std::string whyUnavailable();

    explicit PrivateController(Place place);
    PrivateController(const PrivateController&) = delete;
    PrivateController& operator=(const PrivateController&) = delete;
    /// Reports a test failure if a trace remains.
    ~PrivateController();

    /// Name of the cgroup that stands for the root, and whether there is one of such a name.
    const std::string& name() const { return m_name; }
    bool exists(const std::string& name) const;

    const std::string& mount() const { return m_mount; }
    std::string group() const { return m_mount + "/zell_tp_ods"; }

    /// Content of a control file of the library's group, without the newline at its end.
    std::string groupFile(const std::string& name) const;
    std::set<int> members() const;
    /// A value of "cpu.stat", such as "nr_throttled".
    unsigned long long statistic(const std::string& name) const;

    /// What /proc says of the group of a process, below the one that stands for the root: "/zell_tp_ods", "/".
    std::string groupOf(int pid) const;

    /// Writes a control file below the mount point; throws if the kernel refuses.
    void write(const std::string& name, const std::string& value) const;
    void makeReadOnly() const;
    void unmount() const;

private:
    void mountController();
    void mountSecondRoot();
    void mountFirst() const;
    void leave();
    void removeGroups() const;
    void removeLeftovers() const;

    TemporaryDirectory m_scratch;
    Place m_place;
    std::string m_mount;
    std::string m_name;
    std::string m_cgroup;
    std::string m_cgroupInHierarchy;
    std::string m_mountsBefore;
    int m_lockFd = -1; ///< tells other runs that this one is alive
    int m_homeFd = -1;
    int m_rootFd = -1;
    int m_directoryFd = -1;
    int m_parentFd = -1;
};

} // namespace TAV::test
