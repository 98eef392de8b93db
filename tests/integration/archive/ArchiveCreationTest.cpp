#include <gmock/gmock.h>

#include <filesystem>

#include "ArchiveFixture.h"

namespace TAV::test
{
namespace
{

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

using ArchiveCreationTest = ArchiveTest;

TEST_F(ArchiveCreationTest, InputsAreMovedIntoTheArchive)
{
    for (const std::string extension : {".7z", ".zip", ".tar"})
    {
        const std::string archive = directory.file("archive" + extension);
        const ArchiveRun run = create(archive, {directory.write("x", "content")});
        EXPECT_EQ(run.result, "true") << extension;
        EXPECT_THAT(run.left, IsEmpty());
        EXPECT_FALSE(fs::exists(directory.file("x"))) << "moved, not copied";
        expectContent(archive, "x", "content");
    }
}

TEST_F(ArchiveCreationTest, SeveralInputsGoIntoOneArchive)
{
    const std::string archive = directory.file("a.7z");
    EXPECT_EQ(create(archive, {directory.write("x", "1"), directory.write("y", "2"), directory.write("z", "")}).result,
              "true");
    EXPECT_EQ(extract(archive, directory.file("out")).result, "true");
    EXPECT_THAT(namesIn(directory.file("out")), ElementsAre("x", "y", "z"));
    EXPECT_EQ(readFile(directory.file("out/y")), "2");
    EXPECT_EQ(readFile(directory.file("out/z")), "");
}

TEST_F(ArchiveCreationTest, PasswordProtects)
{
    for (const std::string extension : {".7z", ".zip"})
    {
        for (const std::string password : {"pw", "two words", "$(x)'\"`;&|*", "-p"})
        {
            const std::string archive = directory.file("archive" + extension);
            EXPECT_EQ(create(archive, {directory.write("x", "content")}, password).result, "true") << password;
            EXPECT_EQ(readFile(archive).find("content"), std::string::npos) << password;
            expectContent(archive, "x", "content", password);
            fs::remove(archive);
        }
    }
}

TEST_F(ArchiveCreationTest, PasswordBeyondAsciiIsFor7zAlone)
{
    const std::string password = "p\xc3\xa4ss";
    EXPECT_EQ(create(directory.file("a.7z"), {directory.write("x", "content")}, password).result, "true");
    expectContent(directory.file("a.7z"), "x", "content", password);
    EXPECT_EQ(create(directory.file("a.zip"), {directory.write("x", "content")}, password).result, "false");
    EXPECT_EQ(readFile(directory.file("x")), "content") << "the input stays";
}

TEST_F(ArchiveCreationTest, NamesOfManyKindsSurvive)
{
    for (const std::string name : {"with blank",
                                   " leading",
                                   "$(touch bad);`x`&|<>#~!",
                                   "'single' \"double\"",
                                   "back\\slash",
                                   "\xd0\xb8\xd0\xbc\xd1\x8f \xe6\x96\x87\xe4\xbb\xb6",
                                   "\xff\xfe name",
                                   "-x",
                                   "@list"})
    {
        const std::string archive = directory.file(name + ".7z");
        EXPECT_EQ(create(archive, {directory.write(name, "content of " + name)}).result, "true") << name;
        EXPECT_FALSE(fs::exists(directory.file(name))) << name;
        expectContent(archive, name, "content of " + name);
    }
    EXPECT_FALSE(fs::exists("bad")) << "no shell sees the names";
}

TEST_F(ArchiveCreationTest, DirectoryIsStoredWithAllThatIsInItAndDeleted)
{
    fs::create_directories(directory.file("tree/deep"));
    directory.write("tree/one", "1");
    directory.write("tree/deep/two", "2");
    EXPECT_EQ(create(directory.file("a.7z"), {directory.file("tree")}).result, "true");
    EXPECT_FALSE(fs::exists(directory.file("tree")));
    EXPECT_EQ(extract(directory.file("a.7z"), directory.file("out")).result, "true");
    EXPECT_EQ(readFile(directory.file("out/one")), "1");
    EXPECT_EQ(readFile(directory.file("out/two")), "2") << "without the directories of the archive";
}

TEST_F(ArchiveCreationTest, ExistingArchiveIsAddedTo)
{
    const std::string archive = directory.file("a.7z");
    EXPECT_EQ(create(archive, {directory.write("x", "1"), directory.write("y", "2")}).result, "true");
    EXPECT_EQ(create(archive, {directory.write("y", "newer"), directory.write("z", "3")}).result, "true");
    EXPECT_EQ(extract(archive, directory.file("out")).result, "true");
    EXPECT_THAT(namesIn(directory.file("out")), ElementsAre("x", "y", "z"));
    EXPECT_EQ(readFile(directory.file("out/y")), "newer");
}

TEST_F(ArchiveCreationTest, NameWithoutAnExtensionGetsOne)
{
    EXPECT_EQ(create(directory.file("archive"), {directory.write("x", "content")}).result, "true");
    EXPECT_THAT(namesIn(directory.path()), ElementsAre("archive.7z"));
}

TEST_F(ArchiveCreationTest, MissingDirectoryOfTheArchiveIsMade)
{
    const std::string archive = directory.file("new/deeper/a.7z");
    EXPECT_EQ(create(archive, {directory.write("x", "content")}).result, "true");
    expectContent(archive, "x", "content");
}

TEST_F(ArchiveCreationTest, OneOfTwoInputsMissingIsFalseYetTheOtherIsMoved)
{
    const std::string archive = directory.file("a.7z");
    const ArchiveRun run = create(archive, {directory.write("x", "content"), directory.file("missing")});
    EXPECT_EQ(run.result, "false");
    EXPECT_THAT(run.left, IsEmpty());
    EXPECT_FALSE(fs::exists(directory.file("x")));
    expectContent(archive, "x", "content");
}

TEST_F(ArchiveCreationTest, AllInputsMissingIsFalseAndMakesAnEmptyArchive)
{
    const std::string archive = directory.file("a.7z");
    EXPECT_EQ(create(archive, {directory.file("missing"), directory.file("gone")}).result, "false");
    ASSERT_TRUE(fs::exists(archive));
    EXPECT_EQ(extract(archive, directory.file("out")).result, "true");
    EXPECT_TRUE(!fs::exists(directory.file("out")) || fs::is_empty(directory.file("out")));
}

TEST_F(ArchiveCreationTest, TwoInputsOfOneBaseNameAreRefusedAndStay)
{
    fs::create_directories(directory.file("d"));
    const std::vector<std::string> inputs{directory.write("x", "1"), directory.write("d/x", "2")};
    EXPECT_EQ(create(directory.file("a.7z"), inputs).result, "false");
    EXPECT_EQ(readFile(inputs[0]), "1");
    EXPECT_EQ(readFile(inputs[1]), "2");
}

TEST_F(ArchiveCreationTest, ArchiveThatCannotBeWrittenIsFalseAndInputsStay)
{
    fs::create_directories(directory.file("is-a-directory.7z"));
    const std::string input = directory.write("x", "content");
    for (const std::string& archive :
         {directory.file("is-a-directory.7z"), directory.write("corrupt.7z", "7z\xbc\xaf\x27\x1c, not really")})
    {
        EXPECT_EQ(create(archive, {input}).result, "false") << archive;
        EXPECT_EQ(readFile(input), "content") << archive;
    }
}

TEST_F(ArchiveCreationTest, WildcardIsExpandedByTheToolAndDeletesAllItMatches)
{
    fs::create_directories(directory.file("g"));
    directory.write("g/one", "1");
    directory.write("g/two", "2");
    EXPECT_EQ(create(directory.file("a.7z"), {directory.file("g/*")}).result, "true");
    EXPECT_TRUE(fs::is_empty(directory.file("g")));
}

TEST_F(ArchiveCreationTest, RelativeNamesWithAtAndDashMeanListsAndSwitches)
{
    directory.write("victim", "content");
    directory.write("list", directory.file("victim") + "\n");
    const auto createIn = [this](const std::string& input)
    {
        return runArchive([&](IQelArchiveUtils& archives)
                          { return archives.createArchive("a.7z", ArchiveType::SevenZip, {input}, {}, ""); },
                          [this] { fs::current_path(directory.path()); });
    };
    EXPECT_EQ(createIn("-nosuchswitch").result, "false");
    EXPECT_TRUE(fs::exists(directory.file("victim")));
    EXPECT_EQ(createIn("@list").result, "true");
    EXPECT_FALSE(fs::exists(directory.file("victim"))) << "what the list names is moved";
    EXPECT_TRUE(fs::exists(directory.file("list")));
}

TEST_F(ArchiveCreationTest, CommandLineIsLoggedWithItsPassword)
{
    const std::string archive = directory.file("a.7z");
    const std::string input = directory.write("x", "content");
    EXPECT_THAT(create(archive, {input}, "SECRET").log,
                ElementsAre("6 TAVUtils: Child process called to execute the system command :  " +
                            std::string(kArchiveTool) + " a -sdel -pSECRET " + archive + " " + input));
}

TEST_F(ArchiveCreationTest, FailureOfTheToolAddsNoLine)
{
    const ArchiveRun run = create(directory.file("a.7z"), {directory.file("missing")});
    EXPECT_EQ(run.result, "false");
    EXPECT_THAT(
        run.log,
        ElementsAre("6 TAVUtils: Child process called to execute the system command :  " + std::string(kArchiveTool) +
                    " a -sdel " + directory.file("a.7z") + " " + directory.file("missing")));
}

TEST_F(ArchiveCreationTest, RefusedArgumentsRunNothing)
{
    const ArchiveRun run = create("", {directory.write("x", "content")}, "SECRET");
    EXPECT_EQ(run.result, "false");
    EXPECT_THAT(run.log, IsEmpty());
    EXPECT_THAT(create(directory.file("a.7z"), {}).log, IsEmpty());
    EXPECT_THAT(namesIn(directory.path()), ElementsAre("x"));
}

} // namespace
} // namespace TAV::test
