// archive create ARCHIVE FILE... | archive extract ARCHIVE DIRECTORY: moves files into an archive, and brings them
// back. The password is taken from the variable ARCHIVE_PASSWORD.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "PrintingLogger.h"
#include "tav/QelArchiveUtils.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

int main(int argc, char** argv)
{
    const std::string command = argc < 4 ? "" : argv[1];
    if (command != "create" && command != "extract")
    {
        std::cerr << "usage: archive create ARCHIVE FILE... | archive extract ARCHIVE DIRECTORY\n";
        return 2;
    }
    PrintingLogger logger; // mask passwords in yours: the command line that is logged holds them
    auto version = std::make_shared<TAV::kernelVersion>(TAV::kernelVersion{4, 19, 0}); // see uname(2)
    auto utils = std::make_shared<TAV::TAVUtils>(std::make_shared<TAV::TAVSystemUtils>(), logger, version);
    TAV::QelArchiveUtils archives(logger, utils);

    const char* set = std::getenv("ARCHIVE_PASSWORD");
    const std::string password = set == nullptr ? "" : set;
    const pid_t before = getpid();
    bool succeeded = false;
    if (command == "create") // the files are deleted once they are stored; give them by absolute paths
        succeeded = archives.createArchive(argv[2], {}, std::vector<std::string>(argv + 3, argv + argc), {}, password);
    else // flat: the directories in the archive are dropped
        succeeded = archives.extractArchive(argv[2], argv[3], password);
    if (getpid() != before)
    {
        // The child: the tool is not where it should be. The caller waits for a word on standard error.
        const ssize_t told = write(STDERR_FILENO, "not started\n", 12);
        _exit(told < 0 ? 126 : 127);
    }
    std::cerr << (succeeded ? "done" : "failed") << "\n";
    return succeeded ? 0 : 1;
}
