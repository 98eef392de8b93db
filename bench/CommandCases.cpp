#include <sys/resource.h>

#include <algorithm>
#include <vector>

#include "Cases.h"
#include "LibraryCommands.h"
#include "Pair.h"
#include "Resident.h"
#include "peers/Peers.h"

namespace TAV::bench
{
namespace
{

constexpr std::size_t kSmallDaemon = 10 * kMegabyte;
constexpr rlim_t kUsualLimit = 1024;
/// The sides differ by hundredths, nearly all of it being the kernel's work: more rounds tell them apart.
constexpr int kRoundsForHundredths = 301;

/// A process of this size.
std::function<std::shared_ptr<void>()> daemonOf(std::size_t size)
{
    return [size] { return std::make_shared<Resident>(missingTo(size)); };
}

/// Peers that close descriptors one by one shall have few to close.
void takeUsualDescriptorLimit()
{
    rlimit limit = {};
    require(::getrlimit(RLIMIT_NOFILE, &limit) == 0, "getrlimit");
    limit.rlim_cur = std::min(limit.rlim_max, kUsualLimit);
    require(::setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit");
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
    {
        Pair pair{what + ", 10 MB resident", peer.name, peer.target, ours, peer.work, daemonOf(kSmallDaemon)};
        pair.rounds = kRoundsForHundredths;
        compare(pair);
    }
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
    takeUsualDescriptorLimit();
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
