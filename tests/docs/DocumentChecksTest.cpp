#include "DocumentChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LoggedTexts.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// A tree with one source and one page in it.
class DocumentChecksTest : public testing::Test
{
protected:
    DocumentChecksTest()
    {
        std::filesystem::create_directories(tree.file("docs"));
        std::filesystem::create_directories(tree.file("src"));
        tree.write("src/one.cpp", "int a;\n//! [part]\nint b;\n//! [part]\nTEST_F(OneTest, Holds)\n");
        tree.write("src/CMakeLists.txt", "# [part]\nproject(one)\n# [part]\n# [open]\n");
        tree.write("docs/two.md", "two\n");
    }

    [[nodiscard]] Page page(const std::string& text) const { return {tree.file("README.md"), text}; }

    TemporaryDirectory tree;
};

TEST_F(DocumentChecksTest, FindsPagesAtTheRootAndBelowDocs)
{
    tree.write("README.md", "one\n");
    std::vector<std::string> texts;
    for (const Page& found : pagesOf(tree.path()))
        texts.push_back(found.text);

    EXPECT_THAT(texts, ElementsAre("one\n", "two\n"));
}

TEST_F(DocumentChecksTest, FindsTestsInSources)
{
    EXPECT_THAT(testsBelow(tree.path()), ElementsAre("OneTest.Holds"));
}

TEST_F(DocumentChecksTest, ReportsLinkThatLeadsNowhere)
{
    EXPECT_THAT(brokenLinks(page("[a](docs/two.md) ![b](docs/none.svg)\n[c](docs/two.md#part)")),
                ElementsAre("docs/none.svg", "docs/two.md#part"));
}

TEST_F(DocumentChecksTest, ReportsNeitherLinkElsewhereNorLinkInCode)
{
    EXPECT_THAT(brokenLinks(page("[a](https://example.org/x)\n```\n[b](none)\n```\n")), IsEmpty());
}

TEST_F(DocumentChecksTest, ReportsTestThatIsNotThere)
{
    EXPECT_THAT(unknownTests(page("`OneTest.Holds`, `OneTest.Fails`"), {"OneTest.Holds"}),
                ElementsAre("OneTest.Fails"));
}

TEST_F(DocumentChecksTest, ReportsFileThatIsNotThere)
{
    EXPECT_THAT(missingFiles(page("`src/one.cpp` and `docs/` and `src/none.cpp`"), tree.path()),
                ElementsAre("src/none.cpp"));
}

TEST_F(DocumentChecksTest, ReportsCommandThatIsNotListed)
{
    EXPECT_THAT(unknownCommands(page("./dev test, ./dev fly"), "usage\n\n  test [X]   runs\n"), ElementsAre("fly"));
}

TEST_F(DocumentChecksTest, AcceptsQuotesThatAreExact)
{
    EXPECT_THAT(staleQuotes(page("<!-- quoted from src/one.cpp: part -->\n```cpp\nint b;\n```\n"
                                 "<!-- quoted from src/CMakeLists.txt: part -->\n```cmake\nproject(one)\n```\n"
                                 "<!-- quoted from docs/two.md -->\n```text\ntwo\n```\n"),
                            tree.path()),
                IsEmpty());
}

TEST_F(DocumentChecksTest, ReportsQuoteThatDiffers)
{
    EXPECT_THAT(staleQuotes(page("<!-- quoted from src/one.cpp: part -->\n```cpp\nint c;\n```\n"), tree.path()),
                ElementsAre("src/one.cpp: part"));
}

TEST_F(DocumentChecksTest, ReportsQuoteOfPartOrFileThatIsNotThere)
{
    EXPECT_THAT(staleQuotes(page("<!-- quoted from src/one.cpp: none -->\n```cpp\n```\n"
                                 "<!-- quoted from src/CMakeLists.txt: open -->\n```cmake\n```\n"
                                 "<!-- quoted from src/none.cpp -->\n```cpp\nint b;\n```\n"),
                            tree.path()),
                ElementsAre("src/one.cpp: none", "src/CMakeLists.txt: open", "src/none.cpp: "));
}

TEST_F(DocumentChecksTest, FindsTextsHoweverTheyAreLogged)
{
    tree.write("src/two.cpp", R"re(#include "a b.h"
constexpr const char* kNamed = "named text: ";
constexpr const char* kBroken =
    "broken "
    "text; in { two";
static constexpr Row kRows[] = {
    {kOne, "text in a row: "},
};
void f() // "no text"
{
    log(2, name, kNamed + std::to_string(1) + ")");
    return fail(kBroken);
    log(6, "text // in place");
}
)re");
    std::filesystem::create_directories(tree.file("src/deep"));
    tree.write("src/deep/three.h", "inline void g() { log(5, \"inline text\"); }\n");
    EXPECT_THAT(
        loggedTexts(tree.path()),
        ElementsAre("broken text; in { two", "inline text", "named text:", "text // in place", "text in a row:"));
}

TEST_F(DocumentChecksTest, LeavesOutTextsThatAreNotLogged)
{
    tree.write("src/two.cpp", R"re(constexpr const char* kThrown = "thrown text";
constexpr const char* kBoth = "thrown and logged";
constexpr const char* kRefusal = "required text";
constexpr const char* kPath = "/one/word";
std::map<int, std::string> values{{404, "Not Found"}};
void f()
{
    if (failed)
        throw FMXException(1, kThrown);
    throw FMXException(1, kBoth + "thrown in place");
    require(call(), kRefusal);
    log(2, name, kBoth);
    log(2, name, kPath + " ");
}
)re");
    EXPECT_THAT(loggedTexts(tree.path()), ElementsAre("thrown and logged"));
}

TEST_F(DocumentChecksTest, ReportsTextsThatOnlyPageOrSourcesHave)
{
    const std::set<std::string> logged{"it failed.", "session id", "is not open", "it failed", "Reason is -"};
    EXPECT_THAT(wrongTexts(page("\n| level | text | from |\n|---|---|---|\n| 2 | it failed. | `f` |\n"
                                "| 6 | session id ... is not open | `f` |\n| - | old text ...) | nowhere |\n"
                                "| 6 | .... Reason is - ... | `f` |\n\n| 2 | notice | another table |\n"),
                           logged),
                ElementsAre("not on the page: it failed", "not in the sources: old text"));
}

} // namespace
} // namespace TAV::test
