#include "endpoint_scan/Report.h"

#include <algorithm>
#include <array>
#include <optional>

#include "common/Text.h"

namespace endpointscan
{
namespace
{

using Row = std::vector<std::string>;

constexpr std::size_t kShownDigest = 12;

struct VerdictNames
{
    Verdict verdict;
    const char* inTable;
    const char* inJson;
};

constexpr std::array<VerdictNames, 7> kVerdicts{{
    {Verdict::Clean, "clean", "clean"},
    {Verdict::Denied, "DENIED, IN PLACE", "denied"},
    {Verdict::SetAside, "DENIED, SET ASIDE", "set_aside"},
    {Verdict::Quarantined, "QUARANTINED", "quarantined"},
    {Verdict::Unknown, "UNKNOWN", "unknown"},
    {Verdict::Skipped, "skipped", "skipped"},
    {Verdict::Failed, "NOT EXAMINED", "failed"},
}};

const VerdictNames& namesOf(Verdict verdict)
{
    return *std::find_if(
        kVerdicts.begin(), kVerdicts.end(), [verdict](const VerdictNames& names) { return names.verdict == verdict; });
}

/// Columns as wide as their widest text; the last one is not filled up.
/// @param whenEmpty  what to say instead of a heading alone
std::string table(const std::vector<Row>& rows, const std::string& whenEmpty)
{
    if (rows.size() == 1)
        return whenEmpty;
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const Row& row : rows)
    {
        for (std::size_t i = 0; i + 1 < row.size(); ++i)
            widths[i] = std::max(widths[i], programs::columnsOf(row[i]));
    }
    std::string text;
    for (const Row& row : rows)
    {
        for (std::size_t i = 0; i + 1 < row.size(); ++i)
            text += row[i] + std::string(widths[i] - programs::columnsOf(row[i]) + 2, ' ');
        text += row.back() + "\n";
    }
    return text;
}

std::string withReason(const std::string& path, const std::string& reason)
{
    return programs::printable(path) + (reason.empty() ? "" : "  (" + programs::printable(reason) + ")");
}

std::string milliseconds(const std::optional<AskTimes>& times, std::uint16_t AskTimes::*which)
{
    return times ? std::to_string((*times).*which) : "-";
}

Row rowOf(const Finding& finding)
{
    const FileFacts& facts = finding.facts;
    const bool isExamined = !facts.sha256.empty();
    return {namesOf(finding.verdict).inTable,
            finding.source.empty() ? "-" : finding.source,
            milliseconds(finding.times, &AskTimes::totalMs),
            milliseconds(finding.times, &AskTimes::tlsConnectMs),
            isExamined ? facts.mimeType : "-",
            isExamined ? facts.sha256.substr(0, kShownDigest) : "-",
            withReason(finding.path, finding.reason)};
}

Json toJson(const Finding& finding)
{
    Json object;
    addBytes(object, "path", finding.path);
    object["verdict"] = namesOf(finding.verdict).inJson;
    if (!finding.reason.empty())
        object["reason"] = programs::printable(finding.reason);
    if (!finding.source.empty())
        object["source"] = finding.source;
    if (finding.times)
        object.update({{"total_ms", finding.times->totalMs}, {"tls_connect_ms", finding.times->tlsConnectMs}});
    const FileFacts& facts = finding.facts;
    if (!facts.sha256.empty())
    {
        object.update({{"size", facts.size},
                       {"mode", modeText(facts.mode)},
                       {"modified", timeText(facts.modified.tv_sec)},
                       {"mime_type", facts.mimeType},
                       {"md5", facts.md5},
                       {"sha1", facts.sha1},
                       {"sha256", facts.sha256}});
    }
    return object;
}

Json summaryOf(const std::vector<Finding>& findings)
{
    Json summary;
    for (const VerdictNames& names : kVerdicts)
        summary[names.inJson] = countOf(findings, names.verdict);
    return summary;
}

/// "3 entries: 2 clean, 1 skipped".
std::string countsText(const std::vector<Finding>& findings)
{
    std::string text = std::to_string(findings.size()) + (findings.size() == 1 ? " entry" : " entries");
    const char* separator = ": ";
    for (const VerdictNames& names : kVerdicts)
    {
        const std::size_t count = countOf(findings, names.verdict);
        if (count == 0)
            continue;
        text += separator + std::to_string(count) + " " + names.inTable;
        separator = ", ";
    }
    return text;
}

std::string summaryText(const ScanReport& report)
{
    std::string text = countsText(report.findings);
    if (report.cpuLimit.percent != 0)
        text += std::string("\nCPU limit:          ") + (report.cpuLimit.isInForce ? "" : "NOT IN FORCE: ") +
                report.cpuLimit.explanation;
    if (!report.archive.empty())
        text += "\nquarantine archive: " + programs::printable(report.archive) +
                "\nits record:         " + programs::printable(report.record);
    return text + "\n";
}

Json recordJson(const Record& record)
{
    return Json::parse(toText(record));
}

} // namespace

std::size_t countOf(const std::vector<Finding>& findings, Verdict verdict)
{
    return static_cast<std::size_t>(std::count_if(
        findings.begin(), findings.end(), [verdict](const Finding& finding) { return finding.verdict == verdict; }));
}

std::string scanTable(const ScanReport& report)
{
    std::vector<Row> rows{{"RESULT", "SOURCE", "MS", "TLS MS", "TYPE", "SHA-256", "FILE"}};
    std::transform(report.findings.begin(), report.findings.end(), std::back_inserter(rows), rowOf);
    return table(rows, "") + (report.findings.empty() ? "" : "\n") + summaryText(report);
}

Json scanJson(const ScanReport& report)
{
    Json files = Json::array();
    std::transform(report.findings.begin(),
                   report.findings.end(),
                   std::back_inserter(files),
                   [](const Finding& finding) { return toJson(finding); });
    Json object;
    addBytes(object, "root", report.root);
    if (report.server.empty())
    {
        addBytes(object, "deny_list", report.denyList);
        object["denied_digests"] = report.denied;
    }
    else
    {
        object["server"] = report.server;
        if (!report.proxy.empty())
            object["proxy"] = report.proxy;
    }
    object.update({{"started", report.started},
                   {"finished", report.finished},
                   {"exit_code", report.exitCode},
                   {"summary", summaryOf(report.findings)}});
    const CpuLimit& limit = report.cpuLimit;
    if (limit.percent != 0)
        object["cpu_limit"] = {
            {"percent", limit.percent}, {"in_force", limit.isInForce}, {"explanation", limit.explanation}};
    if (!report.archive.empty())
    {
        addBytes(object, "archive", report.archive);
        addBytes(object, "record", report.record);
    }
    object["files"] = std::move(files);
    return object;
}

std::string restoreTable(const std::vector<RestoreResult>& results)
{
    std::vector<Row> rows{{"RESULT", "ARCHIVE", "FILE"}};
    for (const RestoreResult& result : results)
    {
        for (std::size_t i = 0; i < result.problems.size(); ++i)
            rows.push_back({result.problems[i].empty() ? "restored" : "NOT RESTORED",
                            result.record.id,
                            withReason(result.record.files[i].path, result.problems[i])});
    }
    return table(rows, "nothing was restored\n");
}

Json restoreJson(const std::vector<RestoreResult>& results, int exitCode)
{
    Json files = Json::array();
    for (const RestoreResult& result : results)
    {
        for (std::size_t i = 0; i < result.problems.size(); ++i)
        {
            Json file;
            addBytes(file, "path", result.record.files[i].path);
            file.update({{"archive", result.record.id}, {"restored", result.problems[i].empty()}});
            if (!result.problems[i].empty())
                file["reason"] = programs::printable(result.problems[i]);
            files.push_back(std::move(file));
        }
    }
    return {{"exit_code", exitCode}, {"files", std::move(files)}};
}

std::string listTable(const std::vector<Record>& records)
{
    std::vector<Row> rows{{"ARCHIVE", "QUARANTINED", "TYPE", "SIZE", "MODE", "CAME FROM"}};
    for (const Record& record : records)
    {
        for (const RecordEntry& entry : record.files)
            rows.push_back({record.id,
                            record.created,
                            entry.facts.mimeType,
                            std::to_string(entry.facts.size),
                            modeText(entry.facts.mode),
                            programs::printable(placeOf(record, entry))});
    }
    return table(rows, "nothing to list\n");
}

Json listJson(const std::vector<Record>& records)
{
    Json list = Json::array();
    std::transform(records.begin(), records.end(), std::back_inserter(list), recordJson);
    return {{"archives", std::move(list)}};
}

} // namespace endpointscan
