#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "tavctl/doctor/Finding.h"
#include "tavctl/doctor/Host.h"

namespace tavctl::doctor
{

// Each check looks at one thing, and finds nothing if it was not asked for.
using Look = std::optional<Finding> (*)(Host& host, const Questions& questions);

std::optional<Finding> checkDescriptors(Host& host, const Questions& questions);
std::optional<Finding> checkKernel(Host& host, const Questions& questions);
std::optional<Finding> checkController(Host& host, const Questions& questions);
std::optional<Finding> checkHashing(Host& host, const Questions& questions);
std::optional<Finding> checkFileTypes(Host& host, const Questions& questions);
std::optional<Finding> checkArchiver(Host& host, const Questions& questions);
std::optional<Finding> checkLibcurl(Host& host, const Questions& questions);
std::optional<Finding> checkHttp2(Host& host, const Questions& questions);
std::optional<Finding> checkNegotiate(Host& host, const Questions& questions);
std::optional<Finding> checkCertificates(Host& host, const Questions& questions);
std::optional<Finding> checkProxy(Host& host, const Questions& questions);
std::optional<Finding> checkServer(Host& host, const Questions& questions);
std::optional<Finding> checkKerberosConfiguration(Host& host, const Questions& questions);
std::optional<Finding> checkRc4(Host& host, const Questions& questions);
std::optional<Finding> checkCoreDumps(Host& host, const Questions& questions);
std::optional<Finding> checkHidepid(Host& host, const Questions& questions);

struct Check
{
    const char* service; ///< those of one service follow each other
    const char* name;
    Look look;
};

/// All of them, in the order in which they are shown.
const std::vector<Check>& allChecks();

/// Makes all checks.
/// @param onEntry  called after each one that was asked for, as some take time; `isFirst` of its service
std::vector<Entry>
examine(Host& host, const Questions& questions, const std::function<void(const Entry& entry, bool isFirst)>& onEntry);

} // namespace tavctl::doctor
