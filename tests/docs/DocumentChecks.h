#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

/// What can go stale in a page, found by looking. Each check gives the offenders; none means that all is well.
namespace TAV::test
{

/// A page's text and the place that its relative links start from.
struct Page
{
    std::filesystem::path path;
    std::string text;
};

/// The Markdown files at the root of a tree and under its docs/.
std::vector<Page> pagesOf(const std::filesystem::path& root);

/// "Suite.Name" of each GoogleTest case in the .cpp files below a directory.
std::set<std::string> testsBelow(const std::filesystem::path& directory);

/// Links to files that do not exist. Addresses of other machines are not looked at.
std::vector<std::string> brokenLinks(const Page& page);

/// Names of the form `SomethingTest.SomeName` that are not in `tests`.
std::vector<std::string> unknownTests(const Page& page, const std::set<std::string>& tests);

/// Files of this tree, named like `src/some/thing`, that do not exist.
std::vector<std::string> missingFiles(const Page& page, const std::filesystem::path& root);

/// Commands of the form "./dev word" that the text of `./dev help` does not list.
std::vector<std::string> unknownCommands(const Page& page, const std::string& help);

/// Code blocks that are not what they say they are. Such a block stands under a line
///
///     <!-- quoted from PATH -->            the whole file, or
///     <!-- quoted from PATH: NAME -->      what stands between two lines "//! [NAME]" or "# [NAME]"
std::vector<std::string> staleQuotes(const Page& page, const std::filesystem::path& root);

} // namespace TAV::test
