// tav_act STEP...
//
// A child that behaves as a test wants it to, step by step:
//
//     out=TEXT  err=TEXT    writes TEXT to standard output or standard error
//     out#N  err#N          writes N bytes "0123456789012..." there
//     wait                  does nothing until a signal ends it
//     kill=N                sends itself signal N
//     exit=N                exits with code N
//
// After the last step it exits with 0; with 111 if it cannot write, with 2 if it does not know a step.

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>

namespace
{

void writeAll(int fd, std::string_view text)
{
    while (!text.empty())
    {
        const ssize_t size = ::write(fd, text.data(), text.size());
        if (size < 0)
            ::_exit(111);
        text.remove_prefix(static_cast<std::size_t>(size));
    }
}

std::string digits(std::size_t count)
{
    std::string text(count, '0');
    for (std::size_t i = 0; i < count; ++i)
        text[i] = static_cast<char>('0' + i % 10);
    return text;
}

/// Until a signal ends it, or its parent ends: nobody would clean up behind a test that was killed.
void waitForEver()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    while (::getppid() != 1)
        ::pause();
}

void perform(const std::string& step)
{
    const std::size_t split = step.find_first_of("=#");
    const std::string verb = step.substr(0, split);
    const std::string value = split == std::string::npos ? "" : step.substr(split + 1);
    if (verb == "out" || verb == "err")
        writeAll(verb == "out" ? STDOUT_FILENO : STDERR_FILENO,
                 step[split] == '#' ? digits(std::strtoul(value.c_str(), nullptr, 10)) : value);
    else if (verb == "wait")
        waitForEver();
    else if (verb == "kill")
        ::kill(::getpid(), std::atoi(value.c_str()));
    else if (verb == "exit")
        ::_exit(std::atoi(value.c_str()));
    else
        ::_exit(2);
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i)
        perform(argv[i]);
    return 0;
}
