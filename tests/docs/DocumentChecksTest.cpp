#include "DocumentChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

} // namespace
} // namespace TAV::test
