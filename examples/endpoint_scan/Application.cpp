#include "endpoint_scan/Application.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>

#include "common/GuardedUtils.h"
#include "common/KernelVersion.h"
#include "common/Text.h"
#include "endpoint_scan/CpuLimit.h"
#include "endpoint_scan/ExitCodes.h"
#include "endpoint_scan/Interrupt.h"
#include "endpoint_scan/Logger.h"
#include "endpoint_scan/Options.h"
#include "endpoint_scan/Outcome.h"
#include "endpoint_scan/Output.h"
#include "endpoint_scan/Progress.h"
#include "endpoint_scan/Quarantine.h"
#include "endpoint_scan/Report.h"
#include "endpoint_scan/Scanner.h"
#include "endpoint_scan/Sources.h"
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

    /// A scan makes the quarantine. It adds nothing to one that is not in order; that must not keep people from what
    /// is in there, though.
    Quarantine openQuarantine(const Options& options, const std::string& password)
    {
        m_logger.hide(password);
        if (options.command == Command::Scan)
            Quarantine::make(options.quarantine);
        Quarantine quarantine(options.quarantine, m_archives, password);
        if (!quarantine.leftover().empty() && options.command == Command::Scan)
            throw std::runtime_error(quarantine.leftover());
        complain(quarantine.leftover());
        return quarantine;
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

std::string now()
{
    return timeText(std::time(nullptr));
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
        quarantineDenied(quarantine, report, isInterrupted);
    report.finished = now();
    report.exitCode = isComplete ? exitCodeOf(report.findings, isInterrupted()) : kInterrupted;
    tell(options.json, scanJson(report), scanTable(report));
    return report.exitCode;
}

/// Does something with an archive, and tells on standard error if that gives nothing.
bool attempt(const std::string& id, const std::function<void()>& work)
{
    try
    {
        work();
        return true;
    }
    catch (const std::exception& error)
    {
        complain(id + ": " + error.what());
        return false;
    }
}

bool isComplete(const RestoreResult& result)
{
    return std::all_of(
        result.problems.begin(), result.problems.end(), [](const std::string& text) { return text.empty(); });
}

std::vector<std::string> archivesMeant(const Options& options, const Quarantine& quarantine)
{
    if (options.archive.empty())
        return quarantine.ids();
    return {options.archive};
}

int runRestore(const Options& options)
{
    const std::string password = passwordFor(options);
    noteInterrupts();
    Services services(options);
    Quarantine quarantine = services.openQuarantine(options, password);
    std::vector<RestoreResult> results;
    const auto restore = [&](const std::string& id)
    { results.push_back(quarantine.restore(id, options.target, isInterrupted)); };
    bool isDone = true;
    for (const std::string& id : archivesMeant(options, quarantine))
        isDone = !isInterrupted() && attempt(id, [&] { restore(id); }) && isDone;
    isDone = isDone && std::all_of(results.begin(), results.end(), isComplete);
    int exitCode = isDone ? kClean : kQuarantineFailed;
    if (!isDone && isInterrupted())
        exitCode = kInterrupted;
    tell(options.json, restoreJson(results, exitCode), restoreTable(results));
    return exitCode;
}

int runList(const Options& options)
{
    Services services(options);
    const Quarantine quarantine = services.openQuarantine(options, "");
    std::vector<Record> records;
    bool isDone = true;
    for (const std::string& id : quarantine.ids())
        isDone = attempt(id, [&] { records.push_back(quarantine.record(id)); }) && isDone;
    tell(options.json, listJson(records), listTable(records));
    return isDone ? kClean : kFailure;
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
    try
    {
        const std::optional<Options> options = parseOptions(argc, argv);
        return options ? perform(*options) : kClean;
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
