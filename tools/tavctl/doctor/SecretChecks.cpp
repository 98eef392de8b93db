// Where a secret may leak: hints, as no service depends on them.
#include "common/Text.h"
#include "tavctl/doctor/Checks.h"
#include "tavctl/doctor/Mounts.h"

namespace tavctl::doctor
{
namespace
{

std::string firstLine(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

} // namespace

std::optional<Finding> checkCoreDumps(Host& host, const Questions& /*questions*/)
{
    const std::string pattern = firstLine(host.read("/proc/sys/kernel/core_pattern").text);
    const std::vector<std::string> advice{"the Kerberos password and query bodies stand in a daemon's memory:",
                                          "call prctl(PR_SET_DUMPABLE, 0) in it, or set LimitCORE=0 in its unit"};
    // The kernel hands a dump to a program whatever the limit is.
    if (!pattern.empty() && pattern.front() == '|')
    {
        const std::string program = pattern.substr(1, pattern.find(' ') - 1);
        return Finding{
            State::Note, "a crash is handed to " + programs::printable(program) + ", whatever the limit", advice};
    }
    if (host.coreLimit().soft == 0)
        return Finding{State::Ok, "off (RLIMIT_CORE is 0)", {}};
    return Finding{State::Note, "on: a crash writes the memory to a file", advice};
}

std::optional<Finding> checkHidepid(Host& host, const Questions& /*questions*/)
{
    std::string value;
    for (const Mount& mount : parseMounts(host.read("/proc/self/mounts").text))
    {
        if (mount.type == "proc" && mount.place == "/proc")
            value = mount.valueOf("hidepid");
    }
    if (!value.empty() && value != "0" && value != "off")
        return Finding{State::Ok, "/proc hides command lines from other users (hidepid=" + value + ")", {}};
    return Finding{State::Note,
                   "every local user can read command lines, archive passwords among them",
                   {"mount -o remount,hidepid=2 /proc, or have no other users on this host"}};
}

} // namespace tavctl::doctor
