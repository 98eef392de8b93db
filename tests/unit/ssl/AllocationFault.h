#pragma once

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TAV_NO_ALLOCATION_FAULTS // clang's ThreadSanitizer does not let a program replace operator new
#endif
#endif

#if !defined(TAV_NO_ALLOCATION_FAULTS)

namespace TAV::test
{

/// While it lives, the nth allocation (from 1) that this thread makes by operator new fails. One at a time.
class AllocationFault
{
public:
    explicit AllocationFault(unsigned int nth);
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
    ~AllocationFault();
};

} // namespace TAV::test

#endif
