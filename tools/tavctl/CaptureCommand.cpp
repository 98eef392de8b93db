#include <memory>
#include <vector>

#include "tavctl/Capture.h"
#include "tavctl/Commands.h"
#include "tavctl/Program.h"

namespace tavctl
{
namespace
{

constexpr const char* kCaptureExamples =
    "The program's standard input is closed, its standard error goes to /dev/null (see "
    "run --help for the reason). Output\n"
    "of any size is taken while the program runs. What a program that it leaves behind "
    "writes later is not waited for.\n"
    "\n"
    "Examples:\n"
    "  tavctl capture -- /bin/uname -a\n"
    "  tavctl capture --json -- /bin/sh -c 'ls /nowhere 2>&1'";

int captureAndTell(const std::vector<std::string>& argv, Context& context)
{
    requireRunnable(argv.front());
    const Captured captured = captureOutput(*makeUtils(context), argv);
    nlohmann::json result{{"success", captured.isSuccess}};
    addBytes(result, "command", argv);
    addBytes(result, "output", captured.output);
    context.console.show(captured.output, result);
    if (!captured.isSuccess)
        context.console.error(argv.front() + " did not start, or did not end with status 0");
    return captured.isSuccess ? kSuccess : kFailure;
}

} // namespace

void registerCapture(CLI::App& app, Action& chosen)
{
    auto argv = std::make_shared<std::vector<std::string>>();
    CLI::App* command = app.add_subcommand("capture", "Run a program and print what it writes to standard output");
    command->add_option("PROGRAM", *argv, "The program's path and its arguments, behind --")->required();
    command->footer(kCaptureExamples);
    command->callback([argv, &chosen]
                      { chosen = [argv](Context& context) { return captureAndTell(*argv, context); }; });
}

} // namespace tavctl
