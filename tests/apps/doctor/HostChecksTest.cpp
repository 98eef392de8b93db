#include "CheckCase.h"
#include "tavctl/doctor/Mounts.h"

namespace TAV::test
{
namespace
{

using namespace tavctl::doctor;

class HostChecksTest : public testing::TestWithParam<CheckCase>
{
};

TEST_P(HostChecksTest, TellsStateTextAndAdvice)
{
    expectFinding(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    Descriptors,
    HostChecksTest,
    testing::Values(
        CheckCase{"Usual",
                  checkDescriptors,
                  nothing,
                  State::Ok,
                  "limit 1024 (hard 524288); close_range(2) is there, so that a high one costs no time"},
        CheckCase{"ContainerWithABillion",
                  checkDescriptors,
                  [](FakeHost& h, Questions&) {
                      h.descriptors = {1U << 30U, kUnlimited};
                  },
                  State::Ok,
                  "limit 1073741824 (hard unlimited); close_range(2) is there, so that a high one costs no time"},
        CheckCase{"ContainerWithABillionOneByOne",
                  checkDescriptors,
                  [](FakeHost& h, Questions&) {
                      h.descriptors = {1U << 30U, kUnlimited}, h.closeRange = EPERM;
                  },
                  State::Warning,
                  "limit 1073741824 (hard unlimited), and no close_range(2) (Operation not permitted): about 215 s to "
                  "close them for each command",
                  "LimitNOFILE=65536"},
        CheckCase{"OldKernel",
                  checkDescriptors,
                  [](FakeHost& h, Questions&) {
                      h.descriptors = {20000, 20000}, h.closeRange = ENOSYS;
                  },
                  State::Note,
                  "limit 20000 (hard 20000), and no close_range(2) (Function not implemented): about 5 ms to close "
                  "them for each command"},
        CheckCase{"Few",
                  checkDescriptors,
                  [](FakeHost& h, Questions&) {
                      h.descriptors = {255, 4096};
                  },
                  State::Warning,
                  "limit 255 (hard 4096) is little for a daemon with queries and commands",
                  "LimitNOFILE=1024"}),
    nameOfCase);

INSTANTIATE_TEST_SUITE_P(
    CpuLimits,
    HostChecksTest,
    testing::Values(
        CheckCase{"Kernel", checkKernel, nothing, State::Ok, "Linux 5.10.0-28-amd64; 2.6.24 or later is needed"},
        CheckCase{"FirstKernelThatWillDo",
                  checkKernel,
                  [](FakeHost& h, Questions&) { h.release = "2.6.24"; },
                  State::Ok,
                  "Linux 2.6.24; 2.6.24 or later is needed"},
        CheckCase{"OldKernel",
                  checkKernel,
                  [](FakeHost& h, Questions&) { h.release = "2.6.23-el5"; },
                  State::Problem,
                  "Linux 2.6.23-el5 is older than 2.6.24, or its version cannot be told",
                  "setCPULimit answers false"},
        CheckCase{"KernelWithoutVersion",
                  checkKernel,
                  [](FakeHost& h, Questions&) { h.release = "?\x1b"; },
                  State::Problem,
                  "Linux ?\\x1b is older than 2.6.24, or its version cannot be told",
                  "setCPULimit answers false"},
        CheckCase{"FirstPlace",
                  checkController,
                  nothing,
                  State::Ok,
                  "cgroup v1 cpu controller at /sys/fs/cgroup/cpu,cpuacct"},
        CheckCase{"SecondPlace",
                  checkController,
                  [](FakeHost& h, Questions&) {
                      h.existing = {"/cgroup/cpu/cpu.cfs_period_us", "/cgroup/cpu/cpu.cfs_quota_us"};
                  },
                  State::Ok,
                  "cgroup v1 cpu controller at /cgroup/cpu"},
        CheckCase{"NotWritable",
                  checkController,
                  [](FakeHost& h, Questions&) { h.writable = false; },
                  State::Warning,
                  "cgroup v1 cpu controller at /sys/fs/cgroup/cpu,cpuacct, where this user may not write",
                  "run the daemon as root"},
        CheckCase{"WithoutQuotas",
                  checkController,
                  [](FakeHost& h, Questions&) { h.existing = {"/cgroup/cpu/cgroup.procs"}; },
                  State::Problem,
                  "/cgroup/cpu has no cpu.cfs_period_us",
                  "CONFIG_CFS_BANDWIDTH"},
        CheckCase{"WithoutOneOfItsFiles",
                  checkController,
                  [](FakeHost& h, Questions&) { h.existing.erase("/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_quota_us"); },
                  State::Problem,
                  "/sys/fs/cgroup/cpu,cpuacct has no cpu.cfs_quota_us",
                  "CONFIG_CFS_BANDWIDTH"},
        CheckCase{"Elsewhere",
                  checkController,
                  [](FakeHost& h, Questions&)
                  {
                      h.existing.clear();
                      h.files["/proc/self/mounts"] = "cgroup /sys/fs/cgroup/cpuacct cgroup rw,cpuacct 0 0\n"
                                                     "cgroup /sys/fs/cgroup/cpu cgroup rw,relatime,cpu 0 0\n"
                                                     "cgroup2 /sys/fs/cgroup/unified cgroup2 rw 0 0\n";
                  },
                  State::Problem,
                  "the cgroup v1 cpu controller is at /sys/fs/cgroup/cpu, where the library does not look",
                  "mount --bind /sys/fs/cgroup/cpu /sys/fs/cgroup/cpu,cpuacct"},
        CheckCase{"OnlyVersionTwo",
                  checkController,
                  [](FakeHost& h, Questions&)
                  {
                      h.existing.clear();
                      h.files["/proc/self/mounts"] =
                          "cgroup2 /sys/fs/cgroup cgroup2 rw,nosuid,nodev,noexec,relatime,nsdelegate 0 0\n";
                  },
                  State::Problem,
                  "this host has cgroup v2 only; the library knows the v1 cpu controller",
                  "systemd.unified_cgroup_hierarchy=0"},
        CheckCase{"NoControllerAtAll",
                  checkController,
                  [](FakeHost& h, Questions&) { h.existing.clear(); },
                  State::Problem,
                  "no cgroup controller is mounted",
                  "mount -t cgroup"}),
    nameOfCase);

CheckCase sevenZip(const char* name, const char* output, State state, const char* text, const char* advice = "")
{
    return {name, checkArchiver, [output](FakeHost& h, Questions&) { h.archiver.text = output; }, state, text, advice};
}

INSTANTIATE_TEST_SUITE_P(
    Files,
    HostChecksTest,
    testing::Values(
        CheckCase{
            "Hashing", checkHashing, nothing, State::Ok, "MD5, SHA-1, SHA-256 and HMAC-SHA1 give the known answers"},
        CheckCase{"HashingFails",
                  checkHashing,
                  [](FakeHost& h, Questions&) { h.hashing = "MD5"; },
                  State::Problem,
                  "MD5 does not give the known answer",
                  "OPENSSL_CONF"},
        CheckCase{"FileTypes", checkFileTypes, nothing, State::Ok, "recognises the header of a PNG image"},
        CheckCase{"FileTypesWithOwnDatabase",
                  checkFileTypes,
                  [](FakeHost& h, Questions&) { h.variables["MAGIC"] = "/own.mgc"; },
                  State::Ok,
                  "recognises the header of a PNG image (database /own.mgc, from MAGIC)"},
        CheckCase{"NoDatabase",
                  checkFileTypes,
                  [](FakeHost& h, Questions&) {
                      h.mime = {"could not find any valid magic files!", ""};
                  },
                  State::Problem,
                  "could not find any valid magic files!",
                  "libmagic-mgc"},
        CheckCase{"WrongDatabase",
                  checkFileTypes,
                  [](FakeHost& h, Questions&)
                  { h.mime.type = "application/octet-stream", h.variables["MAGIC"] = "/x"; },
                  State::Problem,
                  "takes the header of a PNG image for application/octet-stream (database /x, from MAGIC)",
                  "unset the environment variable MAGIC"},
        sevenZip("SevenZip23",
                 "\n7-Zip (a) 23.01 (x64) : Copyright (c) 1999-2023 Igor Pavlov : 2023-06-20\n",
                 State::Ok,
                 "7-Zip 23.01 at /opt/Brenlow/zel/tav/bin/7za"),
        sevenZip("SevenZip16",
                 "\n7-Zip (a) [64] 16.02 : Copyright (c) 1999-2016 Igor Pavlov : 2016-05-21\np7zip Version 16.02\n",
                 State::Ok,
                 "7-Zip 16.02 at /opt/Brenlow/zel/tav/bin/7za"),
        sevenZip("SevenZip9",
                 "\n7-Zip (A) [64] 9.20  Copyright (c) 1999-2010 Igor Pavlov  2010-11-18\np7zip Version 9.20\n",
                 State::Problem,
                 "7-Zip 9.20 does not know -sdel, which every archive is made with",
                 "9.30 or later"),
        sevenZip(
            "AnotherProgram", "hello\n", State::Problem, "/opt/Brenlow/zel/tav/bin/7za is not 7-Zip", "p7zip-full"),
        CheckCase{"NotInstalled",
                  checkArchiver,
                  [](FakeHost& h, Questions&) { h.archiverObstacle = "No such file or directory"; },
                  State::Problem,
                  "/opt/Brenlow/zel/tav/bin/7za: No such file or directory",
                  "p7zip-full"},
        CheckCase{"InstalledElsewhere",
                  checkArchiver,
                  [](FakeHost& h, Questions&)
                  { h.archiverObstacle = "No such file or directory", h.existing.insert("/usr/lib/p7zip/7za"); },
                  State::Problem,
                  "/opt/Brenlow/zel/tav/bin/7za: No such file or directory",
                  "mkdir -p /opt/Brenlow/zel/tav/bin && ln -sf /usr/lib/p7zip/7za /opt/Brenlow/zel/tav/bin/7za"},
        CheckCase{"DoesNotRun",
                  checkArchiver,
                  [](FakeHost& h, Questions&) { h.archiver.isSuccess = false; },
                  State::Problem,
                  "/opt/Brenlow/zel/tav/bin/7za does not run",
                  "p7zip-full"}),
    nameOfCase);

CheckCase proc(const char* name, const std::string& options, State state, const char* text, const char* advice = "")
{
    const auto arrange = [options](FakeHost& h, Questions&)
    { h.files["/proc/self/mounts"] = "proc /proc proc " + options + " 0 0\nproc /other/proc proc rw,hidepid=4 0 0\n"; };
    return {name, checkHidepid, arrange, state, text, advice};
}

constexpr const char* kReadable = "every local user can read command lines, archive passwords among them";

INSTANTIATE_TEST_SUITE_P(
    Secrets,
    HostChecksTest,
    testing::Values(
        CheckCase{"NoCoreDumps", checkCoreDumps, nothing, State::Ok, "off (RLIMIT_CORE is 0)"},
        CheckCase{"CoreDumps",
                  checkCoreDumps,
                  [](FakeHost& h, Questions&) { h.core.soft = 1; },
                  State::Note,
                  "on: a crash writes the memory to a file",
                  "LimitCORE=0"},
        CheckCase{"CoreDumpsToAProgram",
                  checkCoreDumps,
                  [](FakeHost& h, Questions&)
                  { h.files["/proc/sys/kernel/core_pattern"] = "|/usr/share/apport/apport -p%p\n"; },
                  State::Note,
                  "a crash is handed to /usr/share/apport/apport, whatever the limit",
                  "PR_SET_DUMPABLE"},
        CheckCase{"CoreDumpsToABareProgram",
                  checkCoreDumps,
                  [](FakeHost& h, Questions&) { h.files["/proc/sys/kernel/core_pattern"] = "|/bin/dump"; },
                  State::Note,
                  "a crash is handed to /bin/dump, whatever the limit",
                  "PR_SET_DUMPABLE"},
        CheckCase{"CorePatternUnreadable",
                  checkCoreDumps,
                  [](FakeHost& h, Questions&) { h.files.clear(); },
                  State::Ok,
                  "off (RLIMIT_CORE is 0)"},
        proc("Hidepid", "rw,hidepid=2", State::Ok, "/proc hides command lines from other users (hidepid=2)"),
        proc("HidepidByName",
             "rw,hidepid=invisible,gid=4",
             State::Ok,
             "/proc hides command lines from other users (hidepid=invisible)"),
        proc("HidepidOff", "rw,hidepid=0", State::Note, kReadable, "remount,hidepid=2"),
        proc("NoHidepid", "rw", State::Note, kReadable, "remount,hidepid=2")),
    nameOfCase);

TEST(DoctorExaminationTest, ReachesNobodyUnlessAsked)
{
    FakeHost host;
    const std::vector<Entry> entries = examine(host, {}, [](const Entry&, bool) {});

    EXPECT_TRUE(host.reached.empty());
    EXPECT_EQ(entries.size(), allChecks().size() - 2) << "without ca and proxy";
    EXPECT_EQ(countOf(entries, State::Ok), entries.size() - 1) << "the server was not tried";
}

TEST(DoctorExaminationTest, ReachesWhoIsNamed)
{
    FakeHost host;
    Questions questions;
    questions.server = "host:1";
    questions.caFile = "ca.pem";
    questions.proxy = "proxy:2";
    std::vector<std::string> firsts;
    const std::vector<Entry> entries = examine(host,
                                               questions,
                                               [&firsts](const Entry& entry, bool isFirst)
                                               {
                                                   if (isFirst)
                                                       firsts.push_back(entry.service);
                                               });

    EXPECT_EQ(host.reached, (std::vector<std::string>{"proxy proxy:2", "server host:1"}));
    EXPECT_EQ(countOf(entries, State::Ok), allChecks().size());
    EXPECT_EQ(
        firsts,
        (std::vector<std::string>{
            "Commands", "CPU limits", "Hashing", "File types", "Archives", "HTTPS queries", "Kerberos", "Secrets"}));
}

TEST(MountsTest, LeavesOutWhatIsNoMount)
{
    const std::vector<Mount> mounts = parseMounts("\nhalf a\nproc /proc proc rw,hidepid=2 0 0\n");

    ASSERT_EQ(mounts.size(), 1U);
    EXPECT_TRUE(mounts.front().hasOption("rw"));
    EXPECT_FALSE(mounts.front().hasOption("hidepid"));
    EXPECT_EQ(mounts.front().valueOf("hidepid"), "2");
    EXPECT_EQ(mounts.front().valueOf("rw"), "");
}

} // namespace
} // namespace TAV::test
