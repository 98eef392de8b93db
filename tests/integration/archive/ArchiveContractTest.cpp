#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <ostream>

#include "ArchiveFixture.h"
#include "tav/testing/FakeQelArchiveUtils.h"

namespace TAV::test
{
namespace
{

namespace fs = std::filesystem;

using Runner = std::function<bool(const ArchiveOperation&)>;

/// A directory in which something is played with archives, and what there was to see. All names are relative to it.
class Scene
{
public:
    explicit Scene(Runner runner) : m_runner(std::move(runner)) {}

    void file(const std::string& name, const std::string& content) const
    {
        fs::create_directories(fs::path(path(name)).parent_path());
        m_directory.write(name, content);
    }

    void directory(const std::string& name) const { fs::create_directories(path(name)); }

    void create(const std::string& archive, const std::vector<std::string>& names, const std::string& password = "")
    {
        std::vector<std::string> files;
        for (const std::string& name : names)
            files.push_back(path(name));
        note("create " + archive,
             [&](IQelArchiveUtils& archives)
             { return archives.createArchive(path(archive), ArchiveType::SevenZip, files, {}, password); });
    }

    void extract(const std::string& archive, const std::string& target, const std::string& password = "")
    {
        note("extract " + archive,
             [&](IQelArchiveUtils& archives)
             { return archives.extractArchive(path(archive), path(target), password); });
    }

    /// Four wrong passwords, of which one refused is enough. A zip checks a password by one byte: of an empty file,
    /// which has no content to check, one wrong password in 256 is taken for the right one.
    void extractWithWrongPasswords(const std::string& archive, const std::string& target)
    {
        const std::vector<std::string> wrong = {"wrong", "mistaken", "off", "another"};
        note("extract " + archive,
             [&](IQelArchiveUtils& archives)
             {
                 return std::all_of(wrong.begin(),
                                    wrong.end(),
                                    [&](const std::string& password)
                                    { return archives.extractArchive(path(archive), path(target), password); });
             });
    }

    std::string path(const std::string& name) const { return m_directory.file(name); }

    /// The results, and a line for each file and directory that is there; archives by their names alone.
    std::vector<std::string> seen() const
    {
        std::vector<std::string> lines;
        for (const auto& entry : fs::recursive_directory_iterator(m_directory.path()))
            lines.push_back(lineOf(entry.path()));
        std::sort(lines.begin(), lines.end());
        lines.insert(lines.begin(), m_results.begin(), m_results.end());
        return lines;
    }

private:
    void note(const std::string& what, const ArchiveOperation& operation)
    {
        m_results.push_back(what + (m_runner(operation) ? ": true" : ": false"));
    }

    std::string lineOf(const fs::path& found) const
    {
        const std::string name = found.lexically_relative(m_directory.path()).string();
        const std::string extension = found.extension().string();
        struct stat status = {};
        ::stat(found.c_str(), &status);
        if (S_ISDIR(status.st_mode))
            return name + "/";
        if (extension == ".7z" || extension == ".zip")
            return name;
        return name + ", mode " + std::to_string(status.st_mode & 07777U) + ", content " + readFile(found.string());
    }

    TemporaryDirectory m_directory;
    Runner m_runner;
    std::vector<std::string> m_results;
};

struct Play
{
    const char* name;
    void (*act)(Scene& scene);

    friend std::ostream& operator<<(std::ostream& out, const Play& play) { return out << play.name; }
};

const Play kPlays[] = {
    {"InputsMoveIntoTheArchiveAndBackOut",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.file("y", "");
         scene.create("new/deeper/a.7z", {"x", "y"}, "pw");
         scene.extract("new/deeper/a.7z", "out/deeper", "pw");
     }},
    {"ModeAndTimeComeBack",
     [](Scene& scene)
     {
         scene.file("x", "1");
         ::chmod(scene.path("x").c_str(), 0640);
         const auto past = fs::file_time_type::clock::now() - std::chrono::hours(1000);
         fs::last_write_time(scene.path("x"), past);
         scene.create("a.7z", {"x"});
         scene.extract("a.7z", "out");
         const auto difference = fs::last_write_time(scene.path("out/x")) - past;
         scene.file("time", std::chrono::abs(difference) < std::chrono::microseconds(1) ? "same" : "another");
     }},
    {"NameWithoutExtensionGetsOne",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.create("with.dot/archive", {"x"});
         scene.extract("with.dot/archive", "out");
         scene.extract("with.dot/archive.7z", "out2");
     }},
    {"OneOfThreeInputsIsMissing",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.file("y", "2");
         scene.create("a.7z", {"x", "missing", "y"});
         scene.extract("a.7z", "out");
     }},
    {"AllInputsAreMissing",
     [](Scene& scene)
     {
         scene.create("a.7z", {"missing", "gone"});
         scene.extract("a.7z", "out");
     }},
    {"TwoInputsHaveOneName",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.file("d/x", "2");
         scene.create("a.7z", {"x", "d/x"});
         scene.create("b.7z", {"x", "x"});
     }},
    {"DirectoryIsStoredWhole",
     [](Scene& scene)
     {
         scene.file("tree/one", "1");
         scene.file("tree/deep/two", "2");
         scene.directory("tree/empty");
         scene.create("a.7z", {"tree"}, "pw");
         scene.extract("a.7z", "out", "pw");
         scene.extract("a.7z", "locked", "wrong");
     }},
    {"DirectoryWithASlashAtTheEnd",
     [](Scene& scene)
     {
         scene.file("tree/one", "1");
         scene.create("a.7z", {"tree/"});
         scene.extract("a.7z", "out");
     }},
    {"ArchiveInItsOwnInput",
     [](Scene& scene)
     {
         scene.file("tree/one", "1");
         scene.create("tree/a.7z", {"tree"});
         scene.extract("tree/a.7z", "out");
     }},
    {"ArchiveIsAddedTo",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.file("y", "2");
         scene.create("a.7z", {"x", "y"}, "pw");
         scene.file("y", "newer");
         scene.file("z", "3");
         scene.create("a.7z", {"y", "z"}, "pw");
         scene.extract("a.7z", "out", "pw");
     }},
    {"EachFileHasThePasswordThatItWasStoredWith",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.create("a.7z", {"x"}, "pw");
         scene.file("y", "2");
         scene.create("a.7z", {"y"}, "another");
         scene.file("z", "3");
         scene.create("a.7z", {"z"});
         scene.extract("a.7z", "out", "pw");
         scene.extract("a.7z", "out2", "another");
         scene.extract("a.7z", "out3");
     }},
    {"WrongPasswordKeepsWhatIsThere",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.create("a.7z", {"x"}, "right");
         scene.file("out/x", "kept");
         scene.extract("a.7z", "out", "wrong");
         scene.extract("a.7z", "new", "wrong");
         scene.extract("a.7z", "new");
     }},
    {"PasswordThatIsNotNeeded",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.create("a.7z", {"x"});
         scene.extract("a.7z", "out", "not needed");
     }},
    {"EmptyFileNeedsNoPassword",
     [](Scene& scene)
     {
         scene.file("x", "");
         scene.create("a.7z", {"x"}, "right");
         scene.extract("a.7z", "out", "wrong");
         scene.file("x", "");
         scene.create("a.zip", {"x"}, "right");
         scene.extractWithWrongPasswords("a.zip", "zip");
     }},
    {"ExtractionOverwritesFilesAndEmptyDirectories",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.file("y", "2");
         scene.create("a.7z", {"x", "y"});
         scene.file("out/x", "older and longer");
         scene.directory("out/y");
         scene.file("out/z", "stays");
         scene.extract("a.7z", "out");
     }},
    {"DirectoryWithFilesIsInTheWay",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.create("a.7z", {"x"});
         scene.file("out/x/y", "stays");
         scene.extract("a.7z", "out");
     }},
    {"OutputBelowAPlainFile",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.create("a.7z", {"x"});
         scene.file("plain", "stays");
         scene.extract("a.7z", "plain/out");
     }},
    {"WhatIsNoArchive",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.file("text.7z", "not an archive");
         scene.file("empty.7z", "");
         scene.directory("directory.7z");
         for (const char* archive : {"text.7z", "empty.7z", "directory.7z"})
         {
             scene.create(archive, {"x"});
             scene.extract(archive, "out");
         }
         scene.extract("missing.7z", "out");
     }},
    {"DamagedArchive",
     [](Scene& scene)
     {
         scene.file("x", "the content that is damaged, and thus does not come out");
         scene.create("a.7z", {"x"});
         const std::string whole = readFile(scene.path("a.7z"));
         scene.file("cut.7z", whole.substr(0, whole.size() / 2));
         scene.file("changed.7z", whole);
         std::fstream(scene.path("changed.7z"), std::ios::in | std::ios::out | std::ios::binary).seekp(40) << '#';
         scene.extract("cut.7z", "out");
         scene.extract("changed.7z", "out");
         fs::remove_all(scene.path("out")); // 7-Zip may leave a file with wrong content
     }},
    {"LockedZipLeavesAFile",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.create("a.zip", {"x"}, "right");
         scene.extract("a.zip", "out", "wrong");
         // Empty nearly always: one wrong password in 256 gets past the format's first check.
         fs::resize_file(scene.path("out/x"), 0);
     }},
    {"RefusedArguments",
     [](Scene& scene)
     {
         scene.file("x", "1");
         scene.create("a.7z", {});
     }},
};

/// What users test their programs with does what they will meet: 7-Zip, run by the production classes.
class ArchiveContractTest : public testing::TestWithParam<Play>
{
};

TEST_P(ArchiveContractTest, TheFakeLeavesWhatTheToolLeaves)
{
    if (!fs::exists(kArchiveTool))
        GTEST_SKIP() << kArchiveTool << " is missing: run ./dev setup, which makes it a link to /usr/lib/p7zip/7za";
    Scene real([](const ArchiveOperation& operation) { return runArchive(operation).result == "true"; });
    GetParam().act(real);

    FakeQelArchiveUtils archives;
    Scene fake([&](const ArchiveOperation& operation) { return operation(archives); });
    GetParam().act(fake);
    EXPECT_EQ(fake.seen(), real.seen());
    EXPECT_EQ(archives.problems(), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Plays,
                         ArchiveContractTest,
                         testing::ValuesIn(kPlays),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace
} // namespace TAV::test
