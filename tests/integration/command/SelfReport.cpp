#include "SelfReport.h"

#include <sstream>

namespace TAV::test
{
namespace
{

std::string fromHex(const std::string& hex)
{
    std::string text;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        text.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return text;
}

} // namespace

SelfReport parseSelfReport(const std::string& text)
{
    SelfReport report;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
    {
        const std::size_t first = line.find(' ');
        const std::string kind = line.substr(0, first);
        const std::string rest = line.substr(first + 1);
        const std::size_t second = rest.find(' ');
        if (kind == "fd")
            report.table[std::stoi(rest)] = rest.substr(second + 1);
        else if (kind == "signal")
            report.signals[rest.substr(0, second)] = rest.substr(second + 1);
        else if (kind == "arg")
            report.arguments.push_back(fromHex(rest));
        else if (kind == "env")
            report.environment.push_back(fromHex(rest));
    }
    return report;
}

} // namespace TAV::test
