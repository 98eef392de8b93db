// Plants one fault, named by the first argument, so that a build that claims to notice such faults can be held to it.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace
{

// What the compiler cannot know, so that it can neither warn nor remove the fault.
volatile int g_unknown = 0;
int g_shared = 0;

void heapOverflow()
{
    std::vector<char> block(8);
    char* const start = block.data();
    start[8 + g_unknown] = 'x';
    std::printf("%d\n", start[8 + g_unknown]);
}

void leak()
{
    auto* volatile lost = static_cast<char*>(std::malloc(4321));
    lost[0] = 'x';
    lost = nullptr;
}

void undefined()
{
    std::printf("%d\n", INT_MAX - g_unknown + 1);
}

void race()
{
    const auto write = []
    {
        for (int i = 0; i < 100000; ++i)
            g_shared = g_shared + 1;
    };
    std::thread other(write);
    write();
    other.join();
}

// The length is unknown to the compiler, the size of the target is not: what fortified functions check.
void copyTooMuch()
{
    char target[8];
    const std::string source(64, 'x');
    std::memcpy(target, source.data(), source.size() + static_cast<std::size_t>(g_unknown));
    std::printf("%.8s\n", target);
}

void smashStack()
{
    char target[8];
    char* volatile start = target;
    for (int i = 0; i < 64; ++i)
        start[i] = 'x';
    std::printf("%.8s\n", target);
}

void indexTooFar()
{
    const std::vector<int> numbers(4);
    std::printf("%d\n", numbers[4U + static_cast<unsigned int>(g_unknown)]);
}

struct Fault
{
    const char* name;
    void (*plant)();
};

constexpr Fault kFaults[] = {
    {"heap-overflow", heapOverflow},
    {"leak", leak},
    {"undefined", undefined},
    {"race", race},
    {"copy-too-much", copyTooMuch},
    {"smash-stack", smashStack},
    {"index-too-far", indexTooFar},
};

} // namespace

int main(int argc, char** argv)
{
    for (const Fault& fault : kFaults)
    {
        if (argc == 2 && std::strcmp(argv[1], fault.name) == 0)
        {
            fault.plant();
            return 0;
        }
    }
    std::fputs("usage: canary FAULT\n", stderr);
    return 0; // an unknown fault must not look like a noticed one
}
