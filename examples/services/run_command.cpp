// run_command PROGRAM [ARGUMENT...]: runs a program and tells whether it succeeded.
#include <unistd.h>

#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "PrintingLogger.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        std::cerr << "usage: run_command PROGRAM [ARGUMENT...]\n";
        return 2;
    }
    PrintingLogger logger;
    auto version = std::make_shared<TAV::kernelVersion>(TAV::kernelVersion{4, 19, 0}); // see uname(2)
    TAV::TAVUtils utils(std::make_shared<TAV::TAVSystemUtils>(), logger, version);

    // Standard output stays ours. As 2 is not kept, there is no pipe that could block the call.
    const std::map<int, bool> keep{{0, true}, {1, true}};
    const pid_t before = getpid();
    const bool succeeded = utils.executeSystemCommand(std::vector<std::string>(argv + 1, argv + argc), &keep);
    if (getpid() != before)
        _exit(127); // the child, whose program did not start, has come back
    std::cerr << (succeeded ? "succeeded" : "failed") << "\n";
    return succeeded ? 0 : 1;
}
