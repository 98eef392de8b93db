#include "endpoint_scan/Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <thread>

#include "endpoint_scan/Output.h"
#include "endpoint_scan/Types.h"

namespace endpointscan
{
namespace
{

constexpr unsigned int kMostThreads = 256;
constexpr int kLongestTimeout = 60; // so that the times of all answers fit into the client's 16 bits

constexpr const char* kAbout =
    "Finds denied files below a directory and moves them into a password-protected quarantine.";
constexpr const char* kFooter =
    "Exit codes:\n"
    "  0    nothing denied was found; everything was restored; the list was printed\n"
    "  1    denied files were found, and all of them are in the quarantine now\n"
    "  2    bad arguments, a bad deny list, or no place for the report; nothing was done\n"
    "  3    some files could not be examined (denied ones are in the quarantine)\n"
    "  4    a denied file is not in the quarantine, or a file was not restored\n"
    "  5    the work could not be done, a report not be written, or a record not be read; standard error tells why\n"
    "  6    the server gave no verdict on some files (denied ones are in the quarantine)\n"
    "  130  interrupted by SIGINT or SIGTERM; nothing is half done\n"
    "\n"
    "Examples:\n"
    "  endpoint_scan scan /home --deny-list deny.txt --quarantine /var/lib/q\n"
    "  endpoint_scan list --quarantine /var/lib/q\n"
    "  endpoint_scan restore --quarantine /var/lib/q --to /tmp/back\n"
    "  endpoint_scan SUBCOMMAND --help   more about each one";

const std::string kPasswordNote =
    "The archive tool gets the password on its command line, where every user of the machine can read it while the "
    "tool\n"
    "runs (unless /proc is mounted with hidepid).\n";
const std::string kCodesNote = "The exit codes stand in endpoint_scan --help.\n"
                               "\n"
                               "Examples:\n";

const std::string kScanNotes =
    "The deny list is a text with one SHA-256 digest per line; '#' begins a comment.\n"
    "A server is asked for each file, by its SHA-256. If it cannot tell, the file is left alone and reported as "
    "UNKNOWN.\n";
const std::string kScanExamples =
    "  endpoint_scan scan /home --deny-list deny.txt --quarantine /var/lib/q --password-file pw.txt --json "
    "report.json\n"
    "  endpoint_scan scan /home --server localhost:8443 --ca ca.pem --quarantine /var/lib/q --password-file pw.txt\n"
    "  endpoint_scan scan /home --server rep.example.org --ca ca.pem --proxy proxy.example.org:3128 "
    "--krb-principal scan@EXAMPLE.ORG\n"
    "                --krb-password-file krb.txt --quarantine /var/lib/q --password-file pw.txt";
const std::string kRestoreExamples =
    "  endpoint_scan restore --quarantine /var/lib/q --to /tmp/back --password-file pw.txt\n"
    "  endpoint_scan restore --quarantine /var/lib/q --to /tmp/back --archive 20260131T120000Z-1";
const std::string kListExamples = "  endpoint_scan list --quarantine /var/lib/q\n"
                                  "  endpoint_scan list --quarantine /var/lib/q --json -";

unsigned int defaultThreads()
{
    return std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
}

std::string obstacleToName(const std::string& name)
{
    return name.empty() ? "the name is missing" : "";
}

/// An option whose value is not empty, which would mean that it is missing.
CLI::Option* addText(CLI::App& command, const std::string& name, std::string& value, const std::string& description)
{
    return command.add_option(name, value, description)->check(obstacleToName);
}

void addQuarantine(CLI::App& command, Options& options)
{
    addText(command, "--quarantine", options.quarantine, "The directory of the archives")->required();
}

void addPassword(CLI::App& command, Options& options)
{
    CLI::Option_group* group =
        command.add_option_group("Password", "Where the archives' password comes from; the terminal without these");
    addText(*group, "--password-file", options.password.file, "A file that holds the password");
    addText(*group, "--password-env", options.password.environment, "An environment variable that holds the password");
    group->require_option(0, 1);
}

void addReport(CLI::App& command, Options& options)
{
    addText(command,
            "--json",
            options.json,
            "Write a report into this file, whole or not at all; - prints it in place of the table")
        ->check(obstacleToReport);
}

void addProxy(CLI::App& command, Options& options, CLI::Option* server)
{
    programs::KrbAccount& account = options.account;
    CLI::Option* proxy =
        command.add_option("--proxy", options.proxy, "HOST:PORT of a proxy to the server")->needs(server);
    CLI::Option* principal =
        addText(command, "--krb-principal", account.principal, "The account, USER@REALM, whose ticket the proxy gets")
            ->needs(proxy);
    principal->needs(
        addText(command, "--krb-password-file", account.password.file, "A file that holds the account's password")
            ->needs(principal));
    addText(command, "--krb-keytab", account.keytab, "Where its keytab is while this runs; a private place if missing")
        ->needs(principal);
    addText(command,
            "--krb-cache",
            account.cache,
            "Where its tickets are while this runs; the same. A path without a colon")
        ->check(programs::obstacleToCache)
        ->needs(principal);
}

void addSource(CLI::App& command, Options& options)
{
    CLI::Option_group* source = command.add_option_group("Verdicts", "Who tells which files are denied");
    addText(*source, "--deny-list", options.denyList, "A file of the denied files' digests");
    CLI::Option* server = source->add_option("--server", options.server, "HOST or HOST:PORT of a reputation server");
    source->require_option(1);
    CLI::Option* ca =
        addText(command, "--ca", options.caFile, "The certificates (PEM) that the server must be signed with")
            ->needs(server);
    server->needs(ca);
    command.add_option("--timeout", options.queryTimeout, "Seconds for each question to the server")
        ->needs(server)
        ->check(CLI::Range(1, kLongestTimeout))
        ->capture_default_str();
    addProxy(command, options, server);
}

void addScan(CLI::App& app, Options& options)
{
    CLI::App* command = app.add_subcommand("scan", "Examine every file, and move the denied ones into the quarantine");
    addText(*command, "DIR", options.directory, "The directory; symbolic links in it are not followed")->required();
    addSource(*command, options);
    addQuarantine(*command, options);
    command->add_option("--threads", options.threads, "How many threads examine files; one per processor if missing")
        ->check(CLI::Range(1U, kMostThreads));
    command
        ->add_option("--cpu-limit", options.cpuLimit, "Percentage of the whole machine's processor time to keep within")
        ->check(CLI::Range(1, 65535));
    addReport(*command, options);
    addPassword(*command, options);
    command->footer(kScanNotes + kPasswordNote + kCodesNote + kScanExamples);
    command->callback(
        [&options, command]
        {
            options.command = Command::Scan;
            options.isProxyGiven = command->count("--proxy") > 0;
        });
}

void addRestore(CLI::App& app, Options& options)
{
    CLI::App* command = app.add_subcommand("restore", "Put quarantined files into a directory; replaces nothing");
    addQuarantine(*command, options);
    addText(*command, "--to", options.target, "The directory; made if it is missing")->required();
    addText(*command, "--archive", options.archive, "Only the archive of this name, as list prints it");
    addReport(*command, options);
    addPassword(*command, options);
    command->footer(kPasswordNote + kCodesNote + kRestoreExamples);
    command->callback([&options] { options.command = Command::Restore; });
}

void addList(CLI::App& app, Options& options)
{
    CLI::App* command = app.add_subcommand("list", "Tell what lies in the quarantine and where it came from");
    addQuarantine(*command, options);
    addReport(*command, options);
    command->footer(kCodesNote + kListExamples);
    command->callback([&options] { options.command = Command::List; });
}

} // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv)
{
    Options options;
    options.threads = defaultThreads();
    CLI::App app(kAbout, "endpoint_scan");
    app.set_version_flag("--version", "endpoint_scan " ENDPOINT_SCAN_VERSION);
    addText(app, "--log", options.logFile, "Append the services' log lines to this file, passwords masked");
    app.add_flag("--verbose", options.isVerbose, "Print all log lines on standard error, not only failures");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough();
    addScan(app, options);
    addRestore(app, options);
    addList(app, options);
    try
    {
        app.parse(argc, argv);
        return options;
    }
    catch (const CLI::ParseError& error)
    {
        if (error.get_exit_code() != 0)
            throw UsageError(std::string(error.what()) + " (see --help)");
        app.exit(error); // prints what was asked for
        return std::nullopt;
    }
}

} // namespace endpointscan
