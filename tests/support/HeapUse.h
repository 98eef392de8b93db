#pragma once

#include <malloc.h>

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define TAV_ADDRESS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TAV_ADDRESS_SANITIZED 1
#endif
#endif

#if defined(TAV_ADDRESS_SANITIZED) || defined(__SANITIZE_THREAD__)
#define TAV_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TAV_SANITIZED 1
#endif
#endif

#ifdef TAV_SANITIZED
// Every sanitizer that replaces the heap has it; not every compiler installs its header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace TAV::test
{

/// The bytes of the heap that are handed out.
inline std::size_t heapInUse()
{
#ifdef TAV_SANITIZED
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

/// A byte lost in each run would take at least 32 from the heap: five times this in 10,000 runs.
constexpr std::size_t kHeapTolerance = 64000;

} // namespace TAV::test
