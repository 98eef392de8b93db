// The rows about a told limit of descriptors stand in a program of their own: its definitions of the C library's
// functions would cost each child of the other rows a page fault.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

#include "LibraryCommands.h"
#include "Pair.h"
#include "Resident.h"
#include "RowReporter.h"

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
namespace
{

constexpr long kUsualLimit = 1024;
constexpr long kContainerLimit = 1048576;
constexpr std::size_t kSmallDaemon = 10 * kMegabyte;

Work told(long limit, void (*work)())
{
    return [limit, work]
    {
        toldLimit = limit;
        work();
    };
}

void addToldCase(const std::string& what, void (*work)())
{
    Pair pair{what + ", told 1,048,576 descriptors", "the library, told 1,024", 1.10};
    pair.ours = told(kContainerLimit, work);
    pair.theirs = told(kUsualLimit, work);
    pair.surroundings = [] { return std::make_shared<Resident>(missingTo(kSmallDaemon)); };
    compare(pair);
}

} // namespace
} // namespace TAV::bench

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    TAV::bench::addToldCase("run /bin/true", TAV::bench::runTrue);
    TAV::bench::addToldCase("capture /bin/echo", TAV::bench::captureEcho);
    TAV::bench::RowReporter rows;
    benchmark::RunSpecifiedBenchmarks(&rows);
    return 0;
}
