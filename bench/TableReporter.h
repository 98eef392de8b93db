#pragma once

#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <vector>

namespace TAV::bench
{

/// Collects the pairs and prints them as one Markdown table at the end. Says on standard error what it is at.
class TableReporter : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    static constexpr std::size_t kColumns = 7;
    using Row = std::array<std::string, kColumns>;

    void printRow(const Row& row, const std::array<std::size_t, kColumns>& widths);

    std::vector<Row> m_rows;
    unsigned int m_targets = 0;
    unsigned int m_reached = 0;
};

} // namespace TAV::bench
