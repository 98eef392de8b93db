// What the guard does with a file, without libmagic, 7-Zip or a daemon that runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "Guard.h"
#include "tav/testing/FakeMagic.h"
#include "tav/testing/FakeQelArchiveUtils.h"
#include "tav/testing/FakeQelSSL.h"

namespace
{

using TAV::test::FakeQelArchiveUtils;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class GuardTest : public testing::Test
{
protected:
    GuardTest()
    {
        std::ofstream(file) << "its content";
        magic.types[file] = "image/png";
        magic.magicOpen();
        magic.magicLoad(nullptr);
        ssl.checksums[file] = {"md5", "sha1", "1234567890abcdef"};
    }
    ~GuardTest() override { std::filesystem::remove_all(directory); }

    static std::string newDirectory()
    {
        std::string name = (std::filesystem::temp_directory_path() / "watcher_test.XXXXXX").string();
        return ::mkdtemp(name.data());
    }

    const std::string directory = newDirectory();
    const std::string file = directory + "/file";
    const std::string archive = directory + "/1234567890ab.7z";
    std::shared_ptr<TAV::test::FaultPlan> plan = std::make_shared<TAV::test::FaultPlan>();
    TAV::test::FakeMagic magic{plan};
    TAV::test::FakeQelSSL ssl{plan};
    FakeQelArchiveUtils archives{plan};
    Guard guard{{magic, ssl, archives}, {{"1234567890abcdef"}, directory, "secret"}};
};

TEST_F(GuardTest, LeavesOtherFilesAlone)
{
    ssl.checksums[file].sha256 = "fedcba0987654321";

    EXPECT_EQ(guard.handle(file), "clean        " + file + " (image/png)");
    EXPECT_THAT(archives.calls(), IsEmpty());
}

TEST_F(GuardTest, MovesDeniedFileIntoArchive)
{
    EXPECT_EQ(guard.handle(file), "QUARANTINED  " + file + " (image/png)");
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_THAT(FakeQelArchiveUtils::contentOf(archive), ElementsAre(Pair("file", "its content")));
}

TEST_F(GuardTest, TellsThatArchiveToolFailed)
{
    plan->failCall("createArchive", 1);

    EXPECT_EQ(guard.handle(file), "NOT MOVED    " + file + " (image/png)");
}

TEST_F(GuardTest, HandsNoPatternToArchiveTool)
{
    const std::string pattern = directory + "/*";
    ssl.checksums[pattern] = ssl.checksums[file];

    EXPECT_EQ(guard.handle(pattern), "NOT MOVED    " + pattern + " (application/octet-stream)");
    EXPECT_THAT(archives.problems(), IsEmpty());
}

TEST_F(GuardTest, LosesNoFileWhateverFails)
{
    for (unsigned int nth = 1;; ++nth) // the first call of all services fails, then the second, ...
    {
        std::filesystem::remove(archive);
        plan->succeed();
        plan->failAnyCall(nth);
        guard.handle(file);
        if (!plan->hasFailed())
            break;
        EXPECT_TRUE(std::filesystem::exists(file) || FakeQelArchiveUtils::contentOf(archive).count("file") == 1) << nth;
        std::ofstream(file) << "its content";
    }
}

} // namespace
