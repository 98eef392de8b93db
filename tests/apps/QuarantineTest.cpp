#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>

#include "apps/QuarantineScene.h"
#include "support/TemporaryDirectory.h"

using namespace TAV::test;
using endpointscan::Quarantine;
using endpointscan::Record;
using endpointscan::RecordEntry;
using endpointscan::RestoreResult;
using endpointscan::StoreResult;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

namespace fs = std::filesystem;

namespace
{

class QuarantineTest : public QuarantineScene
{
};

std::string errorOf(const std::function<void()>& work)
{
    try
    {
        work();
    }
    catch (const std::exception& error)
    {
        return error.what();
    }
    return "";
}

TEST_F(QuarantineTest, MovesFilesOutOfTheTree)
{
    denied("kept", "harmless");
    storeAll({denied("a", "one"), denied("sub/b", "two")});
    EXPECT_THAT(contentOf(root()), ElementsAre(Pair("kept", "harmless")));
}

TEST_F(QuarantineTest, RestoresEveryFileUnderItsPath)
{
    const std::string id = storeAll({denied("a", "one"), denied("sub/deep/b", "two"), denied("sub/b", "two")});
    Quarantine quarantine = open();
    EXPECT_THAT(quarantine.restore(id, target(), never).problems, AllOf(SizeIs(3), Each(IsEmpty())));
    EXPECT_THAT(contentOf(target()), ElementsAre(Pair("a", "one"), Pair("sub/b", "two"), Pair("sub/deep/b", "two")));
}

TEST_F(QuarantineTest, RestoresPermissionsAndTimeToTheNanosecond)
{
    const std::string id = storeAll({denied("a", "one", 04751)});
    Quarantine quarantine = open();
    quarantine.restore(id, target(), never);
    struct stat status = {};
    ASSERT_EQ(::stat((target() + "/a").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 04751U);
    EXPECT_EQ(status.st_mtim.tv_sec, 1'500'000'000);
    EXPECT_EQ(status.st_mtim.tv_nsec, 123'456'789);
}

TEST_F(QuarantineTest, RestoresNamesThatToolsTakeForSomethingElse)
{
    const std::vector<std::string> names{"-x",
                                         "@list",
                                         "a*b?",
                                         "with blank",
                                         "quote'\"",
                                         "Grüße Łódź",
                                         "bad\xff\xfe utf8",
                                         "new\nline",
                                         ".hidden",
                                         "x.7z"};
    std::vector<RecordEntry> files;
    std::map<std::string, std::string> expected;
    for (const std::string& name : names)
    {
        files.push_back(denied("d/" + name, "content of " + name));
        expected["d/" + name] = "content of " + name;
    }
    const std::string id = storeAll(files);
    Quarantine quarantine = open();
    quarantine.restore(id, target(), never);
    EXPECT_EQ(contentOf(target()), expected);
}

TEST_F(QuarantineTest, HandsTheToolOnlySafeNames)
{
    storeAll({denied("-x", "one"), denied("@list", "two")});
    const std::vector<std::string> argv = m_tool->commands().front();
    ASSERT_THAT(argv, SizeIs(6));
    EXPECT_EQ(argv[1], "a");
    EXPECT_EQ(argv[2], "-sdel");
    EXPECT_EQ(argv[3], std::string("-p") + kPassword);
    EXPECT_EQ(argv[4].front(), '/');
    EXPECT_THAT(argv[5], AllOf(HasSubstr(quarantinePath() + "/.staging-"), HasSubstr("/payload")));
}

TEST_F(QuarantineTest, LeavesOnlyTheArchiveAndItsRecord)
{
    const std::string id = storeAll({denied("a", "one")});
    EXPECT_THAT(quarantineNames(), UnorderedElementsAre(id + ".7z", id + ".json"));
}

TEST_F(QuarantineTest, IsOpenToItsOwnerOnly)
{
    const std::string id = storeAll({denied("a", "one")});
    for (const std::string& name : {std::string(), id + ".7z", id + ".json"})
    {
        struct stat status = {};
        ASSERT_EQ(::stat((quarantinePath() + "/" + name).c_str(), &status), 0) << name;
        EXPECT_EQ(status.st_mode & 0077U, 0U) << name;
    }
}

TEST_F(QuarantineTest, KeepsARecordOfWhatCameFromWhere)
{
    const RecordEntry file = denied("sub/a", "one", 0640);
    const std::string id = storeAll({file});
    const Record record = open().record(id);
    EXPECT_EQ(record.id, id);
    EXPECT_EQ(record.root, root());
    ASSERT_THAT(record.files, SizeIs(1));
    EXPECT_EQ(record.files[0].path, "sub/a");
    EXPECT_EQ(record.files[0].storedAs, "0001-" + file.facts.sha256);
    EXPECT_EQ(record.files[0].facts.sha256, file.facts.sha256);
    EXPECT_EQ(record.files[0].facts.size, 3U);
    EXPECT_EQ(record.files[0].facts.mode, 0640U);
}

TEST_F(QuarantineTest, GivesEachStoreAnArchiveOfItsOwn)
{
    const std::string first = storeAll({denied("a", "one")});
    const std::string second = storeAll({denied("a", "two")});
    EXPECT_NE(first, second);
    EXPECT_THAT(open().ids(), UnorderedElementsAre(first, second));
}

TEST_F(QuarantineTest, RestoreReplacesNothing)
{
    const std::string id = storeAll({denied("a", "one"), denied("b", "two")});
    fs::create_directory(target());
    std::ofstream(target() + "/a") << "mine";
    Quarantine quarantine = open();
    EXPECT_THAT(quarantine.restore(id, target(), never).problems, ElementsAre("a file of that name exists", ""));
    EXPECT_THAT(contentOf(target()), ElementsAre(Pair("a", "mine"), Pair("b", "two")));
}

TEST_F(QuarantineTest, RestoreFollowsNoLinkOutOfTheTarget)
{
    const std::string id = storeAll({denied("sub/a", "one")});
    const TemporaryDirectory elsewhere;
    fs::create_directory(target());
    fs::create_directory_symlink(elsewhere.path(), target() + "/sub");
    Quarantine quarantine = open();
    EXPECT_THAT(quarantine.restore(id, target(), never).problems, ElementsAre(Not(IsEmpty())));
    EXPECT_TRUE(fs::is_empty(elsewhere.path()));
}

TEST_F(QuarantineTest, RestoreWithAWrongPasswordGivesNothing)
{
    const std::string id = storeAll({denied("a", "one")});
    Quarantine quarantine = open("guess");
    EXPECT_THAT(errorOf([&] { quarantine.restore(id, target(), never); }), HasSubstr("wrong password"));
    EXPECT_FALSE(fs::exists(target()));
    EXPECT_THAT(quarantineNames(), UnorderedElementsAre(id + ".7z", id + ".json"));
}

TEST_F(QuarantineTest, RestoreRefusesBytesThatAreNotTheRecorded)
{
    const std::string id = storeAll({denied("a", "one")});
    m_tool->fault = FakeArchiver::Fault::ExtractAltersFile;
    Quarantine quarantine = open();
    EXPECT_THAT(quarantine.restore(id, target(), never).problems, ElementsAre(HasSubstr("other bytes")));
    EXPECT_THAT(contentOf(target()), IsEmpty());
}

TEST_F(QuarantineTest, RestoreRefusesAnUnknownArchive)
{
    Quarantine quarantine = open();
    for (const char* id : {"none", "../etc/passwd", ""})
        EXPECT_THAT(errorOf([&] { quarantine.restore(id, target(), never); }), HasSubstr("no such archive")) << id;
}

TEST_F(QuarantineTest, CancelledRestoreLeavesWholeFilesOnly)
{
    const std::string id = storeAll({denied("a", "one"), denied("b", "two")});
    Quarantine quarantine = open();
    int asked = 0;
    const RestoreResult result = quarantine.restore(id, target(), [&asked] { return ++asked > 1; });
    EXPECT_THAT(result.problems, ElementsAre("", "interrupted"));
    EXPECT_THAT(contentOf(target()), ElementsAre(Pair("a", "one")));
    EXPECT_THAT(quarantineNames(), UnorderedElementsAre(id + ".7z", id + ".json"));
}

TEST_F(QuarantineTest, RefusesADirectoryThatOthersMayEnter)
{
    fs::create_directory(quarantinePath());
    ::chmod(quarantinePath().c_str(), 0755);
    EXPECT_THAT(errorOf([this] { open(); }), HasSubstr("needs mode 0700"));
}

TEST_F(QuarantineTest, RefusesNamesThatTheToolTakesForWildcards)
{
    for (const std::string name : {"q*", "q?"})
    {
        EXPECT_THROW(Quarantine::make(m_place.file(name)), endpointscan::UsageError) << name;
        EXPECT_FALSE(fs::exists(m_place.file(name)));
        fs::create_directory(m_place.file(name));
        EXPECT_THROW(Quarantine(m_place.file(name), m_archives, kPassword), endpointscan::UsageError) << name;
    }
}

TEST_F(QuarantineTest, IsUsedByOneProcessAtATime)
{
    const Quarantine first = open();
    EXPECT_THAT(errorOf([this] { open(); }), HasSubstr("another process works in this quarantine"));
}

/// The quarantine is on another file system than the tree: each move is a copy.
class QuarantineElsewhereTest : public QuarantineScene
{
protected:
    void SetUp() override
    {
        if (::mkdtemp(m_elsewhere) == nullptr)
            GTEST_SKIP() << "there is no /dev/shm to write to";
        struct stat here = {};
        struct stat there = {};
        ::stat(root().c_str(), &here);
        ::stat(m_elsewhere, &there);
        if (here.st_dev == there.st_dev)
            GTEST_SKIP() << "/dev/shm is on the file system of the temporary directory";
    }
    void TearDown() override { fs::remove_all(m_elsewhere); }

    std::string quarantinePath() const override { return std::string(m_elsewhere) + "/quarantine"; }

    std::vector<RecordEntry> files() { return {denied("sub/a", "one", 0751), denied(m_longest, "two")}; }

    char m_elsewhere[30] = "/dev/shm/tavutils-test-XXXXXX";
    const std::string m_longest = "sub/" + std::string(NAME_MAX, 'n');
};

TEST_F(QuarantineElsewhereTest, FilesGoThereAndBack)
{
    const std::string id = storeAll(files());
    EXPECT_THAT(contentOf(root()), IsEmpty());
    EXPECT_THAT(open().restore(id, target(), never).problems, ElementsAre("", ""));
    EXPECT_THAT(contentOf(target()), ElementsAre(Pair("sub/a", "one"), Pair(m_longest, "two")));
    struct stat status = {};
    ASSERT_EQ(::stat((target() + "/sub/a").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0751U);
    EXPECT_EQ(status.st_mtim.tv_nsec, 123'456'789);
}

TEST_F(QuarantineElsewhereTest, FilesGoBackWhenTheToolFails)
{
    m_tool->fault = FakeArchiver::Fault::ToolMissing;
    EXPECT_THAT(open().store(root(), files(), never).problems, Each("the archive tool failed"));
    EXPECT_THAT(contentOf(root()), ElementsAre(Pair("sub/a", "one"), Pair(m_longest, "two")));
    EXPECT_THAT(quarantineNames(), IsEmpty());
}

} // namespace
