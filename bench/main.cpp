#include <benchmark/benchmark.h>

#include "Cases.h"
#include "TableReporter.h"

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
    TAV::bench::TableReporter table;
    benchmark::RunSpecifiedBenchmarks(&table);
    return 0;
}
