#include <unistd.h>

#include <array>
#include <vector>

#include "Cases.h"
#include "Pair.h"
#include "Resident.h"
#include "ToldLimit.h"
#include "peers/Peers.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

namespace TAV::bench
{
namespace
{

constexpr std::size_t kSmallDaemon = 10 * kMegabyte;
constexpr long kUsualLimit = 1024;
constexpr long kContainerLimit = 1048576;

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

Work toldLimit(long limit, Work work)
{
    return [limit, work = std::move(work)]
    {
        tellDescriptorLimit(limit);
        work();
        tellDescriptorLimit(kUsualLimit);
    };
}

/// A process of this size that is told the usual limit. Peers that close descriptors one by one thus have few to close.
std::function<std::shared_ptr<void>()> daemonOf(std::size_t size)
{
    return [size]
    {
        tellDescriptorLimit(kUsualLimit);
        return std::make_shared<Resident>(missingTo(size));
    };
}

struct Peer
{
    const char* name;
    double target;
    Work work;
};

void addSmallDaemonCases(const std::string& what, const Work& ours, const std::vector<Peer>& peerList)
{
    for (const Peer& peer : peerList)
        compare({what + ", 10 MB resident", peer.name, peer.target, ours, peer.work, daemonOf(kSmallDaemon)});
    compare({what + ", told 1,048,576 descriptors",
             "the library, told 1,024",
             1.10,
             toldLimit(kContainerLimit, ours),
             toldLimit(kUsualLimit, ours),
             daemonOf(kSmallDaemon)});
}

void addLargeDaemonCases()
{
    Pair gigabyte{"run /bin/true, 1 GB resident",
                  "plain fork",
                  kNoTarget,
                  runTrue,
                  peers::plainRun(),
                  daemonOf(1024 * kMegabyte)};
    gigabyte.rounds = 11;
    compare(gigabyte);
    gigabyte.what = "run /bin/true, 4 GB resident";
    gigabyte.surroundings = daemonOf(4096 * kMegabyte);
    gigabyte.rounds = 5;
    compare(gigabyte);
}

/// What a large daemon can do: have the same gigabyte in 2 MB pages, or keep it away from children.
struct TwoGigabytes
{
    Resident small{1024 * kMegabyte};
    Resident huge{1024 * kMegabyte, Resident::Pages::Huge};
};

Work runInheriting(const WhileMeasured<TwoGigabytes>& memory, bool small, bool huge)
{
    return [=]
    {
        memory->small.inherit(small);
        memory->huge.inherit(huge);
        runTrue();
    };
}

void addRemedyCases()
{
    const WhileMeasured<TwoGigabytes> memory;
    Pair pair{"run /bin/true, 1 GB in 2 MB pages", "the library, 1 GB in 4 kB pages"};
    pair.ours = runInheriting(memory, false, true);
    pair.theirs = runInheriting(memory, true, false);
    pair.surroundings = memory.madeBy(std::make_unique<TwoGigabytes>);
    pair.rounds = 11;
    compare(pair);
    pair.what = "run /bin/true, 1 GB not inherited";
    pair.ours = runInheriting(memory, false, false);
    compare(pair);
}

} // namespace

void addCommandCases()
{
    addSmallDaemonCases("run /bin/true",
                        runTrue,
                        {{"plain fork", 1.10, peers::plainRun()},
                         {"GLib g_spawn_sync", 1.05, peers::glibRun()},
                         {"Poco::Process", kAhead, peers::pocoRun()},
                         {"Boost.Process", kAhead, peers::boostRun()}});
    addSmallDaemonCases("capture /bin/echo",
                        captureEcho,
                        {{"plain fork", 1.10, peers::plainCapture()},
                         {"GLib g_spawn_sync", 1.05, peers::glibCapture()},
                         {"Poco::Process", kAhead, peers::pocoCapture()},
                         {"Boost.Process", kAhead, peers::boostCapture()}});
    addLargeDaemonCases();
    addRemedyCases();
}

} // namespace TAV::bench
