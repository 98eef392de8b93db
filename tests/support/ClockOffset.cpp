// Loaded into a program by LD_PRELOAD, it makes its clock wrong by as many seconds as TAV_TEST_CLOCK_OFFSET says.

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

namespace
{

int readClock(clockid_t clock, timespec& now)
{
    const long result = ::syscall(SYS_clock_gettime, clock, &now);
    const char* offset = std::getenv("TAV_TEST_CLOCK_OFFSET");
    if (result == 0 && clock == CLOCK_REALTIME && offset != nullptr)
        now.tv_sec += std::strtol(offset, nullptr, 10);
    return static_cast<int>(result);
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    return readClock(clock, *now);
}

extern "C" int gettimeofday(timeval* __restrict now, void* __restrict) noexcept
{
    timespec exact = {};
    const int result = readClock(CLOCK_REALTIME, exact);
    now->tv_sec = exact.tv_sec;
    now->tv_usec = exact.tv_nsec / 1000;
    return result;
}

extern "C" std::time_t time(std::time_t* result) noexcept
{
    timespec now = {};
    readClock(CLOCK_REALTIME, now);
    if (result != nullptr)
        *result = now.tv_sec;
    return now.tv_sec;
}
