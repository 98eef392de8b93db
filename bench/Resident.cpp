#include "Resident.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

namespace TAV::bench
{
namespace
{

constexpr std::size_t kHugePage = 2 * kMegabyte;

/// The value of a line "Name:   123 kB" of a file of the kernel's, in bytes.
std::size_t kernelValue(const char* path, const std::string& name)
{
    std::ifstream file(path);
    for (std::string word; file >> word;)
    {
        std::size_t kilobytes = 0;
        if (word == name && file >> kilobytes)
            return kilobytes * 1024;
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    throw std::runtime_error(name + " not found in " + path);
}

} // namespace

Resident::Resident(std::size_t size, Pages pages) : m_size((size + kHugePage - 1) / kHugePage * kHugePage)
{
    if (m_size == 0)
        return;
    const std::size_t available = kernelValue("/proc/meminfo", "MemAvailable:");
    if (available < m_size + m_size / 4)
        throw std::runtime_error("only " + std::to_string(available / kMegabyte) + " MB of memory to spare");
    m_memory = ::mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m_memory == MAP_FAILED)
        throw std::runtime_error("no memory");
    ::madvise(m_memory, m_size, pages == Pages::Huge ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
    std::memset(m_memory, 1, m_size);
}

Resident::~Resident()
{
    if (m_memory != nullptr)
        ::munmap(m_memory, m_size);
}

void Resident::inherit(bool inherited)
{
    ::madvise(m_memory, m_size, inherited ? MADV_DOFORK : MADV_DONTFORK);
}

std::size_t missingTo(std::size_t total)
{
    const std::size_t resident = kernelValue("/proc/self/status", "VmRSS:");
    return total > resident ? total - resident : 0;
}

} // namespace TAV::bench
