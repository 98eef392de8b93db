#include "tav/logging/OneLine.h"

#include <gtest/gtest.h>

namespace TAV::logging
{
namespace
{

struct LineCase
{
    const char* name;
    std::string text;
    std::string line;
};

void PrintTo(const LineCase& c, std::ostream* out)
{
    *out << c.name;
}

class OneLineTest : public testing::TestWithParam<LineCase>
{
};

TEST_P(OneLineTest, KeepsTextAndEscapesTheRest)
{
    EXPECT_EQ(oneLine(GetParam().text), GetParam().line);
}

std::string nameOf(const testing::TestParamInfo<LineCase>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(,
                         OneLineTest,
                         testing::Values(LineCase{"Empty", "", ""},
                                         LineCase{"Plain", "a b %s {} \\x0a", "a b %s {} \\x0a"},
                                         LineCase{
                                             "Umlauts", "Grüße 日本 \xf0\x9f\x98\x80", "Grüße 日本 \xf0\x9f\x98\x80"},
                                         LineCase{"Newlines", "a\nb\r\n", "a\\x0ab\\x0d\\x0a"},
                                         LineCase{"Zero", std::string("a\0b", 3), "a\\x00b"},
                                         LineCase{"TerminalCommand", "\x1b[2J\x7f", "\\x1b[2J\\x7f"},
                                         LineCase{"C1Control", "\xc2\x9b", "\\xc2\\x9b"},
                                         LineCase{"FirstThatIsNoControl", "\xc2\xa0", "\xc2\xa0"},
                                         LineCase{"CutCharacter", "x\xe2\x82", "x\\xe2\\x82"},
                                         LineCase{"Overlong", "\xc0\xaf", "\\xc0\\xaf"},
                                         LineCase{"Surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
                                         LineCase{"AboveUnicode", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
                                         LineCase{"Latin1", "gr\xfc\xdf", "gr\\xfc\\xdf"}),
                         nameOf);

} // namespace
} // namespace TAV::logging
