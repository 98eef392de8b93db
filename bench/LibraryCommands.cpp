#include "LibraryCommands.h"

#include <unistd.h>

#include <array>

#include "Pair.h"
#include "peers/Peers.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

namespace TAV::bench
{
namespace
{

class SilentLogger : public ILogger
{
public:
    void log(int, std::string) override {}
    void log(int, std::string, const std::string&) override {}
};

TAVUtils& utils()
{
    static SilentLogger logger;
    static const kernelVersion version{6, 1, 0};
    static TAVUtils object(std::make_shared<TAVSystemUtils>(), logger, std::make_shared<kernelVersion>(version));
    return object;
}

/// A child that comes back must not go on measuring.
void succeedAsParent(pid_t parent, bool success, const char* operation)
{
    if (::getpid() != parent)
        ::_exit(127);
    require(success, operation);
}

} // namespace

void runTrue()
{
    const pid_t parent = ::getpid();
    const bool success = utils().executeSystemCommand({peers::kTrue}, nullptr);
    succeedAsParent(parent, success, "executeSystemCommand");
}

void captureEcho()
{
    const pid_t parent = ::getpid();
    std::array<int, 2> fds{};
    require(::pipe(fds.data()) == 0, "pipe");
    const bool success = utils().readSystemCommandOutput({peers::kEcho, peers::kWord}, nullptr, fds.data());
    succeedAsParent(parent, success, "readSystemCommandOutput");
    ::close(fds[1]);
    std::array<char, 64> text{};
    require(::read(fds[0], text.data(), text.size()) > 0, "read");
    ::close(fds[0]);
}

} // namespace TAV::bench
