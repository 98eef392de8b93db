#include "ToldLimit.h"

#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{

constexpr long kTheRealOne = -1;
long toldLimit = kTheRealOne;

template <typename Function>
Function realFunction(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The two definitions below take the place of the C library's for the whole process.

extern "C" long sysconf(int name) noexcept
{
    static const auto real = realFunction<long (*)(int)>("sysconf");
    return name == _SC_OPEN_MAX && toldLimit != kTheRealOne ? toldLimit : real(name);
}

extern "C" int getrlimit(__rlimit_resource_t resource, rlimit* rlimits) noexcept
{
    static const auto real = realFunction<int (*)(__rlimit_resource_t, rlimit*)>("getrlimit");
    const int result = real(resource, rlimits);
    if (result == 0 && resource == RLIMIT_NOFILE && toldLimit != kTheRealOne)
        rlimits->rlim_cur = static_cast<rlim_t>(toldLimit);
    return result;
}

namespace TAV::bench
{

void tellDescriptorLimit(long limit)
{
    toldLimit = limit;
}

} // namespace TAV::bench
