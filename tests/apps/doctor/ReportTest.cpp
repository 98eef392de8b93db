#include "tavctl/doctor/Report.h"

#include <gtest/gtest.h>

#include "FakeHost.h"
#include "support/TemporaryDirectory.h"
#include "tavctl/doctor/Checks.h"

namespace TAV::test
{
namespace
{

using namespace tavctl::doctor;

const Entry kEntry{"Archives", "7-zip", {State::Warning, "is old", {"get another", "or a third one"}}};

TEST(DoctorReportTest, ShowsAdviceBelowItsLine)
{
    EXPECT_EQ(textOf(kEntry, false, false),
              "  warning  7-zip        is old\n"
              "                        -> get another\n"
              "                           or a third one\n");
}

TEST(DoctorReportTest, NamesTheServiceOnce)
{
    EXPECT_EQ(textOf({"Archives", "7-zip", {}}, true, false), "Archives\n  ok       7-zip        \n");
}

TEST(DoctorReportTest, ColoursServiceAndStateOnly)
{
    struct Case
    {
        State state;
        const char* line;
    };
    for (const Case& c : {Case{State::Ok, "  \x1b[32mok     \x1b[0m  c            t\n"},
                          Case{State::Note, "  \x1b[36mnote   \x1b[0m  c            t\n"},
                          Case{State::Warning, "  \x1b[33mwarning\x1b[0m  c            t\n"},
                          Case{State::Problem, "  \x1b[1;31mproblem\x1b[0m  c            t\n"}})
    {
        EXPECT_EQ(textOf({"S", "c", {c.state, "t", {}}}, false, true), c.line);
        EXPECT_EQ(textOf({"S", "c", {c.state, "t", {}}}, true, true), std::string("\x1b[1mS\x1b[0m\n") + c.line);
    }
}

TEST(DoctorReportTest, CountsEachState)
{
    const std::vector<Entry> entries{{"S", "a", {State::Ok, "", {}}},
                                     {"S", "b", {State::Note, "", {}}},
                                     {"S", "c", {State::Note, "", {}}},
                                     {"S", "d", {State::Problem, "", {}}}};
    EXPECT_EQ(summaryOf(entries), "\n1 ok, 2 notes, 0 warnings, 1 problem\n");
}

TEST(DoctorReportTest, IsWellWithoutProblemsAndIfStrictWithoutWarnings)
{
    const Entry fine{"S", "c", {State::Note, "", {}}};
    const Entry problem{"S", "c", {State::Problem, "", {}}};
    EXPECT_TRUE(isWell({fine}, true));
    EXPECT_TRUE(isWell({fine, kEntry}, false));
    EXPECT_FALSE(isWell({fine, kEntry}, true));
    EXPECT_FALSE(isWell({fine, problem}, false));
}

TEST(DoctorReportTest, GivesJson)
{
    EXPECT_EQ(jsonOf({kEntry}), nlohmann::json::parse(R"({
        "checks": [{"service": "Archives", "check": "7-zip", "state": "warning", "text": "is old",
                    "advice": ["get another", "or a third one"]}],
        "counts": {"ok": 0, "note": 0, "warning": 1, "problem": 0}})"));
}

/// The sample that the documents quote: a host of today, with a few things to mend.
TEST(DoctorReportTest, SampleIsWhatIsShown)
{
    FakeHost host;
    host.release = "6.1.0-13-amd64";
    host.existing.clear();
    host.files["/proc/self/mounts"] = "cgroup2 /sys/fs/cgroup cgroup2 rw 0 0\nproc /proc proc rw 0 0\n";
    host.archiverObstacle = "No such file or directory";
    host.existing.insert("/usr/lib/p7zip/7za");
    Questions questions;
    questions.caFile = "ca.pem";
    questions.server = "reputation.example.org";
    std::string text = "$ tavctl doctor --ca ca.pem --server reputation.example.org\n";
    const std::vector<Entry> entries =
        examine(host, questions, [&text](const Entry& entry, bool isFirst) { text += textOf(entry, isFirst, false); });
    text += summaryOf(entries);

    EXPECT_EQ(text, readFile(std::string(TAV_SOURCE_DIR) + "/tests/apps/doctor/sample.txt"));
}

} // namespace
} // namespace TAV::test
