#include <gtest/gtest.h>
#include <malloc.h>

#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>

#include "support/TemporaryDirectory.h"
#include "tav/FMXException.h"
#include "tav/MagicUtils.h"

namespace TAV
{
namespace
{

constexpr std::size_t kRounds = 400;
constexpr std::size_t kSmallestBlock = 16;

void liveOnce(const std::string& damagedDatabase)
{
    MagicUtils magic;
    magic.magicOpen();
    EXPECT_THROW(magic.magicLoad(damagedDatabase.c_str()), FMXException);
    magic.magicLoad(nullptr);
    EXPECT_NE(magic.magicFile("/proc/self/exe"), nullptr);
    magic.magicFile("/missing");
    magic.magicClose();
}

struct Held
{
    std::size_t heapBytes = 0;
    std::ptrdiff_t descriptors = 0;
    std::size_t mappings = 0;
};

Held held()
{
    const std::filesystem::directory_iterator open("/proc/self/fd");
    Held now;
    now.descriptors = std::distance(begin(open), end(open));
    std::istringstream maps(test::readFile("/proc/self/maps"));
    for (std::string line; std::getline(maps, line);)
        now.mappings += line.find(".mgc") != std::string::npos ? 1U : 0U;
    now.heapBytes = mallinfo2().uordblks + mallinfo2().hblkhd;
    return now;
}

TEST(MagicReleaseTest, NothingStaysAfterClose)
{
    const test::TemporaryDirectory directory;
    const std::string damaged = directory.write("damaged.mgc", std::string(1000, '\x1c'));
    for (int round = 0; round < 5; ++round)
        liveOnce(damaged); // what the C library keeps for good
    const Held before = held();
    for (std::size_t round = 0; round < kRounds; ++round)
        liveOnce(damaged);
    const Held after = held();
    // The C library's own caches move by a few blocks; the smallest block kept in each round would be more.
    EXPECT_LT(after.heapBytes, before.heapBytes + kRounds * kSmallestBlock);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.mappings, 0U) << "the database's file is still mapped";
}

TEST(MagicReleaseTest, LeakIsSeenByTheseMeans)
{
    MagicUtils magic;
    const Held before = held();
    magic.magicOpen();
    magic.magicLoad(nullptr);
    const Held open = held();
    EXPECT_GT(open.heapBytes, before.heapBytes);
    EXPECT_GT(open.mappings, 0U);
    magic.magicClose();
}

} // namespace
} // namespace TAV
