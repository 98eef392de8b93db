#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "common/QueryText.h"
#include "tavctl/Commands.h"
#include "tavctl/doctor/Checks.h"
#include "tavctl/doctor/Report.h"
#include "tavctl/doctor/SystemHost.h"

namespace tavctl
{
namespace
{

constexpr const char* kExplanation =
    "Each line is one check: its state, its name, what was found, and behind -> what to do about it.\n"
    "\n"
    "  ok       as it should be\n"
    "  note     worth knowing\n"
    "  warning  works, but will bite somebody sooner or later\n"
    "  problem  a service, or a part of it, cannot work on this host\n"
    "\n"
    "Nothing is changed. Nothing leaves the machine, unless --server or --proxy names somebody to reach: the proxy "
    "gets\n"
    "a connection and nothing else, the server an empty query, which goes through the proxy if there is one. Any HTTP\n"
    "status counts as reached. Run it as the user of your daemon and with its environment: limits, MAGIC and\n"
    "KRB5_CONFIG are those of the process.\n"
    "\n"
    "Exit codes: 0 if there is no problem, 1 if there is one, 2 for bad arguments. Notes and warnings do not change "
    "it;\n"
    "with --strict, a warning counts as a problem.\n"
    "\n"
    "Colours are used on a terminal, unless the environment variable NO_COLOR is set or TERM is \"dumb\".\n"
    "\n"
    "Examples:\n"
    "  tavctl doctor\n"
    "  tavctl doctor --ca ca.pem --server reputation.example.org --proxy proxy.example.org:3128\n"
    "  tavctl doctor --json | jq '.checks[] | select(.state == \"problem\")'";

constexpr int kLongestTimeout = 600;

struct DoctorOptions
{
    doctor::Questions questions;
    std::string color = "auto";
    bool isStrict = false;
};

bool isTerminalForColours()
{
    const auto valueOf = [](const char* name)
    {
        const char* value = std::getenv(name);
        return std::string(value == nullptr ? "" : value);
    };
    return ::isatty(STDOUT_FILENO) == 1 && valueOf("NO_COLOR").empty() && valueOf("TERM") != "dumb";
}

bool isColoured(const DoctorOptions& options)
{
    return options.color == "always" || (options.color == "auto" && isTerminalForColours());
}

int examineAndTell(const DoctorOptions& options, Context& context)
{
    doctor::SystemHost host(context);
    const bool coloured = isColoured(options);
    const auto show = [&context, coloured](const doctor::Entry& entry, bool isFirst)
    {
        if (context.console.isJson())
            return;
        context.console.write(doctor::textOf(entry, isFirst, coloured));
        static_cast<void>(std::fflush(stdout)); // the next check may take its time
    };
    const std::vector<doctor::Entry> entries = doctor::examine(host, options.questions, show);
    context.console.show(doctor::summaryOf(entries), doctor::jsonOf(entries));
    return doctor::isWell(entries, options.isStrict) ? kSuccess : kFailure;
}

} // namespace

void registerDoctor(CLI::App& app, Action& chosen)
{
    auto options = std::make_shared<DoctorOptions>();
    doctor::Questions& questions = options->questions;
    CLI::App* command = app.add_subcommand("doctor", "Tell whether each service can work on this host");
    CLI::Option* certificates =
        command->add_option("--ca", questions.caFile, "Look at this file of certificates (PEM) of whom to trust");
    command->add_option("--server", questions.server, "HOST or HOST:PORT: send it a query")
        ->check(programs::obstacleToServer)
        ->needs(certificates);
    command->add_option("--proxy", questions.proxy, "HOST:PORT or URL of a proxy: connect to it")
        ->check(programs::obstacleToProxy);
    command->add_option("--timeout", questions.timeout, "Seconds for each attempt to reach somebody")
        ->check(CLI::Range(1, kLongestTimeout))
        ->capture_default_str();
    command->add_flag("--strict", options->isStrict, "Exit code 1 for warnings, too");
    command->add_option("--color", options->color, "When to use colours")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->capture_default_str();
    command->footer(kExplanation);
    command->callback([options, &chosen]
                      { chosen = [options](Context& context) { return examineAndTell(*options, context); }; });
}

} // namespace tavctl
