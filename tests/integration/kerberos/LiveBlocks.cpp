#include "LiveBlocks.h"

#include <atomic>
#include <cerrno>

// The C library's own, which the ones below replace.
extern "C" void* libcMalloc(std::size_t size) __asm__("__libc_malloc");
extern "C" void* libcCalloc(std::size_t count, std::size_t size) __asm__("__libc_calloc");
extern "C" void* libcRealloc(void* block, std::size_t size) __asm__("__libc_realloc");
extern "C" void* libcMemalign(std::size_t alignment, std::size_t size) __asm__("__libc_memalign");
extern "C" void libcFree(void* block) __asm__("__libc_free");

namespace
{

std::atomic<std::size_t> live{0};

void* counted(void* block)
{
    if (block != nullptr)
        ++live;
    return block;
}

} // namespace

extern "C" void* malloc(std::size_t size)
{
    return counted(libcMalloc(size));
}

extern "C" void* calloc(std::size_t count, std::size_t size)
{
    return counted(libcCalloc(count, size));
}

extern "C" void* realloc(void* block, std::size_t size)
{
    void* const moved = libcRealloc(block, size);
    if (block == nullptr)
        return counted(moved);
    if (size == 0)
        --live;
    return moved;
}

extern "C" void* memalign(std::size_t alignment, std::size_t size)
{
    return counted(libcMemalign(alignment, size));
}

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    return counted(libcMemalign(alignment, size));
}

extern "C" int posix_memalign(void** block, std::size_t alignment, std::size_t size)
{
    *block = counted(libcMemalign(alignment, size));
    return *block == nullptr ? ENOMEM : 0;
}

extern "C" void free(void* block)
{
    if (block != nullptr)
        --live;
    libcFree(block);
}

std::size_t TAV::test::liveBlocks()
{
    return live;
}
