#include "AllocationFault.h"

#if !defined(TAV_NO_ALLOCATION_FAULTS)

#include <cstdlib>
#include <new>

namespace
{

/// Counts down to the allocation that fails; 0 if none does.
thread_local unsigned int allocationsLeft = 0;

bool isTheOneThatFails()
{
    return allocationsLeft != 0 && --allocationsLeft == 0;
}

} // namespace

TAV::test::AllocationFault::AllocationFault(unsigned int nth)
{
    allocationsLeft = nth;
}

TAV::test::AllocationFault::~AllocationFault()
{
    allocationsLeft = 0;
}

// All the forms that a string or a container may use: each block must go back to where it came from.
void* operator new(std::size_t size)
{
    void* const block = isTheOneThatFails() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}

#endif
