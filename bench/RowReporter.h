#pragma once

#include <benchmark/benchmark.h>

#include <vector>

namespace TAV::bench
{

/// Prints one line for each pair, its cells separated by tabs: case, peer, library, peer's, ratio, target, reached. The
/// amounts and what follows are replaced by a reason if the pair could not be measured.
class RowReporter : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
};

} // namespace TAV::bench
