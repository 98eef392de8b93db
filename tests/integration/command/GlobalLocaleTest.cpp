// A daemon may set a global locale that groups digits. The numbers in messages are for programs: they stay plain.

#include <gmock/gmock.h>
#include <unistd.h>

#include <locale>
#include <sstream>
#include <stdexcept>

#include "CommandScene.h"
#include "support/SacrificialProcess.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;

/// Writes 1280 as 1'2'8'0: no number of two digits escapes it.
class EveryDigitApart : public std::numpunct<char>
{
protected:
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\1"; }
};

void setGroupingLocale()
{
    std::locale::global(std::locale(std::locale::classic(), new EveryDigitApart)); // which owns the facet
    std::ostringstream probe;
    probe << 1280;
    if (probe.str() != "1'2'8'0")
        throw std::runtime_error("the locale does not group digits");
}

TEST(GlobalLocaleTest, StatusOfAFailedChildIsPlainDecimal)
{
    EXPECT_THAT(
        notesOf(
            [](TAVUtils& utils)
            {
                setGroupingLocale();
                OutputPipe pipe;
                const bool result = utils.readSystemCommandOutput({kAct, "err=text", "exit=5"}, nullptr, pipe.ends());
                std::locale::global(std::locale::classic()); // for the notes
                return result;
            }),
        ElementsAre(failedNote(1280, "Success", " Stderr is - text"), "caller got false"));
}

TEST(GlobalLocaleTest, NumbersOfAnOldKernelArePlainDecimal)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            setGroupingLocale();
            RecordingLogger logger;
            const TAVUtils utils(std::make_shared<TAVSystemUtils>(),
                                 logger,
                                 std::make_shared<kernelVersion>(kernelVersion{1, 222, 118}));
            notes.add(logger.lines().at(0).message);
        });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_THAT(notes.lines(),
                ElementsAre("CGroups is not supported for this operating system kernel( version: 1.222.118)"));
}

} // namespace
} // namespace TAV::test
