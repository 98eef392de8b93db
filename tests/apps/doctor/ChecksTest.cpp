#include "tavctl/doctor/Checks.h"

#include <gtest/gtest.h>

#include <functional>
#include <numeric>

#include "FakeHost.h"
#include "tavctl/doctor/Mounts.h"
#include "tavctl/doctor/Report.h"

namespace TAV::test
{
namespace
{

using namespace tavctl::doctor;

struct CheckCase
{
    const char* name;
    Look look;
    std::function<void(FakeHost&, Questions&)> arrange;
    State state;
    std::string text;
    std::string advice = ""; ///< a part of it; empty if there must be none
};

void PrintTo(const CheckCase& c, std::ostream* out)
{
    *out << c.name;
}

class DoctorChecksTest : public testing::TestWithParam<CheckCase>
{
};

std::string joined(const std::vector<std::string>& lines)
{
    return std::accumulate(lines.begin(),
                           lines.end(),
                           std::string(),
                           [](const std::string& all, const std::string& l) { return all + l + "\n"; });
}

TEST_P(DoctorChecksTest, TellsStateTextAndAdvice)
{
    const CheckCase& c = GetParam();
    FakeHost host;
    Questions questions;
    c.arrange(host, questions);
    const std::optional<Finding> finding = c.look(host, questions);

    ASSERT_TRUE(finding.has_value());
    EXPECT_EQ(nameOf(finding->state), nameOf(c.state));
    EXPECT_EQ(finding->text, c.text);
    const std::string advice = joined(finding->advice);
    EXPECT_NE(advice.find(c.advice), std::string::npos) << advice;
    EXPECT_EQ(advice.empty(), c.advice.empty()) << advice;
}

std::string nameOfCase(const testing::TestParamInfo<CheckCase>& info)
{
    return info.param.name;
}

void nothing(FakeHost& /*host*/, Questions& /*questions*/) {}

INSTANTIATE_TEST_SUITE_P(
    Descriptors,
    DoctorChecksTest,
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
    DoctorChecksTest,
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
    DoctorChecksTest,
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

CheckCase bundle(const char* name,
                 const std::string& text,
                 std::time_t time,
                 State state,
                 const char* found,
                 const char* advice = "")
{
    const auto arrange = [text, time](FakeHost& h, Questions& q)
    { h.files["ca.pem"] = text, h.time = time, q.caFile = "ca.pem"; };
    return {name, checkCertificates, arrange, state, found, advice};
}

const std::string kBoth = std::string("# two\n") + kPastCertificate + "\n" + kPresentCertificate;

INSTANTIATE_TEST_SUITE_P(
    Queries,
    DoctorChecksTest,
    testing::Values(
        CheckCase{"Libcurl", checkLibcurl, nothing, State::Ok, "libcurl 7.88.1 with OpenSSL/3.0.11"},
        CheckCase{"LibcurlWithoutTls",
                  checkLibcurl,
                  [](FakeHost& h, Questions&) { h.curlFacts.tls = ""; },
                  State::Problem,
                  "libcurl 7.88.1 was built without TLS",
                  "libcurl4"},
        CheckCase{"LibcurlWithoutHttps",
                  checkLibcurl,
                  [](FakeHost& h, Questions&) { h.curlFacts.speaksHttps = false; },
                  State::Problem,
                  "libcurl 7.88.1 was built without TLS",
                  "libcurl4"},
        CheckCase{"Http2", checkHttp2, nothing, State::Ok, "spoken where the server offers it"},
        CheckCase{"NoHttp2",
                  checkHttp2,
                  [](FakeHost& h, Questions&) { h.curlFacts.speaksHttp2 = false; },
                  State::Note,
                  "not built in: queries use HTTP/1.1, and work as well"},
        CheckCase{"Negotiate", checkNegotiate, nothing, State::Ok, "GSSAPI and SPNEGO: a proxy may ask for Kerberos"},
        CheckCase{"NoNegotiate",
                  checkNegotiate,
                  [](FakeHost& h, Questions&) { h.curlFacts.speaksNegotiate = false; },
                  State::Warning,
                  "no GSSAPI or no SPNEGO: a proxy that asks for Kerberos cannot be passed",
                  "not needed if no proxy asks for it"},
        bundle("OneCertificate", kPresentCertificate, kMidst2025, State::Ok, "ca.pem: 1 certificate, valid now"),
        bundle("CertificateOfThePast",
               kPastCertificate,
               kMidst2025,
               State::Problem,
               "ca.pem: none of 1 certificate is valid now",
               "clock"),
        bundle("CertificatesOfTheFuture",
               kBoth,
               kMidst2019,
               State::Problem,
               "ca.pem: none of 2 certificates is valid now",
               "clock"),
        bundle("CertificatesOfThePast",
               kBoth,
               kMidst2035,
               State::Problem,
               "ca.pem: none of 2 certificates is valid now",
               "clock"),
        bundle("OneExpired",
               kBoth,
               kMidst2025,
               State::Note,
               "ca.pem: 1 certificate valid, 1 expired, 0 not yet valid",
               "refused"),
        bundle("OneNotYetValid",
               kBoth,
               kMidst2020,
               State::Note,
               "ca.pem: 1 certificate valid, 0 expired, 1 not yet valid",
               "refused"),
        bundle("Empty", "", kMidst2025, State::Problem, "ca.pem holds no certificate", "code 77"),
        bundle("NoPem", "\x30\x82\x01", kMidst2025, State::Problem, "ca.pem holds no certificate", "code 77"),
        bundle("Damaged",
               std::string(kPresentCertificate) + "-----BEGIN CERTIFICATE-----\nMIIBxx\n-----END CERTIFICATE-----\n",
               kMidst2025,
               State::Problem,
               "ca.pem is damaged behind 1 certificate",
               "replace it"),
        bundle("CutOff",
               std::string(kPresentCertificate).substr(0, 200),
               kMidst2025,
               State::Problem,
               "ca.pem is damaged behind 0 certificates",
               "replace it"),
        CheckCase{"CertificatesUnreadable",
                  checkCertificates,
                  [](FakeHost& h, Questions& q) { q.caFile = "ca.pem", h.unreadable.insert("ca.pem"); },
                  State::Problem,
                  "ca.pem: Permission denied",
                  "code 77"},
        CheckCase{"CertificatesMissing",
                  checkCertificates,
                  [](FakeHost&, Questions& q) { q.caFile = "no\n.pem"; },
                  State::Problem,
                  "no\\x0a.pem: No such file or directory",
                  "code 77"}),
    nameOfCase);

void askServer(Questions& questions)
{
    questions.server = "host:8443";
}

INSTANTIATE_TEST_SUITE_P(
    Network,
    DoctorChecksTest,
    testing::Values(CheckCase{"ServerNotAskedFor",
                              checkServer,
                              nothing,
                              State::Note,
                              "not tried; --server HOST:PORT --ca FILE sends it a query"},
                    CheckCase{"Server",
                              checkServer,
                              [](FakeHost&, Questions& q) { askServer(q); },
                              State::Ok,
                              "host:8443 answers with HTTP 200 in 47 ms, TLS stood after 32 ms"},
                    CheckCase{"ServerOfAnotherStatus",
                              checkServer,
                              [](FakeHost& h, Questions& q) {
                                  askServer(q), h.queryAttempt = {"", 404, 0.005, 0};
                              },
                              State::Ok,
                              "host:8443 answers with HTTP 404 in 5 ms"},
                    CheckCase{"ServerThatIsSlow",
                              checkServer,
                              [](FakeHost& h, Questions& q) {
                                  askServer(q), h.queryAttempt = {"", 200, 2.5, 2.4};
                              },
                              State::Note,
                              "host:8443 answers with HTTP 200 in 2500 ms, TLS stood after 2400 ms, which is long"},
                    CheckCase{"ServerWantsUser",
                              checkServer,
                              [](FakeHost& h, Questions& q) {
                                  askServer(q), h.queryAttempt = {"", 407, 0.005, 0};
                              },
                              State::Warning,
                              "host:8443 answers with HTTP 407 in 5 ms",
                              "wants a user"},
                    CheckCase{"ServerUnreachable",
                              checkServer,
                              [](FakeHost& h, Questions& q)
                              { askServer(q), h.queryAttempt.error = "Couldn't connect to server"; },
                              State::Problem,
                              "host:8443: Couldn't connect to server",
                              "tavctl query --verbose"},
                    CheckCase{"ServerUnreachableBehindProxy",
                              checkServer,
                              [](FakeHost& h, Questions& q)
                              { askServer(q), q.proxy = "proxy:3128", h.queryAttempt.error = "no answer"; },
                              State::Problem,
                              "host:8443: no answer",
                              "Kerberos ticket"},
                    CheckCase{"Proxy",
                              checkProxy,
                              [](FakeHost&, Questions& q) { q.proxy = "proxy:3128"; },
                              State::Ok,
                              "proxy:3128 takes connections in 2 ms"},
                    CheckCase{"ProxyUnreachable",
                              checkProxy,
                              [](FakeHost& h, Questions& q)
                              { q.proxy = "proxy:3128", h.connection.error = "Couldn't resolve host name"; },
                              State::Problem,
                              "proxy:3128: Couldn't resolve host name",
                              "name and port"}),
    nameOfCase);

CheckCase kerberos(const char* name,
                   Look look,
                   const std::function<void(KerberosFacts&)>& change,
                   State state,
                   const char* text,
                   const char* advice = "")
{
    return {name, look, [change](FakeHost& h, Questions&) { change(h.kerberosFacts); }, state, text, advice};
}

INSTANTIATE_TEST_SUITE_P(
    Kerberos,
    DoctorChecksTest,
    testing::Values(
        CheckCase{"Configuration",
                  checkKerberosConfiguration,
                  nothing,
                  State::Ok,
                  "/etc/krb5.conf, default realm EXAMPLE.ORG"},
        CheckCase{"SecondOfTwoFiles",
                  checkKerberosConfiguration,
                  [](FakeHost& h, Questions&) { h.variables["KRB5_CONFIG"] = "/missing:/etc/krb5.conf"; },
                  State::Ok,
                  "/missing:/etc/krb5.conf, default realm EXAMPLE.ORG"},
        CheckCase{"NoFile",
                  checkKerberosConfiguration,
                  [](FakeHost& h, Questions&) { h.variables["KRB5_CONFIG"] = "/missing:/neither"; },
                  State::Warning,
                  "/missing:/neither cannot be read: no realm is configured",
                  "KRB5_CONFIG"},
        CheckCase{"EmptyVariable",
                  checkKerberosConfiguration,
                  [](FakeHost& h, Questions&) { h.variables["KRB5_CONFIG"] = ""; },
                  State::Warning,
                  "the empty path in KRB5_CONFIG cannot be read: no realm is configured",
                  "KRB5_CONFIG"},
        kerberos(
            "Malformed",
            checkKerberosConfiguration,
            [](KerberosFacts& f) { f.error = "Improper format of Kerberos configuration file"; },
            State::Problem,
            "/etc/krb5.conf: Improper format of Kerberos configuration file",
            "renewal fails"),
        kerberos(
            "NoDefaultRealm",
            checkKerberosConfiguration,
            [](KerberosFacts& f) { f.defaultRealm = ""; },
            State::Note,
            "/etc/krb5.conf sets no default_realm: give principals as user@REALM"),
        kerberos(
            "SampleRealm",
            checkKerberosConfiguration,
            [](KerberosFacts& f) { f.defaultRealm = "ATHENA.MIT.EDU"; },
            State::Warning,
            "/etc/krb5.conf is the distribution's sample: its default realm is ATHENA.MIT.EDU",
            "on the Internet"),
        CheckCase{"Rc4", checkRc4, nothing, State::Ok, "an arcfour-hmac-md5 key was derived, and is permitted"},
        kerberos(
            "Rc4WithSettings",
            checkRc4,
            [](KerberosFacts& f) { f.allowWeakCrypto = "true", f.allowRc4 = "true"; },
            State::Ok,
            "an arcfour-hmac-md5 key was derived, and is permitted (allow_weak_crypto = true, allow_rc4 = true)"),
        kerberos(
            "Rc4NotPermitted",
            checkRc4,
            [](KerberosFacts& f) { f.isRc4Permitted = false, f.permittedEnctypes = "aes256-cts"; },
            State::Problem,
            "arcfour-hmac is not among the permitted types: no ticket is found for its key (permitted_enctypes = "
            "aes256-cts)",
            "add arcfour-hmac to permitted_enctypes"),
        kerberos(
            "Rc4NotDerived",
            checkRc4,
            [](KerberosFacts& f) { f.rc4Error = "Bad encryption type"; },
            State::Problem,
            "no arcfour-hmac-md5 key can be derived: Bad encryption type",
            "FIPS"),
        kerberos(
            "Rc4SwitchedOffLater",
            checkRc4,
            [](KerberosFacts& f) { f.allowRc4 = "false"; },
            State::Warning,
            "arcfour-hmac is usable now, but switched off for newer releases (allow_rc4 = false)",
            "allow_rc4 = true"),
        kerberos(
            "Rc4NotTried",
            checkRc4,
            [](KerberosFacts& f) { f.error = "broken"; },
            State::Problem,
            "not tried: the Kerberos library does not start")),
    nameOfCase);

CheckCase proc(const char* name, const std::string& options, State state, const char* text, const char* advice = "")
{
    const auto arrange = [options](FakeHost& h, Questions&)
    { h.files["/proc/self/mounts"] = "proc /other/proc proc rw,hidepid=2 0 0\nproc /proc proc " + options + " 0 0\n"; };
    return {name, checkHidepid, arrange, state, text, advice};
}

constexpr const char* kReadable = "every local user can read command lines, archive passwords among them";

INSTANTIATE_TEST_SUITE_P(
    Secrets,
    DoctorChecksTest,
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
