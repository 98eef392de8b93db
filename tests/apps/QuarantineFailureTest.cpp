#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "apps/QuarantineScene.h"
#include "endpoint_scan/Staging.h"

using namespace TAV::test;
using endpointscan::Quarantine;
using endpointscan::Record;
using endpointscan::RecordEntry;
using endpointscan::Staging;
using endpointscan::StoreResult;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

namespace fs = std::filesystem;

namespace
{

constexpr int kCrashed = 9;

/// Whatever goes wrong, each file is in its place with its bytes, or in an archive that gives them back.
class QuarantineFailureTest : public QuarantineScene
{
protected:
    std::vector<RecordEntry> threeFiles()
    {
        return {denied("a", "one", 0640), denied("sub/b", "two"), denied("sub/c", "two")};
    }

    const std::map<std::string, std::string> m_threeContents{{"a", "one"}, {"sub/b", "two"}, {"sub/c", "two"}};

    void expectAllInPlace(const std::string& what) const
    {
        EXPECT_EQ(contentOf(root()), m_threeContents) << what;
        struct stat status = {};
        ASSERT_EQ(::stat((root() + "/a").c_str(), &status), 0) << what;
        EXPECT_EQ(status.st_mode & 07777U, 0640U) << what;
        EXPECT_EQ(status.st_mtim.tv_nsec, 123'456'789) << what;
    }

    /// Runs the work in a child that dies at once when it says so.
    template <typename Work>
    static int exitCodeOfChild(Work work)
    {
        const pid_t pid = ::fork();
        if (pid == 0)
        {
            work();
            ::_exit(0);
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

struct ToolFault
{
    FakeArchiver::Fault fault;
    const char* reason;

    friend std::ostream& operator<<(std::ostream& out, const ToolFault& it) { return out << it.reason; }
};

class ToolFaultTest : public QuarantineFailureTest, public ::testing::WithParamInterface<ToolFault>
{
};

TEST_P(ToolFaultTest, PutsEveryFileBack)
{
    m_tool->fault = GetParam().fault;
    Quarantine quarantine = open();
    const StoreResult result = quarantine.store(root(), threeFiles(), never);
    EXPECT_THAT(result.problems, AllOf(SizeIs(3), Each(HasSubstr(GetParam().reason))));
    EXPECT_THAT(result.archive, IsEmpty());
    expectAllInPlace("after the failure");
    EXPECT_THAT(quarantineNames(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Faults,
    ToolFaultTest,
    ::testing::Values(ToolFault{FakeArchiver::Fault::ToolMissing, "the archive tool failed"},
                      ToolFault{FakeArchiver::Fault::CreateHalfDone, "the archive tool failed"},
                      ToolFault{FakeArchiver::Fault::CreateDropsFile, "cannot open 0001-"},
                      ToolFault{FakeArchiver::Fault::ExtractFails,
                                "the archive tool could not read the archive that it had made"},
                      ToolFault{FakeArchiver::Fault::ExtractAltersFile, "the archive does not give back a"},
                      ToolFault{FakeArchiver::Fault::ExtractAltersRecord, "the archive does not hold its record"}),
    [](const auto& test) { return "Fault" + std::to_string(static_cast<int>(test.param.fault)); });

TEST_F(QuarantineFailureTest, AnExceptionOfTheToolPutsEveryFileBack)
{
    m_tool->beforeCommand = [](const std::vector<std::string>&) { throw std::runtime_error("no memory"); };
    Quarantine quarantine = open();
    EXPECT_THAT(quarantine.store(root(), threeFiles(), never).problems, Each("no memory"));
    expectAllInPlace("after the exception");
}

TEST_F(QuarantineFailureTest, CancellingAtAnyStepPutsEveryFileBack)
{
    const std::vector<RecordEntry> files = threeFiles();
    int steps = 0;
    for (int cancelAt = 1;; ++cancelAt)
    {
        Quarantine quarantine = open();
        int asked = 0;
        const StoreResult result = quarantine.store(root(), files, [&asked, cancelAt] { return ++asked >= cancelAt; });
        if (asked < cancelAt)
            break;
        ++steps;
        EXPECT_THAT(result.problems, Each("interrupted")) << cancelAt;
        expectAllInPlace("cancelled at step " + std::to_string(cancelAt));
        EXPECT_THAT(quarantineNames(), IsEmpty()) << cancelAt;
    }
    EXPECT_GE(steps, 6); // three files, before the tool, between its two runs, at the end
    EXPECT_THAT(contentOf(root()), IsEmpty());
}

TEST_F(QuarantineFailureTest, AFileReplacedAfterItsExaminationStays)
{
    const RecordEntry file = denied("a", "one");
    fs::rename(root() + "/a", root() + "/former");
    std::ofstream(root() + "/a") << "new";
    Quarantine quarantine = open();
    EXPECT_THAT(quarantine.store(root(), {file}, never).problems, ElementsAre(HasSubstr("replaced")));
    EXPECT_THAT(contentOf(root()), ElementsAre(Pair("a", "new"), Pair("former", "one")));
}

TEST_F(QuarantineFailureTest, AFileChangedAfterItsExaminationStays)
{
    const RecordEntry file = denied("a", "one");
    std::ofstream(root() + "/a") << "two";
    Quarantine quarantine = open();
    EXPECT_THAT(quarantine.store(root(), {file}, never).problems, ElementsAre(HasSubstr("changed")));
    EXPECT_THAT(contentOf(root()), ElementsAre(Pair("a", "two")));
    EXPECT_THAT(quarantineNames(), IsEmpty());
}

TEST_F(QuarantineFailureTest, AVanishedFileDoesNotKeepTheOthersFromTheirWay)
{
    const std::vector<RecordEntry> files = threeFiles();
    fs::remove(root() + "/sub/b");
    Quarantine quarantine = open();
    const StoreResult result = quarantine.store(root(), files, never);
    EXPECT_THAT(result.problems, ElementsAre("", HasSubstr("No such file"), ""));
    const std::string id = fs::path(result.archive).stem().string();
    quarantine.restore(id, target(), never);
    EXPECT_THAT(contentOf(target()), ElementsAre(Pair("a", "one"), Pair("sub/c", "two")));
}

TEST_F(QuarantineFailureTest, ADirectoryReplacedByALinkIsNotFollowed)
{
    const RecordEntry file = denied("sub/a", "one");
    const TemporaryDirectory elsewhere;
    fs::rename(root() + "/sub", elsewhere.file("sub"));
    fs::create_directory_symlink(elsewhere.file("sub"), root() + "/sub");
    Quarantine quarantine = open();
    EXPECT_THAT(quarantine.store(root(), {file}, never).problems, ElementsAre(HasSubstr("sub")));
    EXPECT_EQ(readFile(elsewhere.file("sub/a")), "one");
}

TEST_F(QuarantineFailureTest, WhatCannotGoBackIsKeptAndTold)
{
    const RecordEntry file = denied("a", "one");
    m_tool->beforeCommand = [this](const std::vector<std::string>&) { std::ofstream(root() + "/a") << "usurper"; };
    m_tool->fault = FakeArchiver::Fault::ToolMissing;
    {
        Quarantine quarantine = open();
        const StoreResult result = quarantine.store(root(), {file}, never);
        EXPECT_THAT(result.problems,
                    ElementsAre(AllOf(HasSubstr("the archive tool failed"), HasSubstr("is kept as .staging-"))));
        EXPECT_THAT(result.setAside, ElementsAre(0));
    }
    ASSERT_THAT(quarantineNames(), ElementsAre(HasSubstr(".staging-")));
    EXPECT_EQ(readFile(quarantinePath() + "/" + quarantineNames()[0] + "/originals/0001-" + file.facts.sha256), "one");
    EXPECT_THAT(open().leftover(), HasSubstr("is kept as .staging-")) << "the next run tells again";

    fs::remove(root() + "/a");
    EXPECT_THAT(open().leftover(), IsEmpty());
    EXPECT_THAT(contentOf(root()), ElementsAre(Pair("a", "one")));
    EXPECT_THAT(quarantineNames(), IsEmpty());
}

TEST_F(QuarantineFailureTest, WhatCannotGoBackIsAllThatIsKept)
{
    const std::vector<RecordEntry> files = threeFiles();
    m_tool->afterCommand = [this](const std::vector<std::string>&) { std::ofstream(root() + "/a") << "usurper"; };
    m_tool->fault = FakeArchiver::Fault::ExtractAltersFile; // so late that archive and extracted files are there
    open().store(root(), files, never);
    ASSERT_THAT(quarantineNames(), ElementsAre(HasSubstr(".staging-")));
    const std::string kept = "originals/0001-" + files[0].facts.sha256;
    EXPECT_THAT(contentOf(quarantinePath() + "/" + quarantineNames()[0]),
                ElementsAre(Pair(kept, "one"), Pair("record.json", testing::_)));
    EXPECT_THAT(contentOf(root()), ElementsAre(Pair("a", "usurper"), Pair("sub/b", "two"), Pair("sub/c", "two")));
}

TEST_F(QuarantineFailureTest, TheNextRunPutsBackWhatACrashLeft)
{
    const std::vector<RecordEntry> files = threeFiles();
    for (const char* command : {"a", "e"})
    {
        for (const bool isAfter : {false, true})
        {
            const auto crash = [command](const std::vector<std::string>& argv)
            {
                if (argv[1] == command)
                    ::_exit(kCrashed);
            };
            (isAfter ? m_tool->afterCommand : m_tool->beforeCommand) = crash;
            const int code = exitCodeOfChild([&] { open().store(root(), files, never); });
            ASSERT_EQ(code, kCrashed);
            EXPECT_THAT(contentOf(root()), IsEmpty()) << "the crash came with the files on their way";
            m_tool->beforeCommand = m_tool->afterCommand = nullptr;

            open();
            expectAllInPlace(std::string("crash at ") + command);
            EXPECT_THAT(quarantineNames(), IsEmpty());
        }
    }
}

TEST_F(QuarantineFailureTest, ACrashBehindTheArchiveLosesAndDoublesNothing)
{
    const std::vector<RecordEntry> files = threeFiles();
    const std::string id = storeAll(files);
    // The same files once more, as they lay in the staging directory just before it was removed.
    const std::vector<RecordEntry> again = threeFiles();
    const int code = exitCodeOfChild(
        [&]
        {
            const endpointscan::Fd directory = endpointscan::openDirectory(quarantinePath());
            Record record = endpointscan::recordFromText(readFile(quarantinePath() + "/" + id + ".json"));
            for (std::size_t i = 0; i < again.size(); ++i)
                record.files[i].facts.identity = again[i].facts.identity;
            Staging staging(directory.get(), record);
            for (const RecordEntry& entry : record.files)
                staging.take(entry);
            ::_exit(kCrashed);
        });
    ASSERT_EQ(code, kCrashed);

    Quarantine quarantine = open();
    EXPECT_THAT(contentOf(root()), IsEmpty());
    EXPECT_THAT(quarantineNames(), ElementsAre(id + ".7z", id + ".json"));
    quarantine.restore(id, target(), never);
    EXPECT_EQ(contentOf(target()), m_threeContents);
}

TEST_F(QuarantineFailureTest, ACrashBetweenCopyAndRemovalLeavesOneFile)
{
    const RecordEntry file = denied("a", "one");
    const int code = exitCodeOfChild(
        [&]
        {
            open();
            const endpointscan::Fd directory = endpointscan::openDirectory(quarantinePath());
            RecordEntry entry = file;
            entry.storedAs = "0001-" + file.facts.sha256;
            Staging staging(directory.get(), Record{"id", "", "", root(), {entry}});
            fs::copy_file(root() + "/a", quarantinePath() + "/.staging-id/originals/" + entry.storedAs);
            ::_exit(kCrashed);
        });
    ASSERT_EQ(code, kCrashed);
    open();
    EXPECT_THAT(contentOf(root()), ElementsAre(Pair("a", "one")));
    EXPECT_THAT(quarantineNames(), IsEmpty());
}

TEST_F(QuarantineFailureTest, ACrashBeforeTheRecordLeavesNothingToDo)
{
    open();
    fs::create_directories(quarantinePath() + "/.staging-x/originals");
    fs::create_directories(quarantinePath() + "/.restore-x/files");
    open();
    EXPECT_THAT(quarantineNames(), IsEmpty());
}

TEST_F(QuarantineFailureTest, FilesWithoutARecordAreNotTouched)
{
    open();
    fs::create_directories(quarantinePath() + "/.staging-x/originals");
    std::ofstream(quarantinePath() + "/.staging-x/originals/0001-ab") << "whose?";
    EXPECT_THAT(open().leftover(), HasSubstr(".staging-x holds files but no record"));
    EXPECT_EQ(readFile(quarantinePath() + "/.staging-x/originals/0001-ab"), "whose?");
}

} // namespace
