// capture_output PROGRAM [ARGUMENT...]: runs a program and counts the bytes and lines that it prints.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "PrintingLogger.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

int main(int argc, char** argv)
{
    PrintingLogger logger;
    auto version = std::make_shared<TAV::kernelVersion>(TAV::kernelVersion{4, 19, 0}); // see uname(2)
    TAV::TAVUtils utils(std::make_shared<TAV::TAVSystemUtils>(), logger, version);
    std::array<int, 2> pipe{};
    if (argc < 2 || pipe2(pipe.data(), O_CLOEXEC) != 0)
        return 2;

    std::string output;
    std::thread reader( // the pipe holds 64 KiB: somebody has to read during the call
        [&]
        {
            std::array<char, 4096> piece{};
            for (ssize_t n = 0; (n = read(pipe[0], piece.data(), piece.size())) > 0;)
                output.append(piece.data(), static_cast<std::size_t>(n));
        });
    const std::map<int, bool> keepNothing; // standard error goes to /dev/null
    const pid_t before = getpid();
    const bool succeeded =
        utils.readSystemCommandOutput(std::vector<std::string>(argv + 1, argv + argc), &keepNothing, pipe.data());
    if (getpid() != before)
        _exit(127); // the child, whose program did not start, has come back
    close(pipe[1]); // both ends are the caller's: without this the reader would wait for ever
    reader.join();
    close(pipe[0]);
    std::cout << output.size() << " bytes, " << std::count(output.begin(), output.end(), '\n') << " lines\n";
    return succeeded ? 0 : 1;
}
