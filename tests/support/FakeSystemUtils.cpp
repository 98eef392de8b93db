#include "support/FakeSystemUtils.h"

namespace TAV::test
{
namespace
{

std::string joined(std::initializer_list<std::string> parts)
{
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : ", ") + part;
    return text;
}

} // namespace

void FakeSystemUtils::failCall(const std::string& operation, unsigned int nth, int err, Lasting lasting)
{
    m_faults[operation] = {nth, err, lasting};
}

unsigned int FakeSystemUtils::countOf(const std::string& operation) const
{
    const auto count = m_counts.find(operation);
    return count == m_counts.end() ? 0 : count->second;
}

std::optional<int> FakeSystemUtils::enter(const std::string& operation, const std::string& arguments)
{
    m_calls.push_back(operation + "(" + arguments + ")");
    if (onCall)
        onCall(m_calls.back());
    const unsigned int number = ++m_counts[operation];
    const auto fault = m_faults.find(operation);
    if (fault == m_faults.end())
        return std::nullopt;
    const bool due = fault->second.lasting == Lasting::Once ? number == fault->second.nth : number >= fault->second.nth;
    return due ? std::optional<int>(fault->second.err) : std::nullopt;
}

int FakeSystemUtils::open(std::string path, int flags, int& err)
{
    if (const auto fault = enter("open", joined({path, std::to_string(flags)})))
        return err = *fault, -1;
    return onOpen ? onOpen(path, flags, err) : m_real.open(path, flags, err);
}

ssize_t FakeSystemUtils::read(int fd, void* buffer, std::size_t count, int& err)
{
    if (const auto fault = enter("read", joined({std::to_string(fd), std::to_string(count)})))
        return err = *fault, -1;
    return onRead ? onRead(fd, buffer, count, err) : m_real.read(fd, buffer, count, err);
}

int FakeSystemUtils::close(int fd, int& err)
{
    if (const auto fault = enter("close", std::to_string(fd)))
        return err = *fault, -1;
    return onClose ? onClose(fd, err) : m_real.close(fd, err);
}

int FakeSystemUtils::setenv(const char* name, const char* value, int overwrite, int& err)
{
    if (const auto fault = enter("setenv", joined({name, value, std::to_string(overwrite)})))
        return err = *fault, -1;
    return onSetenv ? onSetenv(name, value, overwrite, err) : m_real.setenv(name, value, overwrite, err);
}

int FakeSystemUtils::pipe(std::array<int, 2>& fds, int& err, int flags)
{
    if (const auto fault = enter("pipe", "flags " + std::to_string(flags)))
        return err = *fault, -1;
    return onPipe ? onPipe(fds, err, flags) : m_real.pipe(fds, err, flags);
}

pid_t FakeSystemUtils::fork(int& err)
{
    if (const auto fault = enter("fork", ""))
        return err = *fault, -1;
    return onFork ? onFork(err) : m_real.fork(err);
}

pid_t FakeSystemUtils::waitpid(pid_t pid, int* status, int options, int& err)
{
    if (const auto fault = enter("waitpid", joined({std::to_string(pid), std::to_string(options)})))
        return err = *fault, -1;
    return onWaitpid ? onWaitpid(pid, status, options, err) : m_real.waitpid(pid, status, options, err);
}

int FakeSystemUtils::mkdir(std::string path, mode_t mode, int& err)
{
    if (const auto fault = enter("mkdir", joined({path, std::to_string(mode)})))
        return err = *fault, -1;
    return onMkdir ? onMkdir(path, mode, err) : m_real.mkdir(path, mode, err);
}

int FakeSystemUtils::dup2(int oldFd, int newFd, int& err)
{
    if (const auto fault = enter("dup2", joined({std::to_string(oldFd), std::to_string(newFd)})))
        return err = *fault, -1;
    return onDup2 ? onDup2(oldFd, newFd, err) : m_real.dup2(oldFd, newFd, err);
}

int FakeSystemUtils::stat(const char* path, struct stat* buffer, int& err)
{
    if (const auto fault = enter("stat", path))
        return err = *fault, -1;
    return onStat ? onStat(path, buffer, err) : m_real.stat(path, buffer, err);
}

void FakeSystemUtils::openOutputFile(std::ofstream& stream, std::string path)
{
    if (enter("openOutputFile", path))
        return;
    onOpenOutputFile ? onOpenOutputFile(stream, path) : m_real.openOutputFile(stream, path);
}

void FakeSystemUtils::openInputFile(std::ifstream& stream, std::string path)
{
    if (enter("openInputFile", path))
        return;
    onOpenInputFile ? onOpenInputFile(stream, path) : m_real.openInputFile(stream, path);
}

} // namespace TAV::test
