// Recipe: give the 7-Zip tool only names that mean one file each, and believe the file system, not the result.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"
#include "tav/QelArchiveUtils.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/FakeQelArchiveUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

using TAV::test::FakeQelArchiveUtils;
using TAV::test::SacrificialProcess;
using testing::IsEmpty;

//! [safe archive names]
/// Absolute, so that neither '@' nor '-' stands first.
/// @return nothing if the tool would take the name for a pattern
std::optional<std::string> safeArchiveName(const std::filesystem::path& path)
{
    const std::string name = std::filesystem::absolute(path).lexically_normal().string();
    const bool isPattern = name.find_first_of("*?") != std::string::npos;
    return isPattern ? std::nullopt : std::optional<std::string>(name);
}

/// Moves regular files into an archive. All of them are refused if one is.
bool moveIntoArchive(TAV::IQelArchiveUtils& archives,
                     const std::string& archivePath,
                     const std::vector<std::string>& files,
                     const std::string& password)
{
    const auto archive = safeArchiveName(archivePath);
    std::vector<std::string> inputs;
    std::set<std::string> baseNames; // the tool refuses two inputs of one base name, and extraction would mix them up
    for (const std::string& file : files)
    {
        const auto input = safeArchiveName(file);
        struct stat status = {};
        if (!input || ::lstat(input->c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
            !baseNames.insert(std::filesystem::path(*input).filename()).second)
            return false;
        inputs.push_back(*input);
    }
    if (!archive || std::filesystem::path(*archive).extension() != ".7z")
        return false; // without an extension the tool chooses another name

    const pid_t before = ::getpid();
    const bool succeeded = archives.createArchive(*archive, TAV::ArchiveType::SevenZip, inputs, {}, password);
    if (::getpid() != before)
    {
        const ssize_t told = ::write(STDERR_FILENO, "not started\n", 12); // the caller waits for a word
        ::_exit(told < 0 ? 126 : 127);
    }
    const auto isGone = [](const std::string& input) { return ::access(input.c_str(), F_OK) != 0; };
    return succeeded && std::all_of(inputs.begin(), inputs.end(), isGone);
}
//! [safe archive names]

TEST(SafeArchiveNamesTest, RefusesEveryPattern)
{
    for (const char* name : {"/q/*", "/q/a?", "*", "/q?/a"})
        EXPECT_EQ(safeArchiveName(name), std::nullopt) << name;
}

TEST(SafeArchiveNamesTest, MakesNamesAbsolute)
{
    const std::string here = std::filesystem::current_path().string();

    EXPECT_EQ(safeArchiveName("@list"), here + "/@list");
    EXPECT_EQ(safeArchiveName("-x"), here + "/-x");
    EXPECT_EQ(safeArchiveName("/q/./a"), "/q/a");
}

TEST(SafeArchiveNamesTest, RefusesAllInputsForOneMissing)
{
    const TAV::test::TemporaryDirectory directory;
    FakeQelArchiveUtils archives;
    const std::string present = directory.write("present", "x");

    EXPECT_FALSE(moveIntoArchive(archives, directory.file("a.7z"), {present, directory.file("missing")}, ""));
    EXPECT_THAT(archives.calls(), IsEmpty());
}

TEST(SafeArchiveNamesTest, RefusesTwoInputsOfOneBaseName)
{
    const TAV::test::TemporaryDirectory directory;
    FakeQelArchiveUtils archives;
    std::filesystem::create_directory(directory.file("d"));

    EXPECT_FALSE(moveIntoArchive(
        archives, directory.file("a.7z"), {directory.write("x", "1"), directory.write("d/x", "2")}, ""));
    EXPECT_THAT(archives.calls(), IsEmpty());
}

TEST(SafeArchiveNamesTest, RefusesArchiveWithoutExtension)
{
    const TAV::test::TemporaryDirectory directory;
    FakeQelArchiveUtils archives;

    EXPECT_FALSE(moveIntoArchive(archives, directory.file("a"), {directory.write("x", "1")}, ""));
    EXPECT_THAT(archives.calls(), IsEmpty());
}

TEST(SafeArchiveNamesTest, NoticesInputThatTheToolCouldNotDelete)
{
    const TAV::test::TemporaryDirectory directory;
    FakeQelArchiveUtils archives;
    const std::string input = directory.write("x", "1");
    archives.deletesInputs = false;

    EXPECT_FALSE(moveIntoArchive(archives, directory.file("a.7z"), {input}, ""));
    archives.deletesInputs = true;
    EXPECT_TRUE(moveIntoArchive(archives, directory.file("a.7z"), {input}, ""));
}

/// The real tool moves one file of this name, beside another one that must stay.
void expectOnlyThisFileIsMoved(const std::string& name)
{
    const TAV::test::TemporaryDirectory directory;
    const std::string bystander = directory.write("bystander", "stay");
    const std::string odd = directory.write(name, "bystander\n"); // a list of one file, if it is taken for a list
    SacrificialProcess process(
        [&]
        {
            std::filesystem::current_path(directory.path());
            TAV::test::RecordingLogger logger;
            auto utils = std::make_shared<TAV::TAVUtils>(
                std::make_shared<TAV::TAVSystemUtils>(), logger, std::make_shared<TAV::kernelVersion>());
            TAV::QelArchiveUtils archives(logger, utils);
            if (!moveIntoArchive(archives, "a.7z", {name}, "sesame"))
                ::_exit(1);
        });

    EXPECT_EQ(process.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(odd));
    EXPECT_EQ(TAV::test::readFile(bystander), "stay");
}

TEST(SafeArchiveNamesTest, MoveExactlyOneFileWithTheRealTool)
{
    if (::access("/opt/Brenlow/zel/tav/bin/7za", X_OK) != 0)
        GTEST_SKIP() << "the 7-Zip tool is not at /opt/Brenlow/zel/tav/bin/7za (./dev setup links it)";
    for (const char* name : {"@list", "-x", "-sdel", "with blank", "plain"})
    {
        SCOPED_TRACE(name);
        expectOnlyThisFileIsMoved(name);
    }
}

} // namespace
