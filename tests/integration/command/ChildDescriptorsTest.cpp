// What descriptors a child ends up with, for all 256 keep-maps over 0 to 7 and many kinds of callers: the real child's
// own list against the model's.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "CloseRangeFilter.h"
#include "CommandScene.h"
#include "DescriptorModel.h"
#include "SelfReport.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

constexpr int kAllMaps = 256;
constexpr int kMapsOverFirstFive = 32;
/// Open in every caller, besides 0 to 7: around each limit, and above.
constexpr std::array<int, 9> kOtherDescriptors = {10, 63, 64, 65, 500, 1023, 1024, 1025, 1500};
constexpr int kHighest = 1500;

/// How the descriptors that a map does not keep stand in it.
enum class Unkept
{
    Absent,
    False,
    AbsentBesideStrangers, ///< and the map names descriptors that cannot exist, or are not open
};

struct Setting
{
    std::string name;
    int limit = 1024;
    std::set<int> closed = {}; ///< those of 0, 1 and 2 that the caller itself has closed
    bool outPipeAbove = false; ///< the caller's pipe is kept clear of what it has closed
    int closeRangeError = 0;   ///< with which the kernel refuses close_range(2), or 0
    Unkept unkept = Unkept::Absent;
    int maps = kAllMaps;
};

std::ostream& operator<<(std::ostream& out, const Setting& setting)
{
    return out << setting.name;
}

rlim_t hardLimit()
{
    struct rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_max;
}

void setSoftLimit(rlim_t value)
{
    const struct rlimit limit = {value, hardLimit()};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
        throw std::runtime_error("cannot set the limit of descriptors");
}

DescriptorTable describeOwnDescriptors()
{
    DescriptorTable table;
    for (int fd = 0; fd <= kHighest; ++fd)
    {
        const int flags = ::fcntl(fd, F_GETFL);
        if (flags < 0)
            continue;
        const int access = flags & O_ACCMODE;
        table[fd] = (access == O_RDWR ? "+ " : access == O_WRONLY ? "w " : "r ") + describeDescriptor(::getpid(), fd);
    }
    return table;
}

std::string describe(const DescriptorTable& table)
{
    std::ostringstream text;
    for (const auto& [fd, what] : table)
        text << " " << fd << "=" << what;
    return text.str();
}

/// Opens a file as descriptor `fd`, which is free.
std::string openAs(int fd, const std::string& path)
{
    const int opened = ::open(path.c_str(), O_RDWR | O_CREAT, 0600);
    if (opened < 0 || (opened != fd && (::dup2(opened, fd) < 0 || ::close(opened) != 0)))
        throw std::runtime_error("cannot open " + path);
    return "+ " + path;
}

/// Gives this process exactly the descriptors that the setting asks for.
CallerState becomeCaller(const Setting& setting, const TemporaryDirectory& directory)
{
    CallerState caller;
    caller.limit = setting.limit;
    ::clearenv(); // not of interest here, and costly to report a few hundred times
    ::close_range(0, ~0U, 0);
    std::set<int> wanted(kOtherDescriptors.begin(), kOtherDescriptors.end());
    for (int fd = 0; fd < 8; ++fd)
        wanted.insert(fd);
    for (const int fd : wanted)
        caller.table[fd] = openAs(fd, directory.file("fd" + std::to_string(fd)));

    if (setting.outPipeAbove && ::pipe(caller.outPipe.data()) != 0)
        throw std::runtime_error("cannot make a pipe");
    for (const int fd : setting.closed)
    {
        ::close(fd);
        caller.table.erase(fd);
    }
    if (!setting.outPipeAbove && ::pipe(caller.outPipe.data()) != 0)
        throw std::runtime_error("cannot make a pipe");
    const std::string pipeName = describeDescriptor(::getpid(), caller.outPipe[0]);
    caller.table[caller.outPipe[0]] = "r " + pipeName;
    caller.table[caller.outPipe[1]] = "w " + pipeName;
    return caller;
}

KeepMap keepMapOf(int bits, Unkept unkept)
{
    KeepMap map;
    for (int fd = 0; fd < 8; ++fd)
    {
        const bool keep = ((bits >> fd) & 1) != 0;
        if (keep || unkept == Unkept::False)
            map[fd] = keep;
    }
    if (unkept == Unkept::AbsentBesideStrangers)
        map.insert({{-1, true}, {INT_MIN, true}, {INT_MAX, true}, {40, true}, {63, true}, {64, false}, {1500, true}});
    return map;
}

std::string joined(const std::vector<LogLine>& lines)
{
    std::ostringstream text;
    for (const LogLine& line : lines)
        text << " " << line;
    return text.str();
}

/// Runs tav_self_report once, and tells what became of the child and of the caller.
std::string runForReal(Operation operation, CallerState& caller, const KeepMap* map, const std::string& reportPath)
{
    ::unlink(reportPath.c_str());
    CommandScene scene;
    const std::vector<std::string> argv = {kSelfReport, reportPath};
    const pid_t before = ::getpid();
    setSoftLimit(static_cast<rlim_t>(caller.limit));
    const bool returned = runCommand(scene.utils, operation, argv, map, caller.outPipe.data());
    setSoftLimit(hardLimit()); // in both processes, for what follows
    const std::string outcome = std::string(returned ? "true" : "false") + joined(scene.logger.lines());
    if (::getpid() != before)
    {
        const std::string table = describe(describeOwnDescriptors());
        std::ofstream(reportPath) << "child: " << outcome << table;
        ::_exit(0); // with 0, for the caller's sake: with a pipe, a silent failure would block it
    }
    caller.errPipe = scene.system->pipeName();

    if (::access(reportPath.c_str(), F_OK) != 0)
        return "no child; caller: " + outcome;
    const std::string text = readFile(reportPath);
    if (text.rfind("child: ", 0) == 0)
        return text + "; caller: " + outcome;
    const SelfReport report = parseSelfReport(text);
    return "program: SIGTERM " + report.signals.at("SIGTERM") + ", SIGINT " + report.signals.at("SIGINT") +
           describe(report.table) + "; caller: " + outcome;
}

/// The same, as the model has it.
std::string
runInModel(Operation operation, const CallerState& caller, const KeepMap* map, const std::string& reportPath)
{
    const ChildFate fate = predictChild(operation, caller, map);
    const std::string complaint = " [2] TAVUtils: " + fate.complaint;
    if (fate.kind == ChildFate::Kind::NeverMade)
        return "no child; caller: false" + complaint;
    std::string caught = "; caller: true";
    if (operation == Operation::Execute)
        caught += " [6] TAVUtils: Child process called to execute the system command :  " + std::string(kSelfReport) +
                  " " + reportPath;
    if (fate.kind == ChildFate::Kind::ComesBack)
        return std::string("child: ") + (fate.returned ? "true" : "false") + complaint + describe(fate.table) + caught;
    return "program: SIGTERM ignored, SIGINT ignored" + describe(fate.table) + caught;
}

/// Runs each operation once while descriptors abound: the undefined-behaviour sanitizer makes a pipe when it meets a
/// class for the first time, and dies or spins if it cannot.
void meetAllClasses()
{
    CommandScene scene;
    for (const Operation operation : {Operation::Execute, Operation::Capture})
        runCommand(scene.utils, operation, {"/bin/false"}, &kKeepNothing);
}

/// All maps, in this process; notes every difference, and at the end that it got there.
void compareAllMaps(Operation operation,
                    const Setting& setting,
                    const TemporaryDirectory& directory,
                    SharedNotes& notes)
{
    meetAllClasses();
    CallerState caller = becomeCaller(setting, directory);
    if (setting.closeRangeError != 0)
        refuseCloseRange(setting.closeRangeError);
    const std::string reportPath = directory.file("report");
    const auto compare = [&](const KeepMap* map, const std::string& mapName)
    {
        const std::string real = runForReal(operation, caller, map, reportPath);
        const std::string model = runInModel(operation, caller, map, reportPath);
        if (real != model)
            notes.add("map " + mapName + "\n   is: " + real + "\n  not: " + model);
    };
    compare(nullptr, "null");
    for (int bits = 0; bits < setting.maps; ++bits)
    {
        const KeepMap map = keepMapOf(bits, setting.unkept);
        compare(&map, std::to_string(bits));
    }
    if (describeOwnDescriptors() != caller.table)
        notes.add("the caller's own descriptors changed to:" + describe(describeOwnDescriptors()));
    notes.add("done");
}

class ChildDescriptorsTest : public testing::TestWithParam<Setting>
{
protected:
    static void expectAgreement(Operation operation)
    {
        const Setting& setting = GetParam();
        if (hardLimit() < static_cast<rlim_t>(std::max(setting.limit, kHighest + 1)))
            GTEST_SKIP() << "the hard limit of descriptors (" << hardLimit() << ") is too low";
        const TemporaryDirectory directory;
        SharedNotes notes;
        SacrificialProcess process([&] { compareAllMaps(operation, setting, directory, notes); });
        EXPECT_EQ(process.wait(4 * SacrificialProcess::kPatience), 0);
        EXPECT_EQ(notes.text(), "done\n");
    }
};

TEST_P(ChildDescriptorsTest, ExecutedChildHasWhatTheModelSays)
{
    expectAgreement(Operation::Execute);
}

TEST_P(ChildDescriptorsTest, CapturedChildHasWhatTheModelSays)
{
    expectAgreement(Operation::Capture);
}

std::string nameOf(const testing::TestParamInfo<Setting>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Limits,
                         ChildDescriptorsTest,
                         testing::Values(Setting{"Limit4", 4},
                                         Setting{"Limit64", 64},
                                         Setting{"Limit1024", 1024},
                                         Setting{"Limit20000", 20000}),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(Maps,
                         ChildDescriptorsTest,
                         testing::Values(Setting{"FalseEntries", 64, {}, false, 0, Unkept::False},
                                         Setting{"StrangeEntries", 64, {}, false, 0, Unkept::AbsentBesideStrangers}),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(CloseRangeRefused,
                         ChildDescriptorsTest,
                         testing::Values(Setting{"Limit4", 4, {}, false, ENOSYS},
                                         Setting{"Limit64", 64, {}, false, EPERM},
                                         Setting{"Limit1024", 1024, {}, false, ENOSYS},
                                         Setting{"Limit20000", 20000, {}, false, EPERM},
                                         Setting{
                                             "StrangeEntries", 64, {}, false, ENOSYS, Unkept::AbsentBesideStrangers}),
                         nameOf);

/// Every combination of 0, 1 and 2 closed, with the caller's pipe in the gap or above it, and with no room for more.
std::vector<Setting> closedInCaller()
{
    std::vector<Setting> settings;
    for (int bits = 1; bits < 8; ++bits)
    {
        std::string name = "Without";
        std::set<int> closed;
        for (int fd = 0; fd < 3; ++fd)
        {
            if (((bits >> fd) & 1) != 0)
            {
                closed.insert(fd);
                name += std::to_string(fd);
            }
        }
        settings.push_back({name, 64, closed});
        settings.push_back({name + "PipeAbove", 64, closed, true, 0, Unkept::Absent, kMapsOverFirstFive});
        settings.push_back({name + "Limit4", 4, closed, true, 0, Unkept::Absent, kMapsOverFirstFive});
    }
    return settings;
}

INSTANTIATE_TEST_SUITE_P(Closed, ChildDescriptorsTest, testing::ValuesIn(closedInCaller()), nameOf);

} // namespace
} // namespace TAV::test
