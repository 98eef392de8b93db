#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace TAV::test
{

/// Lines of text that this process and all processes forked from it write and read.
///
/// They lie in shared memory, so that a process without a single descriptor can report too.
class SharedNotes
{
public:
    explicit SharedNotes(std::size_t capacity = 1U << 20U);
    SharedNotes(const SharedNotes&) = delete;
    SharedNotes& operator=(const SharedNotes&) = delete;
    ~SharedNotes();

    /// Adds a line (line breaks in it would make it two); what does not fit is cut off.
    void add(std::string_view line);

    /// The lines that are complete by now, in the order in which they were begun.
    std::vector<std::string> lines() const;

    /// All of lines(), each ended by a line break.
    std::string text() const;

private:
    char* body() const;

    std::size_t m_capacity;
    std::atomic<std::size_t>* m_used;
};

} // namespace TAV::test
