#include "endpoint_scan/SafeFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>

#include "endpoint_scan/WholeFiles.h"
#include "support/TemporaryDirectory.h"

using endpointscan::Fd;
using endpointscan::removeTree;

namespace fs = std::filesystem;

namespace
{

class RemoveTreeTest : public ::testing::Test
{
protected:
    RemoveTreeTest() : m_parent(endpointscan::openDirectory(m_place.path()))
    {
        fs::create_directories(tree() + "/a/b");
    }

    std::string tree() const { return m_place.file("tree"); }

    TAV::test::TemporaryDirectory m_place;
    Fd m_parent;
};

TEST_F(RemoveTreeTest, TakesFilesDirectoriesAndLinksButNotWhatTheyLeadTo)
{
    const std::string outside = m_place.write("outside", "stays");
    std::ofstream(tree() + "/a/b/file") << "goes";
    fs::create_symlink(outside, tree() + "/to-file");
    fs::create_directory_symlink(m_place.path(), tree() + "/a/to-directory");
    removeTree(m_parent.get(), "tree");
    EXPECT_FALSE(fs::exists(tree()));
    EXPECT_TRUE(fs::exists(outside));
}

TEST_F(RemoveTreeTest, TellsWhatIsNotThere)
{
    EXPECT_THROW(removeTree(m_parent.get(), "nothing"), std::system_error);
}

TEST_F(RemoveTreeTest, MindsNobodyWhoStillWorksInIt)
{
    const Fd directory = endpointscan::openDirectory(tree() + "/a/b");
    constexpr int kFilesBefore = 1'000; // so many that it goes on while they are removed
    std::atomic<bool> isAtWork{false};
    std::thread worker(
        [&]
        {
            for (int i = 0; i < 2 * kFilesBefore; ++i)
            {
                const std::string name = std::to_string(i);
                const Fd file(::openat(directory.get(), name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
                if (file.get() < 0)
                    return; // the directory is gone
                isAtWork = i >= kFilesBefore;
                if (i % 2 == 0)
                    ::unlinkat(directory.get(), name.c_str(), 0);
            }
        });
    while (!isAtWork)
        std::this_thread::yield();
    EXPECT_NO_THROW(removeTree(m_parent.get(), "tree"));
    worker.join();
    EXPECT_FALSE(fs::exists(tree()));
}

TEST(WholeFilesTest, WritesUnderAnyNamePastTheLeftoversOfAKilledProcess)
{
    const TAV::test::TemporaryDirectory place;
    const std::string leftover = ".partial-" + std::to_string(::getpid()) + "-1";
    place.write(leftover, "half");
    const std::string path = place.file(std::string(NAME_MAX, 'n'));
    for (const char* text : {"one", "two"})
    {
        endpointscan::writeAtomically(path, text);
        EXPECT_EQ(TAV::test::readFile(path), text);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(place.path()), fs::directory_iterator()), 2);
}

TEST(WholeFilesTest, ReplaceNothingButRegularFiles)
{
    const TAV::test::TemporaryDirectory place;
    const std::string target = place.write("target", "before");
    fs::create_symlink(target, place.file("link"));
    ASSERT_EQ(::mkfifo(place.file("fifo").c_str(), 0600), 0);
    for (const char* name : {"link", "fifo"})
        EXPECT_THROW(endpointscan::writeAtomically(place.file(name), "after"), std::system_error);
    EXPECT_TRUE(fs::is_symlink(place.file("link")));
    EXPECT_TRUE(fs::is_fifo(place.file("fifo")));
    EXPECT_EQ(TAV::test::readFile(target), "before");
    EXPECT_EQ(std::distance(fs::directory_iterator(place.path()), fs::directory_iterator()), 3) << "nothing is left";
}

} // namespace
