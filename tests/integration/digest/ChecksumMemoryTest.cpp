#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "support/TemporaryDirectory.h"
#include "tav/QelSSLUtils.h"

// This program's own allocator, over the C library's, counts while it is told to.
namespace
{

std::atomic<bool> counting{false};
std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> allocatedBytes{0};

void note(std::size_t size)
{
    if (!counting)
        return;
    ++allocations;
    allocatedBytes += size;
}

} // namespace

extern "C"
{

    // NOLINTBEGIN(bugprone-reserved-identifier): the C library's own names for its allocator
    void* __libc_malloc(size_t size);
    void* __libc_calloc(size_t count, size_t size);
    void* __libc_realloc(void* block, size_t size);
    void* __libc_memalign(size_t alignment, size_t size);
    // NOLINTEND(bugprone-reserved-identifier)

    void* malloc(size_t size)
    {
        note(size);
        return __libc_malloc(size);
    }

    void* calloc(size_t count, size_t size)
    {
        note(count * size);
        return __libc_calloc(count, size);
    }

    void* realloc(void* block, size_t size)
    {
        note(size);
        return __libc_realloc(block, size);
    }

    void* aligned_alloc(size_t alignment, size_t size)
    {
        note(size);
        return __libc_memalign(alignment, size);
    }

} // extern "C"

namespace TAV
{
namespace
{

struct Use
{
    std::size_t allocations = 0;
    std::size_t bytes = 0;
};

/// What one call asks the allocator for. The path is handed over as it is, so that no copy of it counts.
Use useFor(std::string path)
{
    QelSSLUtils ssl;
    std::string md5(64, ' ');
    std::string sha1(64, ' ');
    std::string sha256(64, ' ');
    allocations = 0;
    allocatedBytes = 0;
    counting = true;
    const bool answer = ssl.getChecksumValues(std::move(path), INPUT_FILE_PATH, md5, sha1, sha256);
    counting = false;
    EXPECT_TRUE(answer);
    return {allocations, allocatedBytes};
}

TEST(ChecksumMemoryTest, AllocationsAreSeen)
{
    counting = true;
    allocations = 0;
    std::free(std::malloc(10)); // NOLINT(cppcoreguidelines-no-malloc): what is tested
    const std::string text(100, 'x');
    counting = false;
    EXPECT_GE(allocations, 1U) << text;
}

TEST(ChecksumMemoryTest, MemoryIsTheSameWhateverTheSizeOfTheFile)
{
    const test::TemporaryDirectory directory;
    const std::string small = directory.write("small", "x");
    const std::string large = directory.write("large", std::string(16U << 20U, 'x'));
    useFor(small); // what is made once in a process
    const Use forSmall = useFor(small);
    const Use forLarge = useFor(large);
    EXPECT_EQ(forLarge.allocations, forSmall.allocations);
    EXPECT_EQ(forLarge.bytes, forSmall.bytes);
}

TEST(ChecksumMemoryTest, OnlyTheStreamAndTheTextsAreAllocated)
{
    const test::TemporaryDirectory directory;
    const std::string path = directory.write("file", std::string(100000, 'x'));
    useFor(path);
    const Use use = useFor(path);
    // The C library's stream, and the three digests' texts; no buffer.
    EXPECT_LE(use.allocations, 4U);
    EXPECT_LT(use.bytes, 1024U);
}

} // namespace
} // namespace TAV
