#include "tav/QelArchiveUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "tav/FMXException.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Throws;

/// Notes the commands that it is asked to run, and runs none.
class FakeUtils : public ITAVUtils
{
public:
    std::chrono::system_clock::time_point getCurrentSystemClockNow() override { return other<Time>("clock"); }
    bool setCPULimit(std::set<int>, unsigned short, std::string) override { return other<bool>("limit"); }
    void removeCPULimit(std::set<int>, std::string) override { otherCalls.emplace_back("unlimit"); }
    bool readSystemCommandOutput(std::vector<std::string>, const std::map<int, bool>*, int*) override
    {
        return other<bool>("capture");
    }
    bool isCGroupsSupported() override { return other<bool>("supported"); }
    bool isDefaultCGroupsMountAvailable() override { return other<bool>("mount"); }

    bool executeSystemCommand(const std::vector<std::string>& argv, const std::map<int, bool>* fdsToKeepOpen) override
    {
        commands.push_back(argv);
        keepMapWasNull = fdsToKeepOpen == nullptr;
        if (onExecute)
            onExecute();
        return answer;
    }

    bool answer = true;
    std::function<void()> onExecute;
    std::vector<std::vector<std::string>> commands;
    std::optional<bool> keepMapWasNull;
    std::vector<std::string> otherCalls;

private:
    using Time = std::chrono::system_clock::time_point;

    template <typename Value>
    Value other(const char* name)
    {
        otherCalls.emplace_back(name);
        return {};
    }
};

constexpr const char* kTool = "/opt/Brenlow/zel/tav/bin/7za";

class QelArchiveUtilsTest : public testing::Test
{
protected:
    bool create(const std::string& path, const std::vector<std::string>& files, const std::string& password = "")
    {
        return archives->createArchive(path, ArchiveType::SevenZip, files, {}, password);
    }

    /// The one command that was run.
    std::vector<std::string> command() const
    {
        EXPECT_EQ(utils->commands.size(), 1U);
        return utils->commands.empty() ? std::vector<std::string>{} : utils->commands.front();
    }

    test::RecordingLogger logger;
    std::shared_ptr<FakeUtils> utils = std::make_shared<FakeUtils>();
    std::unique_ptr<IQelArchiveUtils> archives = std::make_unique<QelArchiveUtils>(logger, utils);
};

TEST_F(QelArchiveUtilsTest, CreateWithoutPassword)
{
    EXPECT_TRUE(create("/tmp/a.7z", {"/tmp/x", "/tmp/y"}));
    EXPECT_THAT(command(), ElementsAre(kTool, "a", "-sdel", "/tmp/a.7z", "/tmp/x", "/tmp/y"));
}

TEST_F(QelArchiveUtilsTest, CreateWithPassword)
{
    EXPECT_TRUE(create("/tmp/a.7z", {"/tmp/x", "/tmp/y"}, "pw"));
    EXPECT_THAT(command(), ElementsAre(kTool, "a", "-sdel", "-ppw", "/tmp/a.7z", "/tmp/x", "/tmp/y"));
}

TEST_F(QelArchiveUtilsTest, ExtractWithoutPassword)
{
    EXPECT_TRUE(archives->extractArchive("/tmp/a.7z", "/tmp/out", ""));
    EXPECT_THAT(command(), ElementsAre(kTool, "e", "-aoa", "/tmp/a.7z", "-o/tmp/out"));
}

TEST_F(QelArchiveUtilsTest, ExtractWithPassword)
{
    EXPECT_TRUE(archives->extractArchive("/tmp/a.7z", "/tmp/out", "pw"));
    EXPECT_THAT(command(), ElementsAre(kTool, "e", "-ppw", "-aoa", "/tmp/a.7z", "-o/tmp/out"));
}

TEST_F(QelArchiveUtilsTest, CreateRefusesAnEmptyPathOrNoFilesAndRunsNothing)
{
    EXPECT_FALSE(create("", {"/tmp/x"}));
    EXPECT_FALSE(create("/tmp/a.7z", {}));
    EXPECT_FALSE(create("", {}, "pw"));
    EXPECT_THAT(utils->commands, IsEmpty());
}

TEST_F(QelArchiveUtilsTest, ExtractRefusesAnEmptyPathOrDirectoryAndRunsNothing)
{
    EXPECT_FALSE(archives->extractArchive("", "/tmp/out", ""));
    EXPECT_FALSE(archives->extractArchive("/tmp/a.7z", "", ""));
    EXPECT_FALSE(archives->extractArchive("", "", "pw"));
    EXPECT_THAT(utils->commands, IsEmpty());
}

TEST_F(QelArchiveUtilsTest, ArgumentsArePassedAsTheyAre)
{
    const std::string odd = "a b;$(c)'\"\\\n*?\xff";
    EXPECT_TRUE(create(odd, {odd, "", "-x", "@y"}, odd));
    EXPECT_THAT(command(), ElementsAre(kTool, "a", "-sdel", "-p" + odd, odd, odd, "", "-x", "@y"));
    utils->commands.clear();
    EXPECT_TRUE(archives->extractArchive(odd, odd, odd));
    EXPECT_THAT(command(), ElementsAre(kTool, "e", "-p" + odd, "-aoa", odd, "-o" + odd));
}

TEST_F(QelArchiveUtilsTest, ManyFilesKeepTheirOrder)
{
    std::vector<std::string> expected{kTool, "a", "-sdel", "/tmp/a.7z"};
    std::vector<std::string> files;
    for (int number = 1000; number > 0; --number)
        files.push_back("/tmp/" + std::to_string(number));
    files.push_back(files.front());
    expected.insert(expected.end(), files.begin(), files.end());
    EXPECT_TRUE(create("/tmp/a.7z", files));
    EXPECT_EQ(command(), expected);
}

TEST_F(QelArchiveUtilsTest, KeepMapIsNull)
{
    create("/tmp/a.7z", {"/tmp/x"});
    EXPECT_EQ(utils->keepMapWasNull, true);
    utils->keepMapWasNull.reset();
    archives->extractArchive("/tmp/a.7z", "/tmp/out", "");
    EXPECT_EQ(utils->keepMapWasNull, true);
}

TEST_F(QelArchiveUtilsTest, ResultOfTheCommandIsTheResult)
{
    for (const bool answer : {true, false})
    {
        utils->answer = answer;
        EXPECT_EQ(create("/tmp/a.7z", {"/tmp/x"}), answer);
        EXPECT_EQ(archives->extractArchive("/tmp/a.7z", "/tmp/out", ""), answer);
    }
}

TEST_F(QelArchiveUtilsTest, TypeAndFileRecordsChangeNothing)
{
    const std::vector<ArchiveInputFileInfo> records[] = {{}, {{"/other", "name"}}, {{"", ""}, {"/tmp/x", "x"}}};
    for (const auto type : {ArchiveType::SevenZip, ArchiveType::Zip, static_cast<ArchiveType>(-5)})
    {
        for (const auto& infos : records)
        {
            utils->commands.clear();
            EXPECT_TRUE(archives->createArchive("/tmp/a.7z", type, {"/tmp/x"}, infos, ""));
            EXPECT_THAT(command(), ElementsAre(kTool, "a", "-sdel", "/tmp/a.7z", "/tmp/x"));
        }
    }
}

TEST_F(QelArchiveUtilsTest, FileRecordsDoNotStandInForFiles)
{
    EXPECT_FALSE(archives->createArchive("/tmp/a.7z", ArchiveType::Zip, {}, {{"/tmp/x", "x"}}, ""));
    EXPECT_THAT(utils->commands, IsEmpty());
}

TEST_F(QelArchiveUtilsTest, NothingIsLoggedOnAnyPath)
{
    for (const bool answer : {true, false})
    {
        utils->answer = answer;
        create("/tmp/a.7z", {"/tmp/x"}, "pw");
        create("", {});
        archives->extractArchive("/tmp/a.7z", "/tmp/out", "pw");
        archives->extractArchive("", "", "");
    }
    EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(QelArchiveUtilsTest, NothingElseOfTheUtilsIsCalled)
{
    create("/tmp/a.7z", {"/tmp/x"});
    archives->extractArchive("/tmp/a.7z", "/tmp/out", "");
    archives.reset();
    EXPECT_THAT(utils->otherCalls, IsEmpty());
}

TEST_F(QelArchiveUtilsTest, StandardExceptionsOfTheCommandPass)
{
    utils->onExecute = [] { throw std::length_error("from the command"); };
    EXPECT_THAT([&] { create("/tmp/a.7z", {"/tmp/x"}); }, Throws<std::length_error>());
    EXPECT_THAT([&] { archives->extractArchive("/tmp/a.7z", "/tmp/out", ""); }, Throws<std::length_error>());
}

TEST_F(QelArchiveUtilsTest, OtherExceptionsOfTheCommandPassAndLeaveTheObjectUsable)
{
    utils->onExecute = [] { throw FMXException(1, "plain"); };
    EXPECT_THAT([&] { create("/tmp/a.7z", {"/tmp/x"}); }, Throws<FMXException>());
    utils->onExecute = nullptr;
    EXPECT_TRUE(create("/tmp/a.7z", {"/tmp/x"}));
}

TEST_F(QelArchiveUtilsTest, ConstructorMovesThePointerIn)
{
    std::shared_ptr<ITAVUtils> handed = std::make_shared<FakeUtils>();
    const std::weak_ptr<ITAVUtils> watched = handed;
    const QelArchiveUtils owner(logger, std::move(handed));
    EXPECT_EQ(handed, nullptr); // NOLINT(bugprone-use-after-move): what the move left is the point
    EXPECT_EQ(watched.use_count(), 1) << "the object holds the only share";
}

TEST_F(QelArchiveUtilsTest, ConstructorChecksNothing)
{
    EXPECT_NO_THROW(QelArchiveUtils(logger, nullptr));
    // Refused arguments never reach the missing collaborator.
    EXPECT_FALSE(QelArchiveUtils(logger, nullptr).extractArchive("", "", ""));
}

TEST_F(QelArchiveUtilsTest, DestructorReleasesTheSharedUtilsAlone)
{
    EXPECT_EQ(utils.use_count(), 2);
    archives.reset();
    EXPECT_EQ(utils.use_count(), 1);
    EXPECT_THAT(utils->commands, IsEmpty());
    EXPECT_THAT(logger.lines(), IsEmpty());
}

/// Stands where the object keeps its members, in their declared order.
struct Layout
{
    const void* table;
    const ILogger* logger;
    std::string componentName;
    std::shared_ptr<ITAVUtils> utils;
};

TEST_F(QelArchiveUtilsTest, MembersAreLoggerComponentNameAndUtilsInThatOrder)
{
    static_assert(sizeof(Layout) == sizeof(QelArchiveUtils));
    const QelArchiveUtils object(logger, utils);
    const auto& layout = reinterpret_cast<const Layout&>(object);
    EXPECT_EQ(layout.logger, &logger);
    EXPECT_EQ(layout.componentName, "QelArchiveUtils");
    EXPECT_EQ(layout.utils, utils);
}

} // namespace
} // namespace TAV
