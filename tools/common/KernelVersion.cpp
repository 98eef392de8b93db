#include "common/KernelVersion.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cstdio>

namespace programs
{
namespace
{

std::uint8_t clamped(unsigned int number)
{
    return static_cast<std::uint8_t>(std::min(number, 255U));
}

} // namespace

TAV::kernelVersion parseKernelRelease(const std::string& release)
{
    unsigned int major = 0;
    unsigned int minor = 0;
    unsigned int patch = 0;
    // What it does not find stays 0.
    static_cast<void>(std::sscanf(release.c_str(), "%9u.%9u.%9u", &major, &minor, &patch));
    return {clamped(major), clamped(minor), clamped(patch)};
}

TAV::kernelVersion runningKernel()
{
    struct utsname names = {};
    return ::uname(&names) == 0 ? parseKernelRelease(names.release) : TAV::kernelVersion{};
}

} // namespace programs
