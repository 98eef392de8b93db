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
    if (argc < 3)
    {
        std::cerr << "usage: cpu_limit PERCENT PROGRAM [ARGUMENT...]\n";
        return 2;
    }
    PrintingLogger logger;
    auto version = std::make_shared<TAV::kernelVersion>(TAV::kernelVersion{4, 19, 0}); // see uname(2)
    TAV::TAVUtils utils(std::make_shared<TAV::TAVSystemUtils>(), logger, version);

    // The percentage is of the whole machine, and this process's children share it.
    const auto percent = static_cast<unsigned short>(std::atoi(argv[1]));
    if (!utils.setCPULimit({getpid()}, percent, ""))
        std::cerr << "no limit: this host has no cgroup v1 cpu controller for us\n"; // the log says why
    // True would not mean that the kernel agreed: read cpu.cfs_quota_us and cgroup.procs back where it matters.

    execv(argv[2], argv + 2);
    std::cerr << argv[2] << " cannot be started\n";
    return 127;
}
