#include "endpoint_scan/Outcome.h"

#include <fstream>

#include "apps/QuarantineScene.h"
#include "endpoint_scan/ExitCodes.h"

using namespace endpointscan;
using namespace TAV::test;
using ::testing::HasSubstr;

namespace
{

class OutcomeTest : public QuarantineScene
{
protected:
    /// Finds two denied files, and moves them into the quarantine if nothing goes wrong.
    ScanReport dealtWith()
    {
        ScanReport report;
        report.root = root();
        for (const char* name : {"a", "b"})
            report.findings.push_back({name, Verdict::Denied, "", denied(name, name).facts, "deny list", {}});
        Quarantine quarantine = open();
        quarantineDenied(quarantine, report, never);
        return report;
    }
};

TEST_F(OutcomeTest, TellsThatFilesAreInTheQuarantine)
{
    const ScanReport report = dealtWith();
    EXPECT_EQ(countOf(report.findings, Verdict::Quarantined), 2U);
    EXPECT_THAT(scanTable(report), HasSubstr("\n2 entries: 2 QUARANTINED\n"));
    EXPECT_EQ(exitCodeOf(report.findings, true), kDenied);
}

TEST_F(OutcomeTest, TellsThatFilesAreInTheirPlaces)
{
    m_tool->fault = FakeArchiver::Fault::ToolMissing;
    const ScanReport report = dealtWith();
    EXPECT_EQ(countOf(report.findings, Verdict::Denied), 2U);
    EXPECT_EQ(exitCodeOf(report.findings, false), kQuarantineFailed);
    EXPECT_EQ(exitCodeOf(report.findings, true), kInterrupted);
}

TEST_F(OutcomeTest, TellsThatAFileIsInNeitherPlace)
{
    m_tool->fault = FakeArchiver::Fault::ToolMissing;
    m_tool->beforeCommand = [this](const std::vector<std::string>&) { std::ofstream(root() + "/a") << "usurper"; };
    const ScanReport report = dealtWith();
    EXPECT_EQ(report.findings[0].verdict, Verdict::SetAside);
    EXPECT_EQ(report.findings[1].verdict, Verdict::Denied);
    EXPECT_THAT(scanTable(report), HasSubstr("\nDENIED, SET ASIDE  deny list  "));
    EXPECT_EQ(scanJson(report)["files"][0]["verdict"], "set_aside");
    for (const bool wasInterrupted : {false, true})
        EXPECT_EQ(exitCodeOf(report.findings, wasInterrupted), kQuarantineFailed);
}

TEST(ReportTest, IsNoHeadingAlone)
{
    EXPECT_EQ(scanTable({}), "0 entries\n");
    EXPECT_EQ(restoreTable({}), "nothing was restored\n");
    EXPECT_EQ(listTable({}), "nothing to list\n");
}

} // namespace
