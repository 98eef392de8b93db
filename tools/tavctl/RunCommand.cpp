#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "tavctl/Commands.h"
#include "tavctl/Program.h"

namespace tavctl
{
namespace
{

constexpr const char* kRunExamples =
    "The program sees /dev/null as its standard input and output, and nothing else stays open, unless --keep says so.\n"
    "Its standard error always goes to /dev/null: the library can keep it only through a pipe of its own, and then a\n"
    "program that fails without a word, or that writes more than 64 KiB there, would never come back. To see it, run\n"
    "it through a shell that joins the two: tavctl run --keep 1 -- /bin/sh -c 'exec /bin/ls /nowhere 2>&1'.\n"
    "\n"
    "The library tells whether the program ended with status 0, not with which status it ended otherwise. The program\n"
    "ignores SIGTERM and SIGINT (Ctrl-C) unless it installs handlers: end it with SIGKILL. There is no time-out.\n"
    "\n"
    "Examples:\n"
    "  tavctl run -- /bin/true\n"
    "  tavctl run --keep 1 -- /bin/ls -l /\n"
    "  tavctl run --keep 3 -- /bin/sh -c 'echo hello >&3' 3>log.txt";

struct RunOptions
{
    std::vector<int> keep;
    std::vector<std::string> argv;
};

void checkKept(const std::vector<int>& descriptors)
{
    for (const int fd : descriptors)
    {
        if (fd == STDERR_FILENO)
            throw UsageError("run: descriptor 2 cannot be kept: the call could wait for ever (see run --help)");
        if (::fcntl(fd, F_GETFD) < 0)
            throw UsageError("run: descriptor " + std::to_string(fd) + " is not open");
    }
}

/// Puts /dev/null onto a standard descriptor of this process, and the former file back at the end. A descriptor that is
/// kept is thus always open in the program: one that is closed there would be given to the first file that it opens.
class DevNullOn
{
public:
    explicit DevNullOn(int fd) : m_fd(fd), m_former(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
    {
        const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        if (m_former < 0 || null < 0)
            throw Failure("run: cannot put /dev/null in place");
        ::dup2(null, fd);
        ::close(null);
    }
    DevNullOn(const DevNullOn&) = delete;
    DevNullOn& operator=(const DevNullOn&) = delete;
    ~DevNullOn()
    {
        ::dup2(m_former, m_fd);
        ::close(m_former);
    }

private:
    int m_fd;
    int m_former;
};

bool runProgram(const RunOptions& options, Context& context)
{
    std::map<int, bool> keep;
    for (const int fd : options.keep)
        keep[fd] = true;
    std::vector<std::unique_ptr<DevNullOn>> replaced;
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO})
    {
        if (!keep[fd])
            replaced.push_back(std::make_unique<DevNullOn>(fd));
        keep[fd] = true;
    }
    return makeUtils(context)->executeSystemCommand(options.argv, &keep);
}

int runAndTell(const RunOptions& options, Context& context)
{
    checkKept(options.keep);
    const std::string& program = options.argv.front();
    requireRunnable(program);
    const bool ok = runProgram(options, context);
    nlohmann::json result{{"success", ok}};
    addBytes(result, "command", options.argv);
    context.console.show(ok ? "success\n" : "", result);
    if (!ok)
        context.console.error(program + " did not start, or did not end with status 0");
    return ok ? kSuccess : kFailure;
}

} // namespace

void registerRun(CLI::App& app, Action& chosen)
{
    auto options = std::make_shared<RunOptions>();
    CLI::App* command = app.add_subcommand("run", "Run a program and tell whether it succeeded");
    command->add_option("--keep", options->keep, "A descriptor that stays open in the program (may be repeated)")
        ->allow_extra_args(false)
        ->check(CLI::Range(0, std::numeric_limits<int>::max(), "NONNEGATIVE"));
    command->add_option("PROGRAM", options->argv, "The program's path and its arguments, behind --")->required();
    command->footer(kRunExamples);
    command->callback([options, &chosen]
                      { chosen = [options](Context& context) { return runAndTell(*options, context); }; });
}

} // namespace tavctl
