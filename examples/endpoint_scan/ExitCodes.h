#pragma once

namespace endpointscan
{

// What a caller learns from the exit status; --help and docs/endpoint_scan.md list the same.
constexpr int kClean = 0;             ///< nothing denied; restored; listed
constexpr int kDenied = 1;            ///< denied files were found, and all of them are in the quarantine now
constexpr int kUsage = 2;             ///< bad arguments, a bad deny list, or no place for the report
constexpr int kNotAllExamined = 3;    ///< some files could not be examined
constexpr int kQuarantineFailed = 4;  ///< a denied file is not in the quarantine, or a file was not restored
constexpr int kFailure = 5;           ///< the work could not be done, or a report could not be written
constexpr int kVerdictsMissing = 6;   ///< the server gave no verdict on some files
constexpr int kInterrupted = 128 + 2; ///< SIGINT or SIGTERM; nothing is half done

} // namespace endpointscan
