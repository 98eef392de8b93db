#pragma once

namespace TAV::bench
{

// Each registers the pairs of one service.
void addCommandCases();
void addChecksumCases();
void addEncodingCases();
void addFileTypeCases();
void addCpuLimitCases();
void addQueryCases();
void addRenewalCases();

} // namespace TAV::bench
