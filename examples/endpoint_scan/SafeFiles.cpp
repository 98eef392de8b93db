#include "endpoint_scan/SafeFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <system_error>
#include <thread>

#include "tav/QelSSLUtils.h"

namespace endpointscan
{
namespace
{

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t kPrivate = 0600;
constexpr mode_t kPermissions = 07777;
const std::string kPartial = ".partial-";
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

/// Removes what is in a directory, as far as it is still there.
void removeEntries(int directory)
{
    for (const std::string& name : namesIn(directory))
    {
        if (::unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT)
            continue;
        if (errno != EISDIR)
            fail("cannot remove " + name);
        removeTree(directory, name);
    }
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

void writeAll(int fd, const char* bytes, std::size_t size)
{
    while (size > 0)
    {
        const ssize_t written = ::write(fd, bytes, size);
        if (written < 0 && errno != EINTR)
            fail("cannot write");
        if (written > 0)
        {
            bytes += written;
            size -= static_cast<std::size_t>(written);
        }
    }
}

void copyContent(int from, int to)
{
    std::array<char, 64UL * 1024> piece{};
    for (;;)
    {
        const ssize_t size = ::read(from, piece.data(), piece.size());
        if (size < 0 && errno != EINTR)
            fail("cannot read");
        if (size == 0)
            return;
        if (size > 0)
            writeAll(to, piece.data(), static_cast<std::size_t>(size));
    }
}

Fd createFile(int directory, const std::string& name)
{
    Fd file(::openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPrivate));
    if (file.get() < 0)
        fail("cannot create " + name);
    return file;
}

void syncFile(int fd)
{
    if (::fsync(fd) != 0)
        fail("cannot sync");
}

/// Renames without replacing anything, also where the file system knows no such rename.
void renameTo(int fromDirectory, const std::string& fromName, int toDirectory, const std::string& toName)
{
    if (::renameat2(fromDirectory, fromName.c_str(), toDirectory, toName.c_str(), RENAME_NOREPLACE) == 0)
        return;
    if (errno != EINVAL)
        fail("cannot rename " + fromName);
    if (::linkat(fromDirectory, fromName.c_str(), toDirectory, toName.c_str(), 0) != 0 ||
        ::unlinkat(fromDirectory, fromName.c_str(), 0) != 0)
        fail("cannot rename " + fromName);
}

/// Removes a half-made file unless told that it is complete.
class Unfinished
{
public:
    Unfinished(int directory, std::string name) : m_directory(directory), m_name(std::move(name)) {}
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;
    ~Unfinished()
    {
        if (!m_done)
            ::unlinkat(m_directory, m_name.c_str(), 0);
    }
    void done() { m_done = true; }

private:
    int m_directory;
    std::string m_name;
    bool m_done = false;
};

bool isUnchanged(const struct stat& before, const struct stat& now)
{
    return factsOf(before).identity == factsOf(now).identity && before.st_size == now.st_size &&
           before.st_mtim.tv_sec == now.st_mtim.tv_sec && before.st_mtim.tv_nsec == now.st_mtim.tv_nsec;
}

/// Copies a file with its owner, permissions and time.
/// @return the status of what was copied
struct stat copyFile(int fromDirectory, const std::string& fromName, int toDirectory, const std::string& toName)
{
    const Fd source = openRegularFile(fromDirectory, fromName);
    const struct stat status = statusOf(source.get());
    const std::string partialName = kPartial + toName;
    const Fd copy = createFile(toDirectory, partialName);
    Unfinished partial(toDirectory, partialName);
    copyContent(source.get(), copy.get());
    applyFacts(copy.get(), factsOf(status));
    syncFile(copy.get());
    if (!isUnchanged(status, statusOf(source.get())))
        throw std::system_error(EBUSY, std::generic_category(), fromName + " changed while it was copied");
    renameTo(toDirectory, partialName, toDirectory, toName);
    partial.done();
    syncDirectory(toDirectory);
    return status;
}

void moveByCopy(int fromDirectory, const std::string& fromName, int toDirectory, const std::string& toName)
{
    const struct stat copied = copyFile(fromDirectory, fromName, toDirectory, toName);
    Unfinished copy(toDirectory, toName);
    if (sha256At(fromDirectory, fromName) != sha256At(toDirectory, toName))
        throw std::system_error(EIO, std::generic_category(), fromName + " was not copied faithfully");
    if (!isUnchanged(copied, statusAt(fromDirectory, fromName)))
        throw std::system_error(EBUSY, std::generic_category(), fromName + " changed while it was moved");
    if (::unlinkat(fromDirectory, fromName.c_str(), 0) != 0)
        fail("cannot remove " + fromName);
    copy.done();
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
        fail("cannot open");
    if (!S_ISREG(statusOf(file.get()).st_mode))
        throw std::system_error(EINVAL, std::generic_category(), "no longer a regular file");
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

void moveFile(int fromDirectory, const std::string& fromName, int toDirectory, const std::string& toName)
{
    try
    {
        renameTo(fromDirectory, fromName, toDirectory, toName);
    }
    catch (const std::system_error& error)
    {
        if (error.code().value() != EXDEV)
            throw;
        moveByCopy(fromDirectory, fromName, toDirectory, toName);
    }
}

void linkOrCopy(int fromDirectory, const std::string& fromName, int toDirectory, const std::string& toName)
{
    if (::linkat(fromDirectory, fromName.c_str(), toDirectory, toName.c_str(), 0) != 0)
        copyFile(fromDirectory, fromName, toDirectory, toName);
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

void writeAtomically(int directory, const std::string& name, const std::string& content)
{
    const std::string partialName = kPartial + std::to_string(::getpid()) + "-" + name;
    const Fd file = createFile(directory, partialName);
    Unfinished partial(directory, partialName);
    writeAll(file.get(), content.data(), content.size());
    syncFile(file.get());
    if (::renameat(directory, partialName.c_str(), directory, name.c_str()) != 0)
        fail("cannot rename to " + name);
    partial.done();
    syncDirectory(directory);
}

void writeAtomically(const std::string& path, const std::string& content)
{
    const auto [directory, name] = splitPath(path);
    const bool isAtRoot = directory.empty() && path.front() == '/';
    const std::string parent = isAtRoot ? "/" : directory;
    writeAtomically(openDirectory(parent.empty() ? "." : parent).get(), name, content);
}

void syncDirectory(int directory)
{
    if (::fsync(directory) != 0 && errno != EINVAL)
        fail("cannot sync a directory");
}

void removeTree(int directory, const std::string& name)
{
    for (int attempt = 0;; ++attempt)
    {
        removeEntries(openBelow(directory, name).get());
        if (::unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0)
            return;
        if (errno != ENOTEMPTY || attempt == kAttempts)
            fail("cannot remove directory " + name);
        std::this_thread::sleep_for(kPause);
    }
}

} // namespace endpointscan
