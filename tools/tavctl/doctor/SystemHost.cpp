#include "tavctl/doctor/SystemHost.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "common/GuardedUtils.h"
#include "tavctl/Capture.h"
#include "tavctl/Program.h"

namespace tavctl::doctor
{
namespace
{

Limit limitOf(decltype(RLIMIT_CORE) resource)
{
    struct rlimit limit = {};
    if (::getrlimit(resource, &limit) != 0)
        return {};
    const auto number = [](rlim_t value) { return value == RLIM_INFINITY ? kUnlimited : std::uint64_t{value}; };
    return {number(limit.rlim_cur), number(limit.rlim_max)};
}

} // namespace

std::string SystemHost::kernelRelease()
{
    struct utsname names = {};
    return ::uname(&names) == 0 ? names.release : "";
}

FileText SystemHost::read(const std::string& path)
{
    FileText file;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); // a pipe must not hold us up
    ssize_t size = fd < 0 ? -1 : 1;
    char piece[4096];
    while (size > 0)
    {
        size = ::read(fd, piece, sizeof piece);
        if (size > 0)
            file.text.append(piece, static_cast<std::size_t>(size));
    }
    file.error = size < 0 ? errno : 0;
    if (fd >= 0)
        ::close(fd);
    return file;
}

bool SystemHost::exists(const std::string& path)
{
    return ::access(path.c_str(), F_OK) == 0;
}

bool SystemHost::isWritable(const std::string& path)
{
    return ::access(path.c_str(), W_OK) == 0;
}

std::optional<std::string> SystemHost::environment(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

std::time_t SystemHost::now()
{
    return std::time(nullptr);
}

Limit SystemHost::descriptorLimit()
{
    return limitOf(RLIMIT_NOFILE);
}

Limit SystemHost::coreLimit()
{
    return limitOf(RLIMIT_CORE);
}

int SystemHost::closeRangeError()
{
    // A range that ends before it begins: refused as that by a kernel that has the call, and nothing is closed.
    if (::syscall(SYS_close_range, ~0U, 0U, 0U) == 0 || errno == EINVAL)
        return 0;
    return errno;
}

std::string SystemHost::obstacleToRun(const std::string& program)
{
    return programs::obstacleToRun(program);
}

CommandOutput SystemHost::run(const std::vector<std::string>& argv)
{
    Captured captured = captureOutput(*makeUtils(m_context), argv);
    return {captured.isSuccess, std::move(captured.output)};
}

} // namespace tavctl::doctor
