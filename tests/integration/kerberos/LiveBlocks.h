#pragma once

#include <cstddef>

namespace TAV::test
{

/// How many blocks of the heap are handed out in this process, exactly: the program's own malloc() and its kin count
/// them, whoever calls.
std::size_t liveBlocks();

} // namespace TAV::test
