#include "tav/QelArchiveUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>

#include "tav/FMXException.h"
#include "tav/testing/FakeTAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV
{
namespace
{

using test::FakeTAVUtils;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::Throws;

constexpr const char* kTool = "/opt/Brenlow/zel/tav/bin/7za";

class QelArchiveUtilsTest : public testing::Test
{
protected:
    bool create(const std::string& path, const std::vector<std::string>& files, const std::string& password = "")
    {
        return archives->createArchive(path, ArchiveType::SevenZip, files, {}, password);
    }

    /// The one command that was run since the last one that was asked for.
    std::vector<std::string> command()
    {
        const auto all = utils->commands();
        EXPECT_EQ(all.size(), ++m_asked);
        return all.empty() ? std::vector<std::string>{} : all.back();
    }

    void answer(bool result)
    {
        utils->onCommand = [result](const auto&) { return result; };
    }

    test::RecordingLogger logger;
    std::shared_ptr<FakeTAVUtils> utils = std::make_shared<FakeTAVUtils>();
    std::unique_ptr<IQelArchiveUtils> archives = std::make_unique<QelArchiveUtils>(logger, utils);

private:
    std::size_t m_asked = 0;
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
    EXPECT_THAT(utils->commands(), IsEmpty());
}

TEST_F(QelArchiveUtilsTest, ExtractRefusesAnEmptyPathOrDirectoryAndRunsNothing)
{
    EXPECT_FALSE(archives->extractArchive("", "/tmp/out", ""));
    EXPECT_FALSE(archives->extractArchive("/tmp/a.7z", "", ""));
    EXPECT_FALSE(archives->extractArchive("", "", "pw"));
    EXPECT_THAT(utils->commands(), IsEmpty());
}

TEST_F(QelArchiveUtilsTest, ArgumentsArePassedAsTheyAre)
{
    const std::string odd = "a b;$(c)'\"\\\n*?\xff";
    EXPECT_TRUE(create(odd, {odd, "", "-x", "@y"}, odd));
    EXPECT_THAT(command(), ElementsAre(kTool, "a", "-sdel", "-p" + odd, odd, odd, "", "-x", "@y"));
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
    archives->extractArchive("/tmp/a.7z", "/tmp/out", "");
    EXPECT_THAT(utils->keepMaps(), ElementsAre(std::nullopt, std::nullopt));
}

TEST_F(QelArchiveUtilsTest, ResultOfTheCommandIsTheResult)
{
    for (const bool result : {true, false})
    {
        answer(result);
        EXPECT_EQ(create("/tmp/a.7z", {"/tmp/x"}), result);
        EXPECT_EQ(archives->extractArchive("/tmp/a.7z", "/tmp/out", ""), result);
    }
}

TEST_F(QelArchiveUtilsTest, TypeAndFileRecordsChangeNothing)
{
    const std::vector<ArchiveInputFileInfo> records[] = {{}, {{"/other", "name"}}, {{"", ""}, {"/tmp/x", "x"}}};
    for (const auto type : {ArchiveType::SevenZip, ArchiveType::Zip, static_cast<ArchiveType>(-5)})
    {
        for (const auto& infos : records)
        {
            EXPECT_TRUE(archives->createArchive("/tmp/a.7z", type, {"/tmp/x"}, infos, ""));
            EXPECT_THAT(command(), ElementsAre(kTool, "a", "-sdel", "/tmp/a.7z", "/tmp/x"));
        }
    }
}

TEST_F(QelArchiveUtilsTest, FileRecordsDoNotStandInForFiles)
{
    EXPECT_FALSE(archives->createArchive("/tmp/a.7z", ArchiveType::Zip, {}, {{"/tmp/x", "x"}}, ""));
    EXPECT_THAT(utils->commands(), IsEmpty());
}

TEST_F(QelArchiveUtilsTest, NothingIsLoggedOnAnyPath)
{
    for (const bool result : {true, false})
    {
        answer(result);
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
    EXPECT_THAT(utils->calls(), ElementsAre(StartsWith("executeSystemCommand("), StartsWith("executeSystemCommand(")));
}

TEST_F(QelArchiveUtilsTest, StandardExceptionsOfTheCommandPass)
{
    utils->onCommand = [](const auto&) -> bool { throw std::length_error("from the command"); };
    EXPECT_THAT([&] { create("/tmp/a.7z", {"/tmp/x"}); }, Throws<std::length_error>());
    EXPECT_THAT([&] { archives->extractArchive("/tmp/a.7z", "/tmp/out", ""); }, Throws<std::length_error>());
}

TEST_F(QelArchiveUtilsTest, OtherExceptionsOfTheCommandPassAndLeaveTheObjectUsable)
{
    utils->onCommand = [](const auto&) -> bool { throw FMXException(1, "plain"); };
    EXPECT_THAT([&] { create("/tmp/a.7z", {"/tmp/x"}); }, Throws<FMXException>());
    utils->onCommand = nullptr;
    EXPECT_TRUE(create("/tmp/a.7z", {"/tmp/x"}));
}

TEST_F(QelArchiveUtilsTest, ConstructorMovesThePointerIn)
{
    std::shared_ptr<ITAVUtils> handed = std::make_shared<FakeTAVUtils>();
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
    EXPECT_THAT(utils->commands(), IsEmpty());
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
