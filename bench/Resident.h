#pragma once

#include <cstddef>

namespace TAV::bench
{

constexpr std::size_t kMegabyte = std::size_t{1} << 20;

/// Resident memory that this process does not need, as the caches of a daemon would be. A child that is forked gets
/// the tables that describe it, which is what makes fork(2) dear.
class Resident
{
public:
    enum class Pages
    {
        Small, ///< 4 kB
        Huge,  ///< 2 MB
    };

    /// @throws std::runtime_error  if the machine does not have that much to spare
    explicit Resident(std::size_t size, Pages pages = Pages::Small);
    Resident(const Resident&) = delete;
    Resident& operator=(const Resident&) = delete;
    ~Resident();

    /// Whether a child gets this memory.
    void inherit(bool inherited);

private:
    std::size_t m_size;
    void* m_memory = nullptr;
};

/// How much more this process needs to have `total` bytes resident; 0 if it has them already.
std::size_t missingTo(std::size_t total);

} // namespace TAV::bench
