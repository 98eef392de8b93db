#pragma once

#include <magic.h>

#include <string>
#include <vector>

namespace TAV::test
{

/// Stands in for the C functions of libmagic in the whole test program. What its functions answer is set here; what
/// they were called with is noted. No libmagic code runs.
struct LibmagicDouble
{
    LibmagicDouble();
    LibmagicDouble(const LibmagicDouble&) = delete;
    LibmagicDouble& operator=(const LibmagicDouble&) = delete;
    ~LibmagicDouble();

    /// A handle that is only ever compared.
    magic_t handle(int number) const { return reinterpret_cast<magic_t>(const_cast<char*>(&m_places[number])); }
    /// How a handle is written in the calls: "null", "handle 0", "handle 1".
    std::string nameOf(magic_t cookie) const;

    magic_t openAnswer = nullptr;
    int loadAnswer = 0;
    const char* errorAnswer = "the text of the error";
    const char* queryAnswer = nullptr;

    std::vector<std::string> calls;
    const char* path = nullptr; ///< the pointer that the last call with a path got

private:
    char m_places[2] = {};
};

} // namespace TAV::test
