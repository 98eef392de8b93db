#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "ArchiveFixture.h"
#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{
namespace
{

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kContent = "the content that is kept safe";

class ArchiveExtractionTest : public ArchiveTest
{
protected:
    /// An archive of one file x.
    std::string archiveOf(const std::string& name, const std::string& password = "")
    {
        const std::string archive = directory.file(name);
        EXPECT_EQ(create(archive, {directory.write("x", kContent)}, password).result, "true");
        return archive;
    }

    const std::string out = directory.file("out");
};

TEST_F(ArchiveExtractionTest, MissingOutputDirectoryIsMade)
{
    const std::string archive = archiveOf("a.7z");
    const ArchiveRun run = extract(archive, out + "/deeper/still");
    EXPECT_EQ(run.result, "true");
    EXPECT_THAT(run.left, IsEmpty());
    EXPECT_EQ(readFile(out + "/deeper/still/x"), kContent);
    EXPECT_TRUE(fs::exists(archive)) << "extraction keeps the archive";
}

TEST_F(ArchiveExtractionTest, ExistingFilesAreOverwritten)
{
    fs::create_directories(out);
    directory.write("out/x", "older and much longer than what the archive holds for this name");
    directory.write("out/other", "stays");
    EXPECT_EQ(extract(archiveOf("a.7z"), out).result, "true");
    EXPECT_EQ(readFile(out + "/x"), kContent);
    EXPECT_EQ(readFile(out + "/other"), "stays");
}

TEST_F(ArchiveExtractionTest, PasswordThatIsNotNeededDoesNoHarm)
{
    EXPECT_EQ(extract(archiveOf("a.7z"), out, "not needed").result, "true");
    EXPECT_EQ(readFile(out + "/x"), kContent);
}

TEST_F(ArchiveExtractionTest, OutputDirectoryOfAnyName)
{
    const std::string archive = archiveOf("a.7z");
    for (const std::string name : {"with blank", "$(x);'\"", "\xd0\xb8\xd0\xbc\xd1\x8f"})
    {
        EXPECT_EQ(extract(archive, directory.file(name)).result, "true") << name;
        EXPECT_EQ(readFile(directory.file(name) + "/x"), kContent);
    }
}

TEST_F(ArchiveExtractionTest, WrongPasswordOf7zMakesNoFileAndKeepsAnExistingOne)
{
    const std::string archive = archiveOf("a.7z", "right");
    EXPECT_EQ(extract(archive, out, "wrong").result, "false");
    EXPECT_FALSE(fs::exists(out + "/x"));
    fs::create_directories(out);
    directory.write("out/x", "kept");
    EXPECT_EQ(extract(archive, out, "wrong").result, "false");
    EXPECT_EQ(readFile(out + "/x"), "kept");
}

TEST_F(ArchiveExtractionTest, AnyPasswordIsRightForA7zOfEmptyFiles)
{
    const std::string archive = directory.file("empty.7z");
    ASSERT_EQ(create(archive, {directory.write("one", ""), directory.write("two", "")}, "right").result, "true");
    EXPECT_EQ(extract(archive, out, "wrong").result, "true");
    EXPECT_EQ(readFile(out + "/one"), "");
    EXPECT_TRUE(fs::exists(out + "/two"));
}

TEST_F(ArchiveExtractionTest, WrongPasswordOfZipMakesAFileWithoutTheContent)
{
    EXPECT_EQ(extract(archiveOf("a.zip", "right"), out, "wrong").result, "false");
    // Empty nearly always: one wrong password in 256 gets past the format's first check, and the tool then writes.
    EXPECT_NE(readFile(out + "/x"), kContent);
}

TEST_F(ArchiveExtractionTest, NeededPasswordThatIsNotGivenIsFalse)
{
    for (const std::string name : {"a.7z", "a.zip"})
    {
        const ArchiveRun run = extract(archiveOf(name, "right"), out);
        EXPECT_EQ(run.result, "false") << name;
        EXPECT_THAT(run.left, IsEmpty());
        EXPECT_TRUE(!fs::exists(out + "/x") || readFile(out + "/x") != kContent);
    }
}

TEST_F(ArchiveExtractionTest, DamagedArchivesAreFalse)
{
    const std::string whole = readFile(archiveOf("a.7z"));
    std::string changed = whole;
    changed[40] = static_cast<char>(changed[40] ^ 0x55); // in the packed content
    std::string changedEnd = whole;
    changedEnd[whole.size() - 10] = static_cast<char>(changedEnd[whole.size() - 10] ^ 0x55);
    fs::create_directories(directory.file("directory.7z"));
    for (const std::string& archive : {directory.write("changed.7z", changed),
                                       directory.write("changed-end.7z", changedEnd),
                                       directory.write("cut.7z", whole.substr(0, whole.size() / 2)),
                                       directory.write("short.7z", whole.substr(0, 10)),
                                       directory.write("empty.7z", ""),
                                       directory.write("text.7z", "not an archive\n"),
                                       directory.file("missing.7z"),
                                       directory.file("directory.7z")})
    {
        const ArchiveRun run = extract(archive, out);
        EXPECT_EQ(run.result, "false") << archive;
        EXPECT_THAT(run.left, IsEmpty()) << archive;
    }
}

TEST_F(ArchiveExtractionTest, OutputBelowAPlainFileIsFalse)
{
    const std::string plain = directory.write("plain", "content");
    EXPECT_EQ(extract(archiveOf("a.7z"), plain + "/out").result, "false");
    EXPECT_EQ(readFile(plain), "content");
}

TEST_F(ArchiveExtractionTest, TwoEntriesOfOneBaseNameLeaveOneFile)
{
    fs::create_directories(directory.file("tree/a"));
    fs::create_directories(directory.file("tree/b"));
    directory.write("tree/a/same", "from a");
    directory.write("tree/b/same", "from b");
    EXPECT_EQ(create(directory.file("a.7z"), {directory.file("tree")}).result, "true");
    EXPECT_EQ(extract(directory.file("a.7z"), out).result, "true");
    const std::string left = readFile(out + "/same");
    EXPECT_TRUE(left == "from a" || left == "from b") << left;
    std::size_t files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(out))
        files += entry.is_regular_file() ? 1U : 0U;
    EXPECT_EQ(files, 1U);
}

TEST_F(ArchiveExtractionTest, CommandLineIsLoggedWithItsPassword)
{
    const std::string archive = archiveOf("a.7z", "SECRET");
    EXPECT_THAT(extract(archive, out, "SECRET").log,
                ElementsAre("6 TAVUtils: Child process called to execute the system command :  " +
                            std::string(kArchiveTool) + " e -pSECRET -aoa " + archive + " -o" + out));
}

TEST_F(ArchiveExtractionTest, RefusedArgumentsRunNothing)
{
    EXPECT_THAT(extract("", out).log, IsEmpty());
    EXPECT_EQ(extract("", out).result, "false");
    EXPECT_THAT(extract(archiveOf("a.7z"), "").log, IsEmpty());
    EXPECT_FALSE(fs::exists(out));
}

/// Hides the tool from this process alone.
/// @return why it cannot be hidden; empty if it is
std::string hideTheTool()
{
    const std::string place = fs::path(kArchiveTool).parent_path().string();
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", place.c_str(), "tmpfs", 0, nullptr) != 0)
        return std::string("no mounts of its own for a process: ") + std::strerror(errno);
    return "";
}

// What callers have to guard against: the child that could not start the tool goes on in their code, and the parent
// waits for words on a pipe that nobody will write.
TEST_F(ArchiveExtractionTest, MissingToolComesBackInTheChildAndBlocksTheParent)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            if (const std::string problem = hideTheTool(); !problem.empty())
                return notes.add(problem);
            RecordingLogger logger;
            const auto version = std::make_shared<kernelVersion>(kernelVersion{5, 10, 0});
            QelArchiveUtils archives(logger,
                                     std::make_shared<TAVUtils>(std::make_shared<TAVSystemUtils>(), logger, version));
            const pid_t self = ::getpid();
            const bool answer = archives.extractArchive("/a.7z", "/out", "");
            notes.add(std::string(::getpid() == self ? "parent " : "child ") + (answer ? "true" : "false"));
            if (::getpid() != self)
                ::_exit(127);
        });
    ASSERT_TRUE(eventually([&] { return !notes.lines().empty(); }));
    if (notes.text().rfind("no mounts", 0) == 0)
        GTEST_SKIP() << "the tool cannot be hidden: " << notes.text();
    EXPECT_EQ(process.wait(std::chrono::milliseconds(300)), std::nullopt) << "the parent is blocked";
    EXPECT_EQ(notes.text(), "child false\n");
}

} // namespace
} // namespace TAV::test
