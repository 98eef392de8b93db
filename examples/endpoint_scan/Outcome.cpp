#include "endpoint_scan/Outcome.h"

#include <utility>

#include "endpoint_scan/ExitCodes.h"

namespace endpointscan
{

void quarantineDenied(Quarantine& quarantine, ScanReport& report, const std::function<bool()>& isCancelled)
{
    std::vector<Finding*> denied;
    std::vector<RecordEntry> entries;
    for (Finding& finding : report.findings)
    {
        if (finding.verdict != Verdict::Denied)
            continue;
        denied.push_back(&finding);
        entries.push_back({finding.path, "", finding.facts});
    }
    if (denied.empty())
        return;
    const StoreResult result = quarantine.store(report.root, std::move(entries), isCancelled);
    report.archive = result.archive;
    report.record = result.record;
    for (std::size_t i = 0; i < denied.size(); ++i)
    {
        denied[i]->reason = result.problems[i];
        if (result.setAside.count(i) > 0)
            denied[i]->verdict = Verdict::SetAside;
        else if (result.problems[i].empty())
            denied[i]->verdict = Verdict::Quarantined;
    }
}

int exitCodeOf(const std::vector<Finding>& findings, bool wasInterrupted)
{
    if (countOf(findings, Verdict::SetAside) > 0)
        return kQuarantineFailed; // also if interrupted: that would mean that nothing is half done
    if (countOf(findings, Verdict::Denied) > 0)
        return wasInterrupted ? kInterrupted : kQuarantineFailed;
    if (countOf(findings, Verdict::Failed) > 0)
        return kNotAllExamined;
    if (countOf(findings, Verdict::Unknown) > 0)
        return kVerdictsMissing;
    return countOf(findings, Verdict::Quarantined) > 0 ? kDenied : kClean;
}

} // namespace endpointscan
