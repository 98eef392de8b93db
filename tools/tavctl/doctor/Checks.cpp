#include "tavctl/doctor/Checks.h"

#include <utility>

namespace tavctl::doctor
{

const std::vector<Check>& allChecks()
{
    static const std::vector<Check> checks{
        {"Commands", "descriptors", checkDescriptors},
        {"CPU limits", "kernel", checkKernel},
        {"CPU limits", "controller", checkController},
        {"Hashing", "digests", checkHashing},
        {"File types", "libmagic", checkFileTypes},
        {"Archives", "7-zip", checkArchiver},
        {"HTTPS queries", "libcurl", checkLibcurl},
        {"HTTPS queries", "http/2", checkHttp2},
        {"HTTPS queries", "negotiate", checkNegotiate},
        {"HTTPS queries", "ca", checkCertificates},
        {"HTTPS queries", "proxy", checkProxy},
        {"HTTPS queries", "server", checkServer},
        {"Kerberos", "config", checkKerberosConfiguration},
        {"Kerberos", "rc4", checkRc4},
        {"Secrets", "core dumps", checkCoreDumps},
        {"Secrets", "hidepid", checkHidepid},
    };
    return checks;
}

std::vector<Entry>
examine(Host& host, const Questions& questions, const std::function<void(const Entry& entry, bool isFirst)>& onEntry)
{
    std::vector<Entry> entries;
    for (const Check& check : allChecks())
    {
        std::optional<Finding> finding = check.look(host, questions);
        if (!finding)
            continue;
        const bool isFirst = entries.empty() || entries.back().service != check.service;
        entries.push_back({check.service, check.name, std::move(*finding)});
        onEntry(entries.back(), isFirst);
    }
    return entries;
}

} // namespace tavctl::doctor
