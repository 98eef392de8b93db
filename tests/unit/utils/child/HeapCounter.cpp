#include "HeapCounter.h"

#include <cstddef>

namespace
{

bool g_isCounting = false;
unsigned int g_count = 0;

void noteHeapUse()
{
    if (g_isCounting)
        ++g_count;
}

} // namespace

#ifdef TAV_TEST_SANITIZED

// A sanitizer brings its own heap, which reports its use. Debian's GCC lacks the header that declares this.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*afterMalloc)(const volatile void*, std::size_t),
                                                         void (*beforeFree)(const volatile void*));

namespace
{

const int g_isHooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { noteHeapUse(); }, [](const volatile void*) { noteHeapUse(); });

} // namespace

#else

// This program's own malloc and its like come before the C library's, which they forward to.
extern "C"
{
    // NOLINTBEGIN(bugprone-reserved-identifier): the C library's own names
    void* __libc_malloc(std::size_t size);
    void* __libc_calloc(std::size_t count, std::size_t size);
    void* __libc_realloc(void* block, std::size_t size);
    void __libc_free(void* block);
    // NOLINTEND(bugprone-reserved-identifier)

    void* malloc(std::size_t size) noexcept
    {
        noteHeapUse();
        return __libc_malloc(size);
    }

    void* calloc(std::size_t count, std::size_t size) noexcept
    {
        noteHeapUse();
        return __libc_calloc(count, size);
    }

    void* realloc(void* block, std::size_t size) noexcept
    {
        noteHeapUse();
        return __libc_realloc(block, size);
    }

    void free(void* block) noexcept
    {
        noteHeapUse();
        __libc_free(block);
    }
}

#endif

namespace TAV::test
{

void startCountingHeapUse()
{
    g_count = 0;
    g_isCounting = true;
}

unsigned int stopCountingHeapUse()
{
    g_isCounting = false;
    return g_count;
}

} // namespace TAV::test
