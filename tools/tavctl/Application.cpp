#include "tavctl/Application.h"

#include <array>
#include <exception>
#include <sstream>

#include "common/Text.h"
#include "tav/FMXException.h"
#include "tavctl/Commands.h"
#include "tavctl/Input.h"
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

/// Adds the flags that may stand behind the program's name and behind that of each subcommand.
void addGlobals(CLI::App& app, Globals& globals)
{
    app.add_flag("--json", globals.json, "Print JSON instead of plain text");
    app.add_flag("--verbose", globals.verbose, "Print the library's log lines on standard error, passwords masked");
    const auto isCommand = [](const CLI::App* part) { return !part->get_name().empty(); }; // and no group of options
    for (CLI::App* command : app.get_subcommands(isCommand))
        addGlobals(*command, globals);
}

void describe(CLI::App& app, Globals& globals, Action& chosen)
{
    app.set_version_flag("--version", "tavctl " TAVCTL_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    for (const Registration add : kSubcommands)
        add(app, chosen);
    addGlobals(app, globals);
}

std::string complaintOf(const CLI::App& app, const CLI::ParseError& error)
{
    const CLI::App* command = &app;
    std::string name = "tavctl";
    while (!command->get_subcommands().empty())
    {
        command = command->get_subcommands().front();
        name += " " + command->get_name();
    }
    std::string complaint = error.what();
    const std::vector<std::string> unknown = command->remaining();
    if (error.get_name() == "RequiredError" && command->get_require_subcommand_min() > 0 && !unknown.empty())
    {
        const bool isOption = unknown.front().rfind('-', 0) == 0;
        complaint = about(unknown.front(), isOption ? "no such option" : "no such subcommand");
    }
    return complaint + " (see " + name + " --help)";
}

/// Prints what the parser has to say: help, version, or a complaint.
int answer(const CLI::App& app, const CLI::ParseError& error)
{
    Console console(false);
    if (error.get_exit_code() != 0)
    {
        console.error(complaintOf(app, error));
        return kUsage;
    }
    std::ostringstream text;
    app.exit(error, text);
    console.write(text.str());
    return console.flush() ? kSuccess : kFailure;
}

/// Tells a failure that left no result.
int fail(Context& context, const std::string& reason)
{
    context.console.show("", {{"success", false}, {"error", programs::printable(reason)}});
    context.console.flush();
    context.console.error(reason);
    return kFailure;
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
        return fail(context, error.message);
    }
    catch (const std::exception& error)
    {
        return fail(context, error.what());
    }
}

} // namespace

int run(int argc, const char* const* argv)
{
    CLI::App app(kAbout, "tavctl");
    Globals globals;
    Action chosen;
    describe(app, globals, chosen);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return answer(app, error);
    }
    Console console(globals.json);
    StderrLogger lines(globals.verbose);
    TAV::MaskingLogger logger(lines);
    Context context{console, logger, globals.verbose};
    return perform(chosen, context);
}

} // namespace tavctl
