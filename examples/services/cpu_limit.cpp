// cpu_limit PERCENT PROGRAM [ARGUMENT...]: becomes a program that has only a share of the machine's CPU time.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include "PrintingLogger.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

int main(int argc, char** argv)
{
    char* end = nullptr;
    const long percent = argc < 3 ? 0 : std::strtol(argv[1], &end, 10);
    if (percent < 1 || percent > 100 || *end != '\0')
    {
        std::cerr << "usage: cpu_limit PERCENT PROGRAM [ARGUMENT...], PERCENT from 1 to 100\n";
        return 2;
    }
    PrintingLogger logger;
    auto version = std::make_shared<TAV::kernelVersion>(TAV::kernelVersion{4, 19, 0}); // see uname(2)
    TAV::TAVUtils utils(std::make_shared<TAV::TAVSystemUtils>(), logger, version);

    // The percentage is of the whole machine, and this process's children share it.
    if (!utils.setCPULimit({getpid()}, static_cast<unsigned short>(percent), ""))
        std::cerr << "no limit: this host has no cgroup v1 cpu controller for us\n"; // the log says why
    // True would not mean that the kernel agreed: read cpu.cfs_quota_us and cgroup.procs back where it matters.

    execv(argv[2], argv + 2);
    std::cerr << argv[2] << " cannot be started\n";
    return 127;
}
