#include "tavctl/Application.h"

#include <array>
#include <exception>
#include <iostream>

#include "common/Text.h"
#include "tav/FMXException.h"
#include "tavctl/Commands.h"
#include "tavctl/StderrLogger.h"

namespace tavctl
{
namespace
{

constexpr std::array<Registration, 11> kSubcommands{
    registerMime,
    registerChecksum,
    registerHmac,
    registerBase64,
    registerRun,
    registerCapture,
    registerArchive,
    registerCpuLimit,
    registerQuery,
    registerKrb,
    registerDoctor,
};

constexpr const char* kAbout = "The services of libtavutils on the command line.";
constexpr const char* kFooter =
    "Exit codes: 0 success, 1 failure (the reason stands on standard error), 2 bad arguments, 3 query not answered.\n"
    "\n"
    "Examples:\n"
    "  tavctl mime /bin/bash /etc/passwd\n"
    "  tavctl --json checksum /bin/sh\n"
    "  tavctl hmac --key-file key.txt message.txt\n"
    "  tavctl query --server localhost:8443 --ca ca.pem --data hello\n"
    "  tavctl SUBCOMMAND --help   more examples for each one";

struct Globals
{
    bool json = false;
    bool verbose = false;
};

void describe(CLI::App& app, Globals& globals)
{
    app.set_version_flag("--version", "tavctl " TAVCTL_VERSION);
    app.add_flag("--json", globals.json, "Print JSON instead of plain text");
    app.add_flag("--verbose", globals.verbose, "Print the library's log lines on standard error, passwords masked");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough(); // the flags above may stand behind the subcommand, too
}

/// Runs the work and turns whatever goes wrong into a line on standard error and an exit code.
int perform(const Action& action, Context& context)
{
    try
    {
        const int code = action(context);
        return context.console.flush() ? code : kFailure;
    }
    catch (const UsageError& error)
    {
        context.console.error(error.what());
        return kUsage;
    }
    catch (const TAV::FMXException& error)
    {
        context.console.error(error.message);
    }
    catch (const std::exception& error)
    {
        context.console.error(error.what());
    }
    return kFailure;
}

/// Prints what the parser has to say: help, version, or a complaint.
int refuse(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<std::string> unknown = app.remaining();
    if (error.get_name() == "RequiredError" && app.get_subcommands().empty() && !unknown.empty())
    {
        std::cerr << "tavctl: " << programs::printable(unknown.front()) << ": no such subcommand (see tavctl --help)\n";
        return kUsage;
    }
    return app.exit(error) == 0 ? kSuccess : kUsage;
}

} // namespace

int run(int argc, const char* const* argv)
{
    CLI::App app(kAbout, "tavctl");
    Globals globals;
    Action chosen;
    describe(app, globals);
    for (const Registration add : kSubcommands)
        add(app, chosen);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return refuse(app, error);
    }
    Console console(globals.json);
    StderrLogger lines(globals.verbose);
    TAV::MaskingLogger logger(lines);
    Context context{console, logger, globals.verbose};
    return perform(chosen, context);
}

} // namespace tavctl
