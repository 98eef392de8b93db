#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/TemporaryDirectory.h"
#include "tav/TAVUtils.h"
#include "tav/testing/FakeTAVSystemUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{

constexpr const char* kFirstMount = "/sys/fs/cgroup/cpu,cpuacct";
constexpr const char* kSecondMount = "/cgroup/cpu";
constexpr const char* kPeriod = "cpu.cfs_period_us";
constexpr const char* kQuota = "cpu.cfs_quota_us";
constexpr const char* kProcs = "cgroup.procs";

/// The library's group under a mount point, or a file in it.
std::string groupUnder(const std::string& mount);
std::string groupFile(const std::string& mount, const std::string& name);

/// The text of a /proc/cpuinfo that lists so many processors.
std::string cpuInfoOf(unsigned int processors);

/// A file system of the test's own, in which `mkdir` under a controller makes the control files, as the kernel does.
/// Nothing is there at first. What is written is kept per opening of a file, because each opening of "cgroup.procs"
/// is one process moved.
class FakeCgroups : public FakeTAVSystemUtils
{
public:
    FakeCgroups();

    void addController(const std::string& mount);
    void addGroup(const std::string& path);
    void addFile(const std::string& path, std::string_view content);
    void remove(const std::string& path);
    bool has(const std::string& path) const;

    /// Where a path of the fake stands in reality.
    std::string real(const std::string& path) const;

    /// Path and content of every output file, in the order in which they were opened.
    std::vector<std::pair<std::string, std::string>> writes() const;

    /// How many descriptors of this process are open on files of the fake.
    unsigned int openFiles() const;

private:
    TemporaryDirectory m_root;
    std::vector<std::string> m_outputs;
};

/// A utility object on a kernel with cgroups, over a file system with a controller at one mount point.
struct CgroupSetUp
{
    explicit CgroupSetUp(const std::string& mount = kFirstMount, unsigned int processors = 2);

    /// The lines that the object logged at level 6 under its own name; any other line fails the test.
    std::vector<std::string> messages() const;

    std::shared_ptr<FakeCgroups> cgroups = std::make_shared<FakeCgroups>();
    RecordingLogger logger;
    TAVUtils utils;
};

} // namespace TAV::test
