#include "endpoint_scan/WholeFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "endpoint_scan/SafeFiles.h"

namespace endpointscan
{
namespace
{

constexpr mode_t kPrivate = 0600;
const std::string kPartial = ".partial-";

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

/// A new file that is removed at the end unless it is to be kept.
class Partial
{
public:
    explicit Partial(int directory) : m_directory(directory)
    {
        constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        for (unsigned int number = 1; m_file.get() < 0; ++number)
        {
            m_name = kPartial + std::to_string(::getpid()) + "-" + std::to_string(number);
            m_file = Fd(::openat(directory, m_name.c_str(), kFlags, kPrivate));
            if (m_file.get() < 0 && errno != EEXIST) // a process of the same number may have been killed here
                fail("cannot create " + m_name);
        }
    }
    Partial(const Partial&) = delete;
    Partial& operator=(const Partial&) = delete;
    ~Partial()
    {
        if (!m_name.empty())
            ::unlinkat(m_directory, m_name.c_str(), 0);
    }

    int fd() const { return m_file.get(); }
    const std::string& name() const { return m_name; }

    /// Replaces nothing.
    void giveName(const std::string& name)
    {
        renameTo(m_directory, m_name, m_directory, name);
        m_name = name;
        syncDirectory(m_directory);
    }
    void keep() { m_name.clear(); }

private:
    int m_directory;
    std::string m_name;
    Fd m_file;
};

bool isUnchanged(const struct stat& before, const struct stat& now)
{
    return factsOf(before).identity == factsOf(now).identity && before.st_size == now.st_size &&
           before.st_mtim.tv_sec == now.st_mtim.tv_sec && before.st_mtim.tv_nsec == now.st_mtim.tv_nsec;
}

/// Copies a file with its owner, permissions and time.
/// @return the status of what was copied
struct stat copyFile(int directory, const std::string& name, Partial& copy)
{
    const Fd source = openRegularFile(directory, name);
    const struct stat status = statusOf(source.get());
    copyContent(source.get(), copy.fd());
    applyFacts(copy.fd(), factsOf(status));
    syncFile(copy.fd());
    if (!isUnchanged(status, statusOf(source.get())))
        throw std::system_error(EBUSY, std::generic_category(), name + " changed while it was copied");
    return status;
}

void moveByCopy(int fromDirectory, const std::string& fromName, int toDirectory, const std::string& toName)
{
    Partial copy(toDirectory);
    const struct stat copied = copyFile(fromDirectory, fromName, copy);
    copy.giveName(toName);
    if (sha256At(fromDirectory, fromName) != sha256At(toDirectory, toName))
        throw std::system_error(EIO, std::generic_category(), fromName + " was not copied faithfully");
    if (!isUnchanged(copied, statusAt(fromDirectory, fromName)))
        throw std::system_error(EBUSY, std::generic_category(), fromName + " changed while it was moved");
    if (::unlinkat(fromDirectory, fromName.c_str(), 0) != 0)
        fail("cannot remove " + fromName);
    copy.keep();
}

} // namespace

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
    if (::linkat(fromDirectory, fromName.c_str(), toDirectory, toName.c_str(), 0) == 0)
        return;
    Partial copy(toDirectory);
    copyFile(fromDirectory, fromName, copy);
    copy.giveName(toName);
    copy.keep();
}

void writeAtomically(int directory, const std::string& name, const std::string& content)
{
    if (existsAt(directory, name) && !S_ISREG(statusAt(directory, name).st_mode))
        throw std::system_error(std::make_error_code(std::errc::file_exists), name + " is not a regular file");
    Partial file(directory);
    writeAll(file.fd(), content.data(), content.size());
    syncFile(file.fd());
    if (::renameat(directory, file.name().c_str(), directory, name.c_str()) != 0)
        fail("cannot rename to " + name);
    file.keep();
    syncDirectory(directory);
}

void writeAtomically(const std::string& path, const std::string& content)
{
    const std::filesystem::path place(path);
    writeAtomically(openDirectory((place.parent_path() / ".").string()).get(), place.filename().string(), content);
}

} // namespace endpointscan
