// Loads a library with dlopen(3) and compares the process before and after: loading may construct the library's own
// constants, and nothing else. It does not link the library, so that it can see the moment itself.
#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <set>
#include <string>
#include <vector>

namespace
{

using Facts = std::vector<std::string>;

/// The entries of a directory, without the descriptor that the reading itself takes.
Facts entriesOf(const char* path)
{
    std::set<std::string> names;
    DIR* directory = opendir(path);
    if (directory == nullptr)
        return {"unreadable"};
    const std::string own = std::to_string(dirfd(directory));
    while (const dirent* entry = readdir(directory))
    {
        if (own != entry->d_name)
            names.insert(entry->d_name);
    }
    closedir(directory);
    return {names.begin(), names.end()};
}

Facts signalHandling()
{
    Facts facts;
    for (int number = 1; number <= SIGRTMAX; ++number)
    {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0)
            facts.emplace_back(reinterpret_cast<const char*>(&action.sa_handler), sizeof(action.sa_handler));
    }
    sigset_t mask;
    sigemptyset(&mask);
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    for (int number = 1; number <= SIGRTMAX; ++number)
        facts.emplace_back(sigismember(&mask, number) == 1 ? "blocked" : "free");
    return facts;
}

Facts environment()
{
    Facts facts;
    for (char** entry = environ; *entry != nullptr; ++entry)
        facts.emplace_back(*entry);
    return facts;
}

Facts settings()
{
    const mode_t mask = umask(0);
    umask(mask);
    char* directory = getcwd(nullptr, 0);
    Facts facts = {std::to_string(mask),
                   directory != nullptr ? directory : "none",
                   setlocale(LC_ALL, nullptr),
                   std::to_string(reinterpret_cast<std::uintptr_t>(std::get_terminate()))};
    std::free(directory);
    return facts;
}

struct Process
{
    Facts threads = entriesOf("/proc/self/task");
    Facts descriptors = entriesOf("/proc/self/fd");
    Facts signals = signalHandling();
    Facts variables = environment();
    Facts other = settings();
};

bool same(const char* what, const Facts& before, const Facts& after)
{
    if (before == after)
        return true;
    std::fprintf(stderr, "loading changed the %s: %zu before, %zu after\n", what, before.size(), after.size());
    return false;
}

bool holds(void* library, const char* symbol, const char* value)
{
    const auto* text = static_cast<const std::string*>(dlsym(library, symbol));
    if (text != nullptr && *text == value)
        return true;
    std::fprintf(stderr, "%s does not hold \"%s\" after loading\n", symbol, value);
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    const Process before;
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
    {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    const Process after;

    bool good = same("threads", before.threads, after.threads);
    good = same("descriptors", before.descriptors, after.descriptors) && good;
    good = same("signal handling", before.signals, after.signals) && good;
    good = same("environment", before.variables, after.variables) && good;
    good = same("settings", before.other, after.other) && good;
    if (std::strstr(argv[1], "libtavutils") != nullptr)
    {
        good = holds(library, "_ZN3TAV22kLoopbackInterfaceNameB5cxx11E", "lo") && good;
        good = holds(library, "_ZN3TAV15kNullMacAddressB5cxx11E", "00:00:00:00:00:00") && good;
    }
    return good && dlclose(library) == 0 ? 0 : 1;
}
