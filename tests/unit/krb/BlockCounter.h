#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace TAV::test
{

/// While it lives, each block that this process asks of `calloc` is noted, and asking fails if the test planned so. No
/// other way of allocating is looked at.
///
/// One at a time, in one thread.
class BlockCounter
{
public:
    /// Number and size of the elements of a block.
    using Request = std::pair<std::size_t, std::size_t>;

    BlockCounter();
    BlockCounter(const BlockCounter&) = delete;
    BlockCounter& operator=(const BlockCounter&) = delete;
    ~BlockCounter();

    /// Makes request number `nth`, from 1 for the next one, fail.
    void fail(unsigned int nth);

    /// What was asked for, in order.
    std::vector<Request> requests() const;
    /// The sizes in bytes of the blocks that are not freed, in the order in which they were asked for.
    std::vector<std::size_t> alive() const;
};

} // namespace TAV::test
