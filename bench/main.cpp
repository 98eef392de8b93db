#include <benchmark/benchmark.h>

#include "Cases.h"
#include "RowReporter.h"

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    TAV::bench::addCommandCases();
    TAV::bench::addChecksumCases();
    TAV::bench::addEncodingCases();
    TAV::bench::addFileTypeCases();
#ifdef TAV_BENCH_HAS_CPU_LIMIT
    TAV::bench::addCpuLimitCases();
#endif
#ifdef TAV_BENCH_HAS_QUERIES
    TAV::bench::addQueryCases();
#endif
#ifdef TAV_BENCH_HAS_RENEWALS
    TAV::bench::addRenewalCases();
#endif
    TAV::bench::RowReporter rows;
    benchmark::RunSpecifiedBenchmarks(&rows);
    return 0;
}
