#include "TableReporter.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

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

} // namespace

bool TableReporter::ReportContext(const Context&)
{
    m_rows = {{"case", "peer", "library", "peer's", "ratio", "target", "reached"}};
    return true;
}

void TableReporter::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs)
    {
        const std::string& name = run.run_name.function_name;
        const std::size_t separator = name.find(kBetweenNames);
        Row row{name.substr(0, separator), name.substr(separator + std::string(kBetweenNames).size())};
        if (run.error_occurred)
        {
            row[2] = "not measured: " + run.error_message;
        }
        else
        {
            const double ratio = run.counters.at("ratio");
            const double target = run.counters.at("target");
            row[2] = amount(run, "ours");
            row[3] = amount(run, "theirs");
            row[4] = formatted("%.3f", ratio);
            if (target != kNoTarget)
            {
                row[5] = formatted("<= %.2f", target);
                row[6] = ratio <= target ? "yes" : "NO";
                ++m_targets;
                m_reached += ratio <= target ? 1 : 0;
            }
        }
        GetErrorStream() << name << ": " << (row[4].empty() ? row[2] : row[4]) << std::endl;
        m_rows.push_back(row);
    }
}

void TableReporter::printRow(const Row& row, const std::array<std::size_t, kColumns>& widths)
{
    for (std::size_t column = 0; column < kColumns; ++column)
    {
        std::string cell = row[column];
        cell.resize(widths[column], ' ');
        GetOutputStream() << "| " << cell << " ";
    }
    GetOutputStream() << "|\n";
}

void TableReporter::Finalize()
{
    std::array<std::size_t, kColumns> widths{};
    Row rule;
    for (std::size_t column = 0; column < kColumns; ++column)
    {
        for (const Row& row : m_rows)
            widths[column] = std::max(widths[column], row[column].size());
        rule[column].assign(widths[column], '-');
    }
    m_rows.insert(m_rows.begin() + 1, rule);
    for (const Row& row : m_rows)
        printRow(row, widths);
    GetOutputStream() << "\n" << m_reached << " of " << m_targets << " targets reached.\n" << std::flush;
}

} // namespace TAV::bench
