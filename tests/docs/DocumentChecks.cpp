#include "DocumentChecks.h"

#include <functional>

// g++ 12 takes std::regex's own code for faulty when it is built with sanitizers.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <regex>

#include "support/TemporaryDirectory.h"

namespace fs = std::filesystem;

namespace TAV::test
{
namespace
{

/// The first group of each match for which `isBad` holds.
std::vector<std::string>
offenders(const std::string& text, const std::string& pattern, const std::function<bool(const std::string&)>& isBad)
{
    const std::regex expression(pattern);
    std::vector<std::string> found;
    for (auto match = std::sregex_iterator(text.begin(), text.end(), expression); match != std::sregex_iterator();
         ++match)
    {
        if (isBad((*match)[1].str()))
            found.push_back((*match)[1].str());
    }
    return found;
}

/// A text without its fenced code blocks.
std::string prose(const std::string& text)
{
    std::string kept;
    std::size_t at = 0;
    bool inCode = false;
    while (at < text.size())
    {
        const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::string line = text.substr(at, end - at);
        const bool isFence = line.rfind("```", 0) == 0;
        if (!inCode && !isFence)
            kept += line;
        if (isFence)
            inCode = !inCode;
        at = end;
    }
    return kept;
}

/// What stands between the two marks of this name; the whole text without a name; empty if a mark is missing.
std::string region(const std::string& text, const std::string& name)
{
    if (name.empty())
        return text;
    const std::string cppMark = "//! [" + name + "]\n";
    const std::string mark = text.find(cppMark) == std::string::npos ? "# [" + name + "]\n" : cppMark;
    const std::size_t first = text.find(mark);
    if (first == std::string::npos)
        return "";
    const std::size_t begin = first + mark.size();
    const std::size_t end = text.find(mark, begin);
    return end == std::string::npos ? "" : text.substr(begin, end - begin);
}

} // namespace

std::vector<Page> pagesOf(const fs::path& root)
{
    std::vector<Page> pages;
    const auto add = [&pages](const fs::directory_entry& entry)
    {
        if (entry.path().extension() == ".md")
            pages.push_back({entry.path(), readFile(entry.path().string())});
    };
    for (const auto& entry : fs::directory_iterator(root))
        add(entry);
    for (const auto& entry : fs::recursive_directory_iterator(root / "docs"))
        add(entry);
    return pages;
}

std::set<std::string> testsBelow(const fs::path& directory)
{
    const std::regex expression(R"(TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\))");
    std::set<std::string> tests;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
    {
        if (entry.path().extension() != ".cpp")
            continue;
        const std::string text = readFile(entry.path().string());
        for (auto match = std::sregex_iterator(text.begin(), text.end(), expression); match != std::sregex_iterator();
             ++match)
            tests.insert((*match)[1].str() + "." + (*match)[2].str());
    }
    return tests;
}

std::vector<std::string> brokenLinks(const Page& page)
{
    return offenders(prose(page.text),
                     R"(\]\(([^)\s]+)\))",
                     [&page](const std::string& target)
                     {
                         const bool isElsewhere = target.find("://") != std::string::npos;
                         return !isElsewhere && !fs::exists(page.path.parent_path() / target);
                     });
}

std::vector<std::string> unknownTests(const Page& page, const std::set<std::string>& tests)
{
    return offenders(page.text,
                     R"(\b([A-Z]\w*Test\.[A-Z]\w*)\b)",
                     [&tests](const std::string& name) { return tests.count(name) == 0; });
}

std::vector<std::string> missingFiles(const Page& page, const fs::path& root)
{
    return offenders(page.text,
                     R"(`((?:include|src|tests|docs|cmake|examples|tools|bench|scripts|packaging)/[\w./-]*)`)",
                     [&root](const std::string& path) { return !fs::exists(root / path); });
}

std::vector<std::string> unknownCommands(const Page& page, const std::string& help)
{
    return offenders(page.text,
                     R"(\./dev ([a-z]+))",
                     [&help](const std::string& command)
                     { return help.find("\n  " + command + " ") == std::string::npos; });
}

std::vector<std::string> staleQuotes(const Page& page, const fs::path& root)
{
    const std::regex expression("<!-- quoted from ([^:\n]+?)(?:: ([^\n]+))? -->\n```[a-z]*\n");
    std::vector<std::string> stale;
    for (auto match = std::sregex_iterator(page.text.begin(), page.text.end(), expression);
         match != std::sregex_iterator();
         ++match)
    {
        const std::string source = (*match)[1].str();
        const auto begin = static_cast<std::size_t>(match->position() + match->length());
        const std::size_t end = page.text.find("```", begin);
        const std::string quote = page.text.substr(begin, end == std::string::npos ? end : end - begin);
        const bool isThere = fs::exists(root / source);
        if (!isThere || quote.empty() || quote != region(readFile((root / source).string()), (*match)[2].str()))
            stale.push_back(source + ": " + (*match)[2].str());
    }
    return stale;
}

} // namespace TAV::test
