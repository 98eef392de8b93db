// Recipe: make every command safe at its root, those of the archives included.

#include <gtest/gtest.h>

#include <unistd.h>

#include <functional>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "support/TemporaryDirectory.h"
#include "tav/QelArchiveUtils.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

using TAV::test::SacrificialProcess;
using TAV::test::SharedNotes;

//! [safe commands]
/// Runs commands that neither come back in a child nor block on their standard error. Hand it to `QelArchiveUtils`.
class SafeCommands : public TAV::TAVUtils
{
public:
    using TAVUtils::TAVUtils;

    bool executeSystemCommand(const std::vector<std::string>& argv, const std::map<int, bool>* keep) override
    {
        const std::map<int, bool> keepInputAndOutput{{0, true}, {1, true}};
        const pid_t before = ::getpid();
        const bool succeeded = TAVUtils::executeSystemCommand(argv, keep != nullptr ? keep : &keepInputAndOutput);
        if (::getpid() != before)
            ::_exit(127);
        return succeeded;
    }
};
//! [safe commands]

/// What the body says, from a process of its own; several lines if more than one process came back.
std::string resultOf(const std::function<bool(TAV::ILogger&, const std::shared_ptr<SafeCommands>&)>& body)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            TAV::test::RecordingLogger logger;
            auto commands = std::make_shared<SafeCommands>(
                std::make_shared<TAV::TAVSystemUtils>(), logger, std::make_shared<TAV::kernelVersion>());
            notes.add(body(logger, commands) ? "true" : "false");
        });
    return process.wait() ? notes.text() : "blocked";
}

std::string resultOf(const std::vector<std::string>& argv)
{
    return resultOf([&argv](TAV::ILogger&, const auto& commands)
                    { return commands->executeSystemCommand(argv, nullptr); });
}

TEST(SafeCommandsTest, TellsSuccess)
{
    EXPECT_EQ(resultOf({"/bin/sh", "-c", "exit 0"}), "true\n");
}

TEST(SafeCommandsTest, ComesBackOnceAfterSilentFailure)
{
    EXPECT_EQ(resultOf({"/bin/sh", "-c", "exit 3"}), "false\n");
}

TEST(SafeCommandsTest, ComesBackOnceFromProgramThatIsMissing)
{
    EXPECT_EQ(resultOf({"/no/such/program"}), "false\n");
}

TEST(SafeCommandsTest, MakesAndExtractsArchives)
{
    if (::access("/opt/Brenlow/zel/tav/bin/7za", X_OK) != 0)
        GTEST_SKIP() << "the 7-Zip tool is not at /opt/Brenlow/zel/tav/bin/7za (./dev setup links it)";
    const TAV::test::TemporaryDirectory directory;
    const std::string input = directory.write("input", "content");
    const std::string result = resultOf(
        [&](TAV::ILogger& logger, const std::shared_ptr<TAV::ITAVUtils>& commands)
        {
            TAV::QelArchiveUtils archives(logger, commands);
            return archives.createArchive(directory.file("a.7z"), TAV::ArchiveType::SevenZip, {input}, {}, "sesame") &&
                   archives.extractArchive(directory.file("a.7z"), directory.file("out"), "sesame");
        });

    EXPECT_EQ(result, "true\n");
    EXPECT_NE(::access(input.c_str(), F_OK), 0);
    EXPECT_EQ(TAV::test::readFile(directory.file("out/input")), "content");
}

} // namespace
