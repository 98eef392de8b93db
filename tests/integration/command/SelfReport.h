#pragma once

#include <map>
#include <string>
#include <vector>

#include "DescriptorModel.h"

namespace TAV::test
{

/// What tav_self_report wrote.
struct SelfReport
{
    DescriptorTable table;
    std::map<std::string, std::string> signals; ///< "SIGTERM" to "ignored", "default" or "handled"
    std::vector<std::string> arguments;
    std::vector<std::string> environment; ///< "NAME=value"
};

SelfReport parseSelfReport(const std::string& text);

} // namespace TAV::test
