#include "BlockCounter.h"

#include <array>
#include <cstdlib>
#include <cstring>

namespace
{

/// What was asked for. The address may be null.
struct Block
{
    TAV::test::BlockCounter::Request request;
    const volatile void* address = nullptr;
    bool isAlive = false;
};

// No container: what notes the heap's use must not use the heap.
std::array<Block, 1024> g_blocks;
std::size_t g_count = 0;
unsigned int g_callsLeft = 0; ///< until one fails
bool g_isCounting = false;

bool isToFail()
{
    return g_isCounting && g_callsLeft != 0 && --g_callsLeft == 0;
}

void noteBlock(std::size_t count, std::size_t size, void* address)
{
    if (g_isCounting)
        g_blocks.at(g_count++) = {{count, size}, address, address != nullptr};
}

void noteFree(const volatile void* address)
{
    for (std::size_t i = 0; i < g_count; ++i)
        g_blocks[i].isAlive = g_blocks[i].isAlive && g_blocks[i].address != address;
}

} // namespace

#ifdef TAV_TEST_SANITIZED

// A sanitizer brings its own heap, which reports its use. Debian's GCC lacks the header that declares this.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*afterMalloc)(const volatile void*, std::size_t),
                                                         void (*beforeFree)(const volatile void*));

namespace
{

const int g_isHooked = __sanitizer_install_malloc_and_free_hooks([](const volatile void*, std::size_t) {}, &noteFree);

void* zeroedBlock(std::size_t count, std::size_t size)
{
    void* block = std::malloc(count * size);
    return block == nullptr ? nullptr : std::memset(block, 0, count * size);
}

} // namespace

#else

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's own names
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void __libc_free(void* block);

extern "C" void free(void* block) noexcept
{
    if (block != nullptr)
        noteFree(block);
    __libc_free(block);
}

namespace
{

void* zeroedBlock(std::size_t count, std::size_t size)
{
    return __libc_calloc(count, size);
}

} // namespace
  // NOLINTEND(bugprone-reserved-identifier)

#endif

// This program's own definition stands before the C library's.
extern "C" void* calloc(std::size_t count, std::size_t size) noexcept
{
    void* block = isToFail() ? nullptr : zeroedBlock(count, size);
    noteBlock(count, size, block);
    return block;
}

namespace TAV::test
{

BlockCounter::BlockCounter()
{
    g_count = 0;
    g_callsLeft = 0;
    g_isCounting = true;
}

BlockCounter::~BlockCounter()
{
    g_isCounting = false;
    g_count = 0;
}

void BlockCounter::fail(unsigned int nth)
{
    g_callsLeft = nth;
}

std::vector<BlockCounter::Request> BlockCounter::requests() const
{
    std::vector<Request> requests;
    for (std::size_t i = 0; i < g_count; ++i)
        requests.push_back(g_blocks[i].request);
    return requests;
}

std::vector<std::size_t> BlockCounter::alive() const
{
    std::vector<std::size_t> sizes;
    for (std::size_t i = 0; i < g_count; ++i)
    {
        if (g_blocks[i].isAlive)
            sizes.push_back(g_blocks[i].request.first * g_blocks[i].request.second);
    }
    return sizes;
}

} // namespace TAV::test
