#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <iterator>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Cases.h"
#include "NoLogger.h"
#include "Pair.h"
#include "integration/cgroup/LoadProcess.h"
#include "integration/cgroup/PrivateController.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

namespace TAV::bench
{
namespace
{

constexpr unsigned short kPercent = 50;
constexpr double kTarget = 1.30;

void writePlainly(const std::string& path, const std::string& value)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    require(fd >= 0 && ::write(fd, value.data(), value.size()) == static_cast<ssize_t>(value.size()), path.c_str());
    ::close(fd);
}

void readPlainly(const std::string& path)
{
    std::array<char, 8192> buffer = {};
    const int fd = ::open(path.c_str(), O_RDONLY);
    while (::read(fd, buffer.data(), buffer.size()) > 0)
        continue;
    ::close(fd);
}

void movePlainly(const std::string& procs, const std::set<int>& pids)
{
    for (const int pid : pids)
        writePlainly(procs, std::to_string(pid));
}

/// Another process, which takes the processes out of the group again: so each call really moves them, and the way back
/// does not count, as it falls in that process's time.
class MoverOut
{
public:
    MoverOut(const std::string& procs, const std::set<int>& pids)
    {
        std::array<int, 2> ends = {};
        require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "socketpair");
        m_pid = ::fork();
        if (m_pid == 0)
        {
            ::close(ends[0]);
            for (char byte = 0; ::read(ends[1], &byte, 1) == 1;)
            {
                movePlainly(procs, pids);
                require(::write(ends[1], &byte, 1) == 1, "answer of the mover");
            }
            ::_exit(0);
        }
        ::close(ends[1]);
        m_fd = ends[0];
    }
    MoverOut(const MoverOut&) = delete;
    MoverOut& operator=(const MoverOut&) = delete;
    ~MoverOut()
    {
        ::close(m_fd);
        ::waitpid(m_pid, nullptr, 0);
    }

    void move() const
    {
        char byte = 0;
        require(::write(m_fd, &byte, 1) == 1 && ::read(m_fd, &byte, 1) == 1, "the mover");
    }

private:
    pid_t m_pid = -1;
    int m_fd = -1;
};

test::PrivateController makeController()
{
    const std::string reason = test::PrivateController::whyUnavailable();
    if (!reason.empty())
        throw std::runtime_error(reason);
    return test::PrivateController(test::Place::First);
}

/// Sleeping processes, and the controller that they are moved in.
class Scene
{
public:
    explicit Scene(unsigned int processes)
    {
        for (unsigned int i = 0; i < processes; ++i)
        {
            m_processes.push_back(std::make_unique<test::LoadProcess>());
            m_pids.insert(m_processes.back()->pid());
        }
        m_utils.setCPULimit(m_pids, kPercent, "");
        m_quota = m_controller.groupFile("cpu.cfs_quota_us");
        m_moverOut = std::make_unique<MoverOut>(m_controller.mount() + "/cgroup.procs", m_pids);
    }

    void limit(const std::set<int>& pids) { require(m_utils.setCPULimit(pids, kPercent, ""), "setCPULimit"); }

    void limitAll()
    {
        m_moverOut->move();
        limit(m_pids);
    }

    void limitInTenParts()
    {
        m_moverOut->move();
        for (unsigned int part = 0; part < 10; ++part)
        {
            const auto size = static_cast<std::ptrdiff_t>(m_pids.size() / 10);
            const auto begin = std::next(m_pids.begin(), part * size);
            limit(std::set<int>(begin, std::next(begin, size)));
        }
    }

    void moveAllPlainly()
    {
        m_moverOut->move();
        movePlainly(m_controller.group() + "/cgroup.procs", m_pids);
    }

    /// Every file that a limit has to look at, with the bare system calls.
    void doAllPlainly()
    {
        m_moverOut->move();
        struct stat status = {};
        const std::string group = m_controller.group();
        for (const std::string& path : {m_controller.mount() + "/cpu.cfs_period_us",
                                        m_controller.mount() + "/cpu.cfs_quota_us",
                                        std::string("/cgroup/cpu/cpu.cfs_period_us"),
                                        std::string("/cgroup/cpu/cpu.cfs_quota_us"),
                                        group,
                                        group + "/cpu.cfs_quota_us",
                                        group + "/cgroup.procs"})
            static_cast<void>(::stat(path.c_str(), &status));
        readPlainly(group + "/cpu.cfs_period_us");
        readPlainly("/proc/cpuinfo");
        writePlainly(group + "/cpu.cfs_quota_us", m_quota);
        movePlainly(group + "/cgroup.procs", m_pids);
    }

private:
    test::PrivateController m_controller = makeController();
    NoLogger m_logger;
    TAVUtils m_utils{
        std::make_shared<TAVSystemUtils>(), m_logger, std::make_shared<kernelVersion>(kernelVersion{4, 19, 0})};
    std::vector<std::unique_ptr<test::LoadProcess>> m_processes;
    std::set<int> m_pids;
    std::string m_quota;
    std::unique_ptr<MoverOut> m_moverOut;
};

using Way = void (Scene::*)();

struct Case
{
    unsigned int processes;
    const char* what;
    Way ours;
    const char* peer;
    Way theirs;
    double target;
};

void add(const Case& row)
{
    const WhileMeasured<Scene> scene;
    Pair pair{row.what, row.peer, row.target};
    pair.ours = [=] { ((*scene).*row.ours)(); };
    pair.theirs = [=] { ((*scene).*row.theirs)(); };
    pair.surroundings = scene.madeBy([processes = row.processes] { return std::make_unique<Scene>(processes); });
    // A thousand moves cost much of the kernel's time, and the ratio is steady after a few.
    pair.rounds = row.processes < 1000 ? 101 : 11;
    pair.callsPerRound = row.processes == 1 ? 0 : 1;
    compare(std::move(pair));
}

} // namespace

void addCpuLimitCases()
{
    constexpr const char* kLoop = "open, write, close";
    // With one process the fixed part of a limit outweighs its move: discovery, period, processors and quota.
    add({1, "limit 1 process", &Scene::limitAll, "the same files plainly", &Scene::doAllPlainly, kTarget});
    add({1, "limit 1 process", &Scene::limitAll, kLoop, &Scene::moveAllPlainly, kNoTarget});
    add({100, "limit 100 processes", &Scene::limitAll, kLoop, &Scene::moveAllPlainly, kTarget});
    add({1000, "limit 1000 processes", &Scene::limitAll, kLoop, &Scene::moveAllPlainly, kTarget});
    add({1000, "limit 1000 processes", &Scene::limitAll, "10 x 100 processes", &Scene::limitInTenParts, 1.10});
}

} // namespace TAV::bench
