#include "support/SharedNotes.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <sstream>

namespace TAV::test
{

static_assert(std::atomic<std::size_t>::is_always_lock_free, "processes cannot share another kind");

SharedNotes::SharedNotes(std::size_t capacity) : m_capacity(capacity)
{
    void* memory = ::mmap(
        nullptr, sizeof(*m_used) + capacity, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    m_used = new (memory) std::atomic<std::size_t>(0);
}

SharedNotes::~SharedNotes()
{
    ::munmap(m_used, sizeof(*m_used) + m_capacity);
}

void SharedNotes::add(std::string_view line)
{
    const std::size_t start = m_used->fetch_add(line.size() + 1);
    if (start >= m_capacity)
        return;
    const std::size_t size = std::min(line.size(), m_capacity - start - 1);
    std::memcpy(body() + start, line.data(), size);
    // The line break last: until then the line is not complete.
    __atomic_store_n(body() + start + size, '\n', __ATOMIC_RELEASE);
}

std::vector<std::string> SharedNotes::lines() const
{
    std::istringstream stream(text());
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string SharedNotes::text() const
{
    std::string text;
    for (std::size_t i = 0; i < std::min(m_used->load(), m_capacity); ++i)
        text.push_back(__atomic_load_n(body() + i, __ATOMIC_ACQUIRE));
    // What is begun and not written yet is still zero.
    text.erase(std::min(text.find('\0'), text.size()));
    return text.substr(0, text.rfind('\n') + 1);
}

char* SharedNotes::body() const
{
    return reinterpret_cast<char*>(m_used + 1);
}

} // namespace TAV::test
