// A process for the tests to put under a limit: as many busy threads as its argument says, or none and asleep.
// It ends with its parent.

#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

namespace
{

[[noreturn]] void spin()
{
    static std::atomic<unsigned long> turns{0};
    for (;;)
        turns.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3 || prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != std::atoi(argv[2]))
        return EXIT_FAILURE;
    const int threads = std::atoi(argv[1]);
    std::vector<std::thread> others;
    for (int i = 1; i < threads; ++i)
        others.emplace_back(spin);
    if (threads > 0)
        spin();
    for (;;)
        pause();
}
