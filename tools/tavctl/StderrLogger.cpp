#include "tavctl/StderrLogger.h"

#include <cstdio>

#include "common/Text.h"

namespace tavctl
{

void StderrLogger::log(int level, std::string message)
{
    log(level, "library", message);
}

void StderrLogger::log(int level, std::string component, const std::string& message)
{
    if (!m_enabled)
        return;
    const std::string line =
        "[" + std::to_string(level) + "] " + component + ": " + programs::printable(message) + "\n";
    static_cast<void>(std::fputs(line.c_str(), stderr));
}

} // namespace tavctl
