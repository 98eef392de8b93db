#include "endpoint_scan/SafeFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <system_error>
#include <thread>

#include "tav/QelSSLUtils.h"

namespace endpointscan
{
namespace
{

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t kPermissions = 07777;
/// How often, and how long apart, a directory is emptied that somebody fills meanwhile.
constexpr int kAttempts = 500;
constexpr std::chrono::milliseconds kPause{10};

struct CloseDirectory
{
    void operator()(DIR* directory) const { ::closedir(directory); }
};

Fd duplicate(int fd)
{
    Fd copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (copy.get() < 0)
        fail("cannot duplicate a descriptor");
    return copy;
}

std::vector<std::string> components(const std::string& path)
{
    std::vector<std::string> names;
    std::size_t start = 0;
    while (start < path.size())
    {
        const std::size_t end = std::min(path.find('/', start), path.size());
        names.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return names;
}

/// Walks down from `root`; `enter` runs before each step.
template <typename Enter>
Fd descend(int root, const std::string& path, Enter enter)
{
    Fd directory = duplicate(root);
    for (const std::string& name : components(path))
    {
        enter(directory.get(), name);
        Fd next(::openat(directory.get(), name.c_str(), kDirectoryFlags | O_NOFOLLOW));
        if (next.get() < 0)
            fail("cannot open directory " + name);
        directory = std::move(next);
    }
    return directory;
}

} // namespace

Fd::~Fd()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

bool isBelow(const std::string& path)
{
    if (path.empty() || path.back() == '/' || path.find('\0') != std::string::npos)
        return false;
    const std::vector<std::string> names = components(path);
    return std::none_of(names.begin(),
                        names.end(),
                        [](const std::string& name) { return name.empty() || name == "." || name == ".."; });
}

std::pair<std::string, std::string> splitPath(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return {"", path};
    return {path.substr(0, slash), path.substr(slash + 1)};
}

Fd openDirectory(const std::string& path)
{
    Fd directory(::open(path.c_str(), kDirectoryFlags));
    if (directory.get() < 0)
        fail("cannot open directory " + path);
    return directory;
}

Fd openBelow(int root, const std::string& path)
{
    return descend(root, path, [](int, const std::string&) {});
}

Fd makeBelow(int root, const std::string& path)
{
    constexpr mode_t kMode = 0777; // less the umask
    return descend(root,
                   path,
                   [](int directory, const std::string& name)
                   {
                       if (::mkdirat(directory, name.c_str(), kMode) != 0 && errno != EEXIST)
                           fail("cannot make directory " + name);
                   });
}

Fd openRegularFile(int directory, const std::string& name)
{
    Fd file(::openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.get() < 0)
        fail("cannot open " + name);
    if (!S_ISREG(statusOf(file.get()).st_mode))
        throw std::system_error(EINVAL, std::generic_category(), name + " is no longer a regular file");
    return file;
}

struct stat statusOf(int fd)
{
    struct stat status = {};
    if (::fstat(fd, &status) != 0)
        fail("cannot stat");
    return status;
}

struct stat statusAt(int directory, const std::string& name)
{
    struct stat status = {};
    if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        fail("cannot stat " + name);
    return status;
}

bool existsAt(int directory, const std::string& name)
{
    struct stat status = {};
    return ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

std::vector<std::string> namesIn(int directory)
{
    // Opened afresh: a duplicate would share, and move, the position of the caller's descriptor.
    const int fd = ::openat(directory, ".", kDirectoryFlags);
    const std::unique_ptr<DIR, CloseDirectory> stream(fd < 0 ? nullptr : ::fdopendir(fd));
    if (stream == nullptr)
        fail("cannot list directory");
    std::vector<std::string> names;
    errno = 0;
    while (const struct dirent* entry = ::readdir(stream.get()))
    {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
        errno = 0;
    }
    if (errno != 0)
        fail("cannot list directory");
    std::sort(names.begin(), names.end());
    return names;
}

FileFacts factsOf(const struct stat& status)
{
    FileFacts facts;
    facts.identity = {status.st_dev, status.st_ino};
    facts.size = static_cast<std::uint64_t>(status.st_size);
    facts.mode = status.st_mode & kPermissions;
    facts.user = status.st_uid;
    facts.group = status.st_gid;
    facts.modified = status.st_mtim;
    return facts;
}

std::string sha256At(int directory, const std::string& name)
{
    const Fd file = openRegularFile(directory, name);
    std::string md5;
    std::string sha1;
    std::string sha256;
    if (!TAV::QelSSLUtils().getChecksumValues(file.path(), TAV::INPUT_FILE_PATH, md5, sha1, sha256))
        throw std::system_error(EIO, std::generic_category(), "cannot compute the checksum of " + name);
    return sha256;
}

void applyFacts(int fd, const FileFacts& facts)
{
    // Only root may give files away; the others own what they make. Before the mode, as it clears set-user-ID.
    static_cast<void>(::fchown(fd, facts.user, facts.group) == 0);
    const std::array<struct timespec, 2> times{facts.modified, facts.modified};
    if (::fchmod(fd, facts.mode) != 0 || ::futimens(fd, times.data()) != 0)
        fail("cannot set permissions and time");
}

std::string readAt(int directory, const std::string& name)
{
    const Fd file = openRegularFile(directory, name);
    std::string content(static_cast<std::size_t>(statusOf(file.get()).st_size), '\0');
    std::size_t done = 0;
    while (done < content.size())
    {
        const ssize_t size = ::read(file.get(), content.data() + done, content.size() - done);
        if (size < 0 && errno != EINTR)
            fail("cannot read " + name);
        if (size == 0)
            break;
        if (size > 0)
            done += static_cast<std::size_t>(size);
    }
    content.resize(done);
    return content;
}

void syncDirectory(int directory)
{
    if (::fsync(directory) != 0 && errno != EINVAL)
        fail("cannot sync a directory");
}

void removeEntry(int directory, const std::string& name)
{
    if (::unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT)
        return;
    if (errno != EISDIR)
        fail("cannot remove " + name);
    removeTree(directory, name);
}

void removeTree(int directory, const std::string& name)
{
    for (int attempt = 0;; ++attempt)
    {
        const Fd tree = openBelow(directory, name);
        for (const std::string& entry : namesIn(tree.get()))
            removeEntry(tree.get(), entry);
        if (::unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0)
            return;
        if (errno != ENOTEMPTY || attempt == kAttempts)
            fail("cannot remove directory " + name);
        std::this_thread::sleep_for(kPause);
    }
}

} // namespace endpointscan
