#include "PrivateController.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace TAV::test
{
namespace
{

constexpr const char* kFirst = "/sys/fs/cgroup/cpu,cpuacct";
constexpr const char* kSecond = "/cgroup/cpu";

void check(int result, const std::string& what)
{
    if (result < 0)
        throw std::runtime_error(what + ": " + std::strerror(errno));
}

void mountOn(const std::string& path, const char* source, const char* type, unsigned long flags, const char* data)
{
    check(mount(source, path.c_str(), type, flags, data), "mount on " + path);
}

/// The v1 hierarchy with the `cpu` controller: its controllers as a mount option, and this process's place in it.
struct Hierarchy
{
    std::string controllers;
    std::string path;
};

Hierarchy cpuHierarchyOf(const std::string& process)
{
    std::ifstream file("/proc/" + process + "/cgroup");
    for (std::string line; std::getline(file, line);)
    {
        const std::size_t first = line.find(':');
        const std::size_t second = line.find(':', first + 1);
        const std::string controllers = line.substr(first + 1, second - first - 1);
        if (("," + controllers + ",").find(",cpu,") != std::string::npos)
            return {controllers, line.substr(second + 1)};
    }
    return {};
}

/// Removes a cgroup that stood for the root, and the library's group in it.
int removeGroup(int parentFd, const std::string& name)
{
    unlinkat(parentFd, (name + "/zell_tp_ods").c_str(), AT_REMOVEDIR);
    return unlinkat(parentFd, name.c_str(), AT_REMOVEDIR);
}

void makeNamespacePrivate()
{
    check(unshare(CLONE_NEWNS), "unshare");
    mountOn("/", "none", nullptr, MS_REC | MS_PRIVATE, nullptr);
}

bool canMakeNamespace()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 ? 0 : 1);
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

/// What the machine mounts that could be of ours.
std::string cgroupMounts()
{
    std::ifstream file("/proc/self/mountinfo");
    std::string lines;
    for (std::string line; std::getline(file, line);)
    {
        if (line.find("cgroup") != std::string::npos || line.find("tavutils-test") != std::string::npos)
            lines += line + "\n";
    }
    return lines;
}

} // namespace

std::string mountPointOf(Place place)
{
    if (place == Place::None)
        return "";
    return place == Place::Second ? kSecond : kFirst;
}

std::string PrivateController::whyUnavailable()
{
    if (cpuHierarchyOf("self").controllers.empty())
        return "the kernel has no cgroup v1 hierarchy with the cpu controller";
    if (!canMakeNamespace())
        return "a mount namespace of one's own needs the right to mount (CAP_SYS_ADMIN)";
    return fs::is_directory("/sys/fs/cgroup") ? "" : "there is no /sys/fs/cgroup";
}

PrivateController::PrivateController(Place place)
    : m_place(place), m_mount(mountPointOf(place)), m_name(fs::path(m_scratch.path()).filename())
{
    m_lockFd = open(m_scratch.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(flock(m_lockFd, LOCK_EX), "lock " + m_scratch.path());
    m_homeFd = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
    m_directoryFd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    m_rootFd = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(std::min({m_homeFd, m_directoryFd, m_rootFd}), "remember the namespace");
    m_mountsBefore = cgroupMounts();
    try
    {
        makeNamespacePrivate();
        mountController();
        mountSecondRoot();
        mountFirst();
    }
    catch (...)
    {
        leave();
        throw;
    }
}

PrivateController::~PrivateController()
{
    removeGroups();
    leave();
    EXPECT_EQ(cgroupMounts(), m_mountsBefore) << "mounts of the test are left";
}

void PrivateController::mountController()
{
    const Hierarchy own = cpuHierarchyOf("self");
    const std::string controller = m_scratch.file("controller");
    fs::create_directory(controller);
    mountOn(controller, "none", "cgroup", 0, own.controllers.c_str());
    const std::string parent = fs::exists(controller + own.path) ? controller + own.path : controller;
    m_parentFd = open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(m_parentFd, "open " + parent);
    removeLeftovers();
    m_cgroup = parent + "/" + m_name;
    check(mkdir(m_cgroup.c_str(), 0755), "make " + m_cgroup);
    m_cgroupInHierarchy = (own.path == "/" ? "" : own.path) + "/" + m_name;
}

/// A root directory with everything that the machine's has, and the second place: nothing is made in the real one.
void PrivateController::mountSecondRoot()
{
    const std::string root = m_scratch.file("root");
    fs::create_directory(root);
    mountOn(root, "none", "tmpfs", 0, "mode=755");
    // Or it would be bound into itself.
    mountOn(root, "none", nullptr, MS_UNBINDABLE, nullptr);
    for (const fs::directory_entry& entry : fs::directory_iterator("/"))
    {
        const std::string name = root + entry.path().string();
        if (entry.is_symlink())
            fs::copy_symlink(entry.path(), name);
        else if (entry.is_directory() && entry.path() != "/cgroup")
        {
            fs::create_directory(name);
            mountOn(name, entry.path().c_str(), nullptr, MS_BIND | MS_REC, nullptr);
        }
    }
    if (m_place == Place::Second || m_place == Place::Both)
    {
        fs::create_directories(root + kSecond);
        mountOn(root + kSecond, m_cgroup.c_str(), nullptr, MS_BIND, nullptr);
    }
    check(chroot(root.c_str()), "chroot");
    check(chdir("/"), "chdir");
}

void PrivateController::mountFirst() const
{
    mountOn("/sys/fs/cgroup", "none", "tmpfs", 0, "mode=755");
    if (m_place != Place::First && m_place != Place::Both)
        return;
    fs::create_directory(kFirst);
    mountOn(kFirst, m_cgroup.c_str(), nullptr, MS_BIND, nullptr);
}

void PrivateController::leave()
{
    EXPECT_EQ(setns(m_homeFd, CLONE_NEWNS), 0) << std::strerror(errno);
    // That led to the namespace's root, which is not the process's in a chroot.
    EXPECT_TRUE(fchdir(m_rootFd) == 0 && chroot(".") == 0) << std::strerror(errno);
    EXPECT_EQ(fchdir(m_directoryFd), 0) << std::strerror(errno);
    for (int* fd : {&m_lockFd, &m_homeFd, &m_rootFd, &m_directoryFd, &m_parentFd})
        close(std::exchange(*fd, -1));
}

/// The test's own process may have gone into the library's group; it goes back to where it was.
void PrivateController::removeGroups() const
{
    if (const int procsFd = openat(m_parentFd, "cgroup.procs", O_WRONLY | O_CLOEXEC); procsFd >= 0)
    {
        const std::string self = std::to_string(getpid());
        EXPECT_EQ(::write(procsFd, self.data(), self.size()), static_cast<ssize_t>(self.size()));
        close(procsFd);
    }
    EXPECT_EQ(removeGroup(m_parentFd, m_name), 0) << "the cgroup " << m_name << " is left: " << std::strerror(errno);
}

/// Each run locks a directory of the same name as its cgroup: one that nobody holds was left by a run that was killed.
void PrivateController::removeLeftovers() const
{
    const fs::path parent = "/proc/self/fd/" + std::to_string(m_parentFd);
    for (const fs::directory_entry& entry : fs::directory_iterator(parent))
    {
        const std::string name = entry.path().filename();
        if (name.rfind("tavutils-test-", 0) != 0)
            continue;
        const fs::path scratch = fs::path(m_scratch.path()).parent_path() / name;
        const int fd = open(scratch.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0)
            continue;
        std::error_code ignored;
        if (flock(fd, LOCK_EX | LOCK_NB) == 0 && removeGroup(m_parentFd, name) == 0)
            fs::remove_all(scratch, ignored);
        close(fd);
    }
}

bool PrivateController::exists(const std::string& name) const
{
    return faccessat(m_parentFd, name.c_str(), F_OK, 0) == 0;
}

std::string PrivateController::groupFile(const std::string& name) const
{
    std::string text = readFile(group() + "/" + name);
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

std::set<int> PrivateController::members() const
{
    std::istringstream text(groupFile("cgroup.procs"));
    std::set<int> ids;
    for (int id = 0; text >> id;)
        ids.insert(id);
    return ids;
}

unsigned long long PrivateController::statistic(const std::string& name) const
{
    std::istringstream text(groupFile("cpu.stat"));
    std::string key;
    for (unsigned long long value = 0; text >> key >> value;)
    {
        if (key == name)
            return value;
    }
    throw std::runtime_error("no " + name + " in cpu.stat");
}

std::string PrivateController::groupOf(int pid) const
{
    const std::string path = cpuHierarchyOf(std::to_string(pid)).path;
    if (path == m_cgroupInHierarchy)
        return "/";
    if (path.rfind(m_cgroupInHierarchy + "/", 0) == 0)
        return path.substr(m_cgroupInHierarchy.size());
    return "outside";
}

void PrivateController::write(const std::string& name, const std::string& value) const
{
    const std::string path = m_mount + "/" + name;
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    check(fd, "open " + path);
    const ssize_t written = ::write(fd, value.data(), value.size());
    const int err = errno;
    close(fd);
    errno = err;
    check(static_cast<int>(written), "write " + value + " to " + path);
}

void PrivateController::makeReadOnly() const
{
    mountOn(m_mount, "none", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr);
}

void PrivateController::unmount() const
{
    check(umount2(m_mount.c_str(), MNT_DETACH), "unmount " + m_mount);
}

} // namespace TAV::test
