#include "endpoint_scan/DenyList.h"

#include <gmock/gmock.h>

#include <sstream>

#include "endpoint_scan/Types.h"
#include "support/TemporaryDirectory.h"

using endpointscan::DenyList;
using endpointscan::UsageError;
using ::testing::HasSubstr;
using ::testing::Not;

namespace
{

const std::string kA(64, 'a');
const std::string kB = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

DenyList parsed(const std::string& text)
{
    std::istringstream stream(text);
    return DenyList::parse(stream, "deny.txt");
}

std::string complaintAbout(const std::string& text)
{
    try
    {
        parsed(text);
    }
    catch (const UsageError& error)
    {
        return error.what();
    }
    return "";
}

TEST(DenyListTest, HoldsTheDigestsOfItsLines)
{
    const DenyList list = parsed(kA + "\n" + kB + "\n");
    EXPECT_EQ(list.size(), 2U);
    EXPECT_TRUE(list.contains(kA));
    EXPECT_TRUE(list.contains(kB));
    EXPECT_FALSE(list.contains(std::string(64, 'b')));
}

TEST(DenyListTest, AllowsCommentsBlanksAndEmptyLines)
{
    const DenyList list = parsed("# a comment\n\n  \t\n  " + kA + " \t# why\r\n#" + kB + "\n");
    EXPECT_EQ(list.size(), 1U);
    EXPECT_TRUE(list.contains(kA));
}

TEST(DenyListTest, TakesDigestsInEitherCase)
{
    EXPECT_TRUE(parsed(std::string(64, 'A')).contains(kA));
}

TEST(DenyListTest, NeedsNoNewlineAtItsEnd)
{
    EXPECT_TRUE(parsed(kA + "\n" + kB).contains(kB));
}

TEST(DenyListTest, CountsARepeatedDigestOnce)
{
    EXPECT_EQ(parsed(kA + "\n" + kA).size(), 1U);
}

TEST(DenyListTest, MayBeEmpty)
{
    EXPECT_EQ(parsed("").size(), 0U);
}

TEST(DenyListTest, RefusesWhatIsNoDigestWithItsLineNumber)
{
    const std::string bad[] = {kA.substr(1), kA + "a", std::string(64, 'g'), kA + "  file.txt", "hello", kA + " " + kB};
    for (const std::string& line : bad)
        EXPECT_THAT(complaintAbout("# first\n\n" + line + "\n"), HasSubstr("deny.txt:3: not a SHA-256 digest")) << line;
}

TEST(DenyListTest, TellsEveryBadLine)
{
    const std::string complaint = complaintAbout("x\n" + kA + "\ny\n");
    EXPECT_THAT(complaint, HasSubstr("deny.txt:1:"));
    EXPECT_THAT(complaint, Not(HasSubstr("deny.txt:2:")));
    EXPECT_THAT(complaint, HasSubstr("deny.txt:3:"));
}

TEST(DenyListTest, CountsBadLinesBeyondTheFirstTen)
{
    std::string text;
    for (int i = 0; i < 15; ++i)
        text += "bad\n";
    const std::string complaint = complaintAbout(text);
    EXPECT_THAT(complaint, HasSubstr("deny.txt:10:"));
    EXPECT_THAT(complaint, Not(HasSubstr("deny.txt:11:")));
    EXPECT_THAT(complaint, HasSubstr("5 more bad lines"));
}

TEST(DenyListTest, ShowsBadBytesEscaped)
{
    EXPECT_THAT(complaintAbout("\x1b[31m\xff"), HasSubstr("\"\\x1b[31m\\xff\""));
}

TEST(DenyListTest, RefusesAFileThatCannotBeRead)
{
    const TAV::test::TemporaryDirectory place;
    EXPECT_THROW(DenyList::load(place.file("missing")), UsageError);
    EXPECT_THROW(DenyList::load(place.path()), UsageError);
    EXPECT_EQ(DenyList::load(place.write("deny", kA)).size(), 1U);
}

} // namespace
