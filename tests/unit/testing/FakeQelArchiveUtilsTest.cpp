#include "tav/testing/FakeQelArchiveUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// What the fake does as 7-Zip does is tested against 7-Zip; here is what is its own.
class FakeQelArchiveUtilsTest : public testing::Test
{
protected:
    bool create(const std::vector<std::string>& files, const std::string& password = "")
    {
        return archives.createArchive(archive, ArchiveType::SevenZip, files, {}, password);
    }

    std::vector<std::string> twoFiles() const { return {directory.write("x", "1"), directory.write("y", "2")}; }

    const TemporaryDirectory directory;
    const std::string archive = directory.file("a.7z");
    const std::string out = directory.file("out");
    FakeQelArchiveUtils archives;
};

TEST_F(FakeQelArchiveUtilsTest, ContentOfAnArchiveCanBeLookedAt)
{
    fs::create_directories(directory.file("tree"));
    std::string bytes("\0:7\xff\n", 5);
    EXPECT_TRUE(create({directory.write("x", bytes), fs::path(directory.write("tree/y", "2")).parent_path()}, "pw"));
    EXPECT_THAT(FakeQelArchiveUtils::contentOf(archive), ElementsAre(Pair("tree/y", "2"), Pair("x", bytes)));
    EXPECT_THAT(FakeQelArchiveUtils::contentOf(directory.file("missing")), IsEmpty());
}

TEST_F(FakeQelArchiveUtilsTest, AnArchiveSurvivesAMoveAndAnotherObjectReadsIt)
{
    EXPECT_TRUE(create(twoFiles(), "pw"));
    fs::rename(archive, directory.file("moved"));
    EXPECT_TRUE(FakeQelArchiveUtils().extractArchive(directory.file("moved"), out, "pw"));
    EXPECT_EQ(readFile(out + "/x") + readFile(out + "/y"), "12");
}

TEST_F(FakeQelArchiveUtilsTest, EachChangeAndEachCutOfAnArchiveIsNoticed)
{
    EXPECT_TRUE(create(twoFiles(), "pw"));
    const std::string whole = readFile(archive);
    for (std::size_t at = 0; at < whole.size(); ++at)
    {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        EXPECT_FALSE(detail::entriesOf(changed)) << at;
        EXPECT_FALSE(detail::entriesOf(whole.substr(0, at))) << at;
    }
    directory.write("a.7z", whole + "x");
    EXPECT_FALSE(archives.extractArchive(archive, out, "pw"));
    EXPECT_FALSE(fs::exists(out));
    directory.write("a.7z", whole);
    EXPECT_TRUE(archives.extractArchive(archive, out, "pw"));
}

TEST_F(FakeQelArchiveUtilsTest, APlannedFailureDoesNothing)
{
    archives.failCall("createArchive", 1);
    EXPECT_FALSE(create(twoFiles()));
    EXPECT_FALSE(fs::exists(archive));
    EXPECT_EQ(readFile(directory.file("x")) + readFile(directory.file("y")), "12");

    EXPECT_TRUE(create(twoFiles()));
    archives.failCall("extractArchive", 1);
    EXPECT_FALSE(archives.extractArchive(archive, out, ""));
    EXPECT_FALSE(fs::exists(out));
    EXPECT_TRUE(archives.extractArchive(archive, out, ""));
}

TEST_F(FakeQelArchiveUtilsTest, APlannedFailureMayLeaveItHalfDone)
{
    archives.failure = FakeQelArchiveUtils::Failure::HalfDone;
    archives.failCall("createArchive", 1);
    EXPECT_FALSE(create(twoFiles(), "pw"));
    EXPECT_FALSE(fs::exists(directory.file("x")));
    EXPECT_EQ(readFile(directory.file("y")), "2");
    EXPECT_THAT(FakeQelArchiveUtils::contentOf(archive), ElementsAre(Pair("x", "1")));

    EXPECT_TRUE(create({directory.file("y")}, "pw"));
    archives.failCall("extractArchive", 1);
    EXPECT_FALSE(archives.extractArchive(archive, out, "pw"));
    EXPECT_EQ(readFile(out + "/x"), "1");
    EXPECT_FALSE(fs::exists(out + "/y"));
}

TEST_F(FakeQelArchiveUtilsTest, HalfADirectoryIsItsFirstFile)
{
    fs::create_directories(directory.file("tree"));
    directory.write("tree/b", "2");
    directory.write("tree/a", "1");
    archives.failure = FakeQelArchiveUtils::Failure::HalfDone;
    archives.failCall("createArchive", 1);
    EXPECT_FALSE(create({directory.file("tree")}));
    EXPECT_FALSE(fs::exists(directory.file("tree/a")));
    EXPECT_EQ(readFile(directory.file("tree/b")), "2");
}

TEST_F(FakeQelArchiveUtilsTest, InputsThatCannotBeDeletedAreStoredAndStay)
{
    archives.deletesInputs = false;
    EXPECT_TRUE(create(twoFiles()));
    EXPECT_EQ(readFile(directory.file("x")) + readFile(directory.file("y")), "12");
    EXPECT_THAT(FakeQelArchiveUtils::contentOf(archive), ElementsAre(Pair("x", "1"), Pair("y", "2")));
}

TEST_F(FakeQelArchiveUtilsTest, RefusedArgumentsAreFalseAndDoNothing)
{
    const std::vector<std::string> files = twoFiles();
    EXPECT_FALSE(archives.createArchive("", ArchiveType::Zip, files, {}, ""));
    EXPECT_FALSE(archives.createArchive(archive, ArchiveType::Zip, {}, {{files[0], "x"}}, ""));
    EXPECT_FALSE(archives.extractArchive("", out, ""));
    EXPECT_FALSE(archives.extractArchive(archive, "", ""));
    EXPECT_FALSE(fs::exists(archive));
    EXPECT_EQ(readFile(files[0]), "1");
}

TEST_F(FakeQelArchiveUtilsTest, CallsAreNotedWithoutThePassword)
{
    const std::vector<std::string> files = twoFiles();
    create(files, "secret");
    archives.extractArchive(archive, out, "secret");
    archives.extractArchive(archive, out, "");
    EXPECT_THAT(archives.calls(),
                ElementsAre("createArchive(" + archive + ", " + files[0] + ", " + files[1] + ", with a password)",
                            "extractArchive(" + archive + ", " + out + ", with a password)",
                            "extractArchive(" + archive + ", " + out + ")"));
}

TEST_F(FakeQelArchiveUtilsTest, NamesThatMeanSomethingElseTo7ZipAreProblems)
{
    create({directory.file("@fine"), directory.file("-fine"), "fine"});
    EXPECT_THAT(archives.problems(), IsEmpty());
    create({"@x", "-x", directory.file("g/*"), directory.file("g/?"), ""});
    EXPECT_THAT(archives.problems(),
                ElementsAre("@x is a list of files to 7-Zip",
                            "-x is a switch to 7-Zip",
                            directory.file("g/*") + " is a pattern to 7-Zip",
                            directory.file("g/?") + " is a pattern to 7-Zip"));
}

TEST_F(FakeQelArchiveUtilsTest, PlainRelativeNamesKeepTheirDirectories)
{
    const fs::path before = fs::current_path();
    fs::create_directories(directory.file("d"));
    directory.write("x", "1");
    directory.write("d/x", "2");
    directory.write("d/y", "3");
    fs::current_path(directory.path());
    EXPECT_TRUE(archives.createArchive("a.7z", ArchiveType::SevenZip, {"x", "d/x", "./d/y"}, {}, ""));
    fs::current_path(before);
    EXPECT_THAT(FakeQelArchiveUtils::contentOf(archive), ElementsAre(Pair("d/x", "2"), Pair("x", "1"), Pair("y", "3")));
}

} // namespace
} // namespace TAV::test
