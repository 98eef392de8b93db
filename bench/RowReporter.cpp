#include "RowReporter.h"

#include <array>
#include <cstdio>
#include <ostream>
#include <string>

#include "Pair.h"
#include "Resident.h"

namespace TAV::bench
{
namespace
{

std::string formatted(const char* format, double value)
{
    std::array<char, 32> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), format, value));
    return text.data();
}

/// A CPU time with three digits that count.
std::string duration(double seconds)
{
    if (seconds < 1e-6)
        return formatted("%.0f ns", seconds * 1e9);
    if (seconds < 1e-3)
        return formatted(seconds < 1e-5 ? "%.2f us" : "%.0f us", seconds * 1e6);
    if (seconds < 1)
        return formatted(seconds < 1e-2 ? "%.2f ms" : "%.0f ms", seconds * 1e3);
    return formatted("%.2f s", seconds);
}

std::string amount(const benchmark::BenchmarkReporter::Run& run, const char* counter)
{
    const double value = run.counters.at(counter);
    return run.report_label == kMemoryLabel ? formatted("%.2f MB", value / kMegabyte) : duration(value);
}

std::string measured(const benchmark::BenchmarkReporter::Run& run)
{
    const double ratio = run.counters.at("ratio");
    const double target = run.counters.at("target");
    const std::string row = amount(run, "ours") + "\t" + amount(run, "theirs") + "\t" + formatted("%.3f", ratio);
    if (target == kNoTarget)
        return row + "\t\t";
    return row + "\t" + formatted("<= %.2f", target) + "\t" + (ratio <= target ? "yes" : "NO");
}

} // namespace

bool RowReporter::ReportContext(const Context&)
{
    return true;
}

void RowReporter::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs)
    {
        std::string names = run.run_name.function_name;
        names.replace(names.find(kBetweenNames), std::string(kBetweenNames).size(), "\t");
        const std::string row = run.error_occurred ? "not measured: " + run.error_message + "\t\t\t\t" : measured(run);
        GetOutputStream() << names << "\t" << row << std::endl;
    }
}

} // namespace TAV::bench
