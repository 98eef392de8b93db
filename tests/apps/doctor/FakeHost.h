#pragma once

#include <cerrno>
#include <map>
#include <set>
#include <string>

#include "Certificates.h"
#include "tavctl/doctor/Host.h"

namespace TAV::test
{

/// A host that is as it should be, until a test changes something. It notes who was to be reached.
class FakeHost : public tavctl::doctor::Host
{
public:
    std::string release = "5.10.0-28-amd64";
    std::map<std::string, std::string> files{
        {"/etc/krb5.conf", "[libdefaults]\n"},
        {"/proc/self/mounts", "proc /proc proc rw,nosuid,hidepid=2 0 0\n"},
        {"/proc/sys/kernel/core_pattern", "core\n"},
        {"ca.pem", kPresentCertificate},
    };
    std::set<std::string> unreadable;
    std::set<std::string> existing{"/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_period_us",
                                   "/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_quota_us",
                                   "/sys/fs/cgroup/cpu,cpuacct/cgroup.procs"};
    bool writable = true;
    std::map<std::string, std::string> variables;
    std::time_t time = kMidst2025;
    tavctl::doctor::Limit descriptors{1024, 524288};
    tavctl::doctor::Limit core{0, tavctl::doctor::kUnlimited};
    int closeRange = 0;
    std::string archiverObstacle;
    tavctl::doctor::CommandOutput archiver{
        true, "\n7-Zip (a) 23.01 (x64) : Copyright (c) 1999-2023 Igor Pavlov : 2023-06-20\n"};
    std::string hashing;
    tavctl::doctor::MimeAnswer mime{"", "image/png"};
    tavctl::doctor::CurlFacts curlFacts{"7.88.1", "OpenSSL/3.0.11", true, true, true};
    tavctl::doctor::KerberosFacts kerberosFacts{"", "EXAMPLE.ORG", "", "", "", "", true};
    tavctl::doctor::Attempt connection{"", 0, 0.0021, 0};
    tavctl::doctor::Attempt queryAttempt{"", 200, 0.0472, 0.0316};
    std::vector<std::string> reached;

    std::string kernelRelease() override { return release; }
    tavctl::doctor::FileText read(const std::string& path) override
    {
        if (unreadable.count(path) != 0)
            return {EACCES, ""};
        const auto file = files.find(path);
        return file == files.end() ? tavctl::doctor::FileText{ENOENT, ""} : tavctl::doctor::FileText{0, file->second};
    }
    bool exists(const std::string& path) override { return existing.count(path) != 0; }
    bool isWritable(const std::string& /*path*/) override { return writable; }
    std::optional<std::string> environment(const std::string& name) override
    {
        const auto variable = variables.find(name);
        return variable == variables.end() ? std::nullopt : std::optional<std::string>(variable->second);
    }
    std::time_t now() override { return time; }
    tavctl::doctor::Limit descriptorLimit() override { return descriptors; }
    tavctl::doctor::Limit coreLimit() override { return core; }
    int closeRangeError() override { return closeRange; }
    std::string obstacleToRun(const std::string& /*program*/) override { return archiverObstacle; }
    tavctl::doctor::CommandOutput run(const std::vector<std::string>& /*argv*/) override { return archiver; }
    std::string hashingError() override { return hashing; }
    tavctl::doctor::MimeAnswer mimeTypeOf(const std::string& /*bytes*/) override { return mime; }
    tavctl::doctor::CurlFacts curl() override { return curlFacts; }
    tavctl::doctor::KerberosFacts kerberos() override { return kerberosFacts; }
    tavctl::doctor::Attempt connectTo(const std::string& proxy, long /*timeout*/) override
    {
        reached.push_back("proxy " + proxy);
        return connection;
    }
    tavctl::doctor::Attempt query(const tavctl::doctor::Questions& questions) override
    {
        reached.push_back("server " + questions.server);
        return queryAttempt;
    }
};

} // namespace TAV::test
