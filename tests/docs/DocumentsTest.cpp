#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "DocumentChecks.h"
#include "LoggedTexts.h"
#include "support/TemporaryDirectory.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

const fs::path kRoot = TAV_SOURCE_DIR;

/// Applies one check to every page and names the page in each failure.
template <typename Check>
void expectNoneIn(const std::vector<Page>& pages, Check offendersOf)
{
    ASSERT_GE(pages.size(), 5U) << "the pages were not found";
    for (const Page& page : pages)
        EXPECT_THAT(offendersOf(page), IsEmpty()) << page.path;
}

TEST(DocumentsTest, EveryLinkLeadsToFile)
{
    expectNoneIn(pagesOf(kRoot), brokenLinks);
}

TEST(DocumentsTest, EveryTestNamedExists)
{
    std::set<std::string> tests = testsBelow(kRoot / "tests");
    tests.merge(testsBelow(kRoot / "docs"));

    expectNoneIn(pagesOf(kRoot), [&tests](const Page& page) { return unknownTests(page, tests); });
}

TEST(DocumentsTest, EveryFileNamedExists)
{
    expectNoneIn(pagesOf(kRoot), [](const Page& page) { return missingFiles(page, kRoot); });
}

TEST(DocumentsTest, EveryCommandNamedExists)
{
    const std::string help = outputOf({(kRoot / "dev").string(), "help"});

    expectNoneIn(pagesOf(kRoot), [&help](const Page& page) { return unknownCommands(page, help); });
}

TEST(DocumentsTest, EveryQuoteIsExact)
{
    expectNoneIn(pagesOf(kRoot), [](const Page& page) { return staleQuotes(page, kRoot); });
}

TEST(DocumentsTest, EveryLoggedTextIsListed)
{
    const fs::path path = kRoot / "docs" / "logging-and-system-calls.md";
    const std::set<std::string> logged = loggedTexts(kRoot / "src");
    ASSERT_GE(logged.size(), 50U) << "the texts were not found";

    EXPECT_THAT(wrongTexts({path, readFile(path.string())}, logged), IsEmpty());
}

TEST(DocumentsTest, EveryRecipeIsQuoted)
{
    std::string text;
    for (const Page& page : pagesOf(kRoot))
        text += page.text;
    for (const auto& entry : fs::directory_iterator(kRoot / "docs" / "recipes"))
    {
        const std::string name = entry.path().filename().string();
        if (entry.path().extension() == ".cpp")
        {
            EXPECT_THAT(text, HasSubstr("<!-- quoted from docs/recipes/" + name));
        }
    }
}

TEST(DocumentsTest, EveryPageIsInTheNavigation)
{
    const std::string layout = readFile((kRoot / "docs" / "layout.xml").string());
    for (const Page& page : pagesOf(kRoot))
    {
        std::string name = "md_" + page.path.lexically_relative(kRoot).replace_extension().string();
        std::replace_if(
            name.begin(), name.end(), [](char c) { return c == '/' || c == '-'; }, '_');
        if (name != "md_README")
        {
            EXPECT_THAT(layout, HasSubstr("@ref " + name + "\""));
        }
    }
}

} // namespace
} // namespace TAV::test
