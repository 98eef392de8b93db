#include "endpoint_scan/Application.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "common/GuardedUtils.h"
#include "common/KernelVersion.h"
#include "common/Text.h"
#include "endpoint_scan/CpuLimit.h"
#include "endpoint_scan/ExitCodes.h"
#include "endpoint_scan/Interrupt.h"
#include "endpoint_scan/Logger.h"
#include "endpoint_scan/Options.h"
#include "endpoint_scan/Progress.h"
#include "endpoint_scan/Quarantine.h"
#include "endpoint_scan/Report.h"
#include "endpoint_scan/Scanner.h"
#include "endpoint_scan/Sources.h"
#include "endpoint_scan/WholeFiles.h"
#include "tav/FMXException.h"
#include "tav/QelArchiveUtils.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/logging/MaskingLogger.h"
#include "tav/logging/SpdlogLogger.h"

namespace endpointscan
{
namespace
{

void complain(const std::string& message)
{
    static_cast<void>(std::fputs(("endpoint_scan: " + message + "\n").c_str(), stderr));
}

/// The services, wired up as a daemon does it once at its start.
class Services
{
public:
    explicit Services(const Options& options)
        : m_lines(makeSink(options.logFile, options.isVerbose)), m_logger(m_lines),
          m_utils(std::make_shared<TAV::TAVUtils>(std::make_shared<TAV::TAVSystemUtils>(),
                                                  m_logger,
                                                  std::make_shared<TAV::kernelVersion>(programs::runningKernel()))),
          m_archives(m_logger, std::make_shared<programs::GuardedUtils>(m_utils))
    {
    }

    TAV::ILogger& logger() { return m_logger; }

    Quarantine openQuarantine(const Options& options, const std::string& password)
    {
        m_logger.hide(password);
        return {options.quarantine, m_archives, password};
    }

    /// Says on standard error, too, if there will be no limit: a scan can be long.
    CpuLimit limitCpu(unsigned short percent)
    {
        CpuLimit limit = limitOwnCpu(m_logger, percent);
        if (!limit.isInForce)
            complain("no CPU limit: " + limit.explanation);
        return limit;
    }

private:
    TAV::SpdlogLogger m_lines;
    TAV::MaskingLogger m_logger;
    std::shared_ptr<TAV::ITAVUtils> m_utils;
    TAV::QelArchiveUtils m_archives;
};

std::string passwordFor(const Options& options)
{
    programs::SecretSource source = options.password;
    source.prompt = !source.isGiven();
    try
    {
        return programs::readPassword(source);
    }
    catch (const programs::SecretError& error)
    {
        throw UsageError(std::string("password: ") + error.what());
    }
}

void print(const std::string& text)
{
    if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw std::runtime_error("cannot write to standard output");
}

void writeReport(const Options& options, const Json& report)
{
    constexpr int kIndent = 2;
    if (!options.json.empty())
        writeAtomically(options.json, report.dump(kIndent) + "\n");
}

std::string now()
{
    return timeText(std::time(nullptr));
}

/// Moves what is denied into the quarantine and notes in each finding what became of it.
void quarantineDenied(Quarantine& quarantine, ScanReport& report)
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
    const StoreResult result = quarantine.store(report.root, std::move(entries), isInterrupted);
    report.archive = result.archive;
    report.record = result.record;
    for (std::size_t i = 0; i < denied.size(); ++i)
    {
        denied[i]->reason = result.problems[i];
        if (result.problems[i].empty())
            denied[i]->verdict = Verdict::Quarantined;
    }
}

int exitCodeOf(const std::vector<Finding>& findings)
{
    if (countOf(findings, Verdict::Denied) > 0)
        return isInterrupted() ? kInterrupted : kQuarantineFailed;
    if (countOf(findings, Verdict::Failed) > 0)
        return kNotAllExamined;
    if (countOf(findings, Verdict::Unknown) > 0)
        return kVerdictsMissing;
    return countOf(findings, Verdict::Quarantined) > 0 ? kDenied : kClean;
}

std::vector<Finding>
scanWithProgress(const Options& options, int root, const Quarantine& quarantine, Verdicts& verdicts)
{
    Progress progress;
    ScanSettings settings;
    settings.root = root;
    settings.excluded = {quarantine.identity()};
    settings.threads = options.threads;
    settings.isCancelled = isInterrupted;
    settings.onProgress = [&progress](std::size_t done, std::size_t all) { progress.show(done, all); };
    return scan(settings, verdicts);
}

int runScan(const Options& options)
{
    ScanReport report;
    Services services(options);
    std::unique_ptr<Verdicts> verdicts = makeVerdicts(options, services.logger(), report);
    if (!report.ticketObstacle.empty())
        complain(report.ticketObstacle);
    std::error_code error;
    report.root = std::filesystem::canonical(options.directory, error).string();
    if (error || !std::filesystem::is_directory(report.root, error))
        throw UsageError(programs::printable(options.directory) + ": not a directory");
    const std::string password = passwordFor(options);
    noteInterrupts();

    Quarantine quarantine = services.openQuarantine(options, password);
    const Fd root = openDirectory(report.root);
    if (options.cpuLimit != 0)
        report.cpuLimit = services.limitCpu(options.cpuLimit);
    report.started = now();
    report.findings = scanWithProgress(options, root.get(), quarantine, *verdicts);
    verdicts.reset(); // its connections are not needed while commands run
    const bool isComplete = !isInterrupted();
    if (isComplete)
        quarantineDenied(quarantine, report);
    report.finished = now();
    report.exitCode = isComplete ? exitCodeOf(report.findings) : kInterrupted;
    print(scanTable(report));
    writeReport(options, scanJson(report));
    return report.exitCode;
}

/// Restores one archive, and tells on standard error if it gives nothing.
bool restoreInto(const Options& options,
                 Quarantine& quarantine,
                 const std::string& id,
                 std::vector<RestoreResult>& results)
{
    try
    {
        results.push_back(quarantine.restore(id, options.target, isInterrupted));
        const std::vector<std::string>& problems = results.back().problems;
        return std::all_of(problems.begin(), problems.end(), [](const std::string& text) { return text.empty(); });
    }
    catch (const std::exception& error)
    {
        complain(error.what());
        return false;
    }
}

int runRestore(const Options& options)
{
    const std::string password = passwordFor(options);
    noteInterrupts();
    Services services(options);
    Quarantine quarantine = services.openQuarantine(options, password);
    std::vector<RestoreResult> results;
    bool isComplete = true;
    const std::vector<std::string> ids =
        options.archive.empty() ? quarantine.ids() : std::vector<std::string>(1, options.archive);
    for (const std::string& id : ids)
        isComplete = !isInterrupted() && restoreInto(options, quarantine, id, results) && isComplete;
    int exitCode = isComplete ? kClean : kQuarantineFailed;
    if (!isComplete && isInterrupted())
        exitCode = kInterrupted;
    print(restoreTable(results));
    writeReport(options, restoreJson(results, exitCode));
    return exitCode;
}

int runList(const Options& options)
{
    Services services(options);
    const Quarantine quarantine = services.openQuarantine(options, "");
    std::vector<Record> records;
    for (const std::string& id : quarantine.ids())
        records.push_back(quarantine.record(id));
    print(listTable(records));
    writeReport(options, listJson(records));
    return kClean;
}

int perform(const Options& options)
{
    switch (options.command)
    {
    case Command::Scan:
        return runScan(options);
    case Command::Restore:
        return runRestore(options);
    case Command::List:
        return runList(options);
    }
    return kFailure;
}

} // namespace

int run(int argc, const char* const* argv)
{
    int exitCode = kClean;
    const std::optional<Options> options = parseOptions(argc, argv, exitCode);
    if (!options)
        return exitCode;
    try
    {
        return perform(*options);
    }
    catch (const UsageError& error)
    {
        complain(error.what());
        return kUsage;
    }
    catch (const TAV::FMXException& error)
    {
        complain(error.message);
    }
    catch (const std::exception& error)
    {
        complain(error.what());
    }
    return isInterrupted() ? kInterrupted : kFailure;
}

} // namespace endpointscan
