#include "LoggedTexts.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <map>
#include <sstream>

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

using Matches = std::sregex_iterator;

/// A source without its comments and inclusions. Each text is taken out of the code: its number stands there instead.
struct Source
{
    std::string code;
    std::vector<std::string> texts;
};

bool isBlank(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; });
}

Source takeApart(const std::string& file)
{
    static const std::regex kTextsAndComments(R"re(//[^\n]*|#include[^\n]*|'\\?.'|"((?:[^"\\\n]|\\.)*)")re");
    Source source;
    auto rest = file.begin();
    bool followsText = false;
    for (Matches match(file.begin(), file.end(), kTextsAndComments); match != Matches(); ++match)
    {
        const std::string between((*match)[0].first == rest ? "" : std::string(rest, (*match)[0].first));
        rest = (*match)[0].second;
        const bool isText = (*match)[1].matched;
        const bool continuesText = isText && followsText && isBlank(between); // "one text" "in two pieces"
        followsText = isText;
        if (continuesText)
        {
            source.texts.back() += (*match)[1];
            continue;
        }
        source.code += between;
        if (!isText)
            continue;
        source.code += '"' + std::to_string(source.texts.size()) + '"';
        source.texts.push_back((*match)[1]);
    }
    source.code.append(rest, file.end());
    return source;
}

std::vector<std::string> statementsOf(const std::string& code)
{
    static const std::regex kEnds("[;{}]");
    return {std::sregex_token_iterator(code.begin(), code.end(), kEnds, -1), {}};
}

bool isThrown(const std::string& statement)
{
    static const std::regex kThrow(R"(\bthrow\b|\brequire\()");
    return std::regex_search(statement, kThrow);
}

/// The numbers of the texts that a source uses other than by throwing them.
std::set<std::size_t> usedTexts(const std::string& code)
{
    static const std::regex kDefinition(R"re(\bconstexpr\s[^"]*\b(k[A-Z]\w*)(?:\[\])?\s*=\s*"(\d+)"\s*)re");
    static const std::regex kTableRow(R"re(\s*\d+,\s*"\d+"\s*)re");
    static const std::regex kUse(R"re("(\d+)"|\b(k[A-Z]\w*)\b)re");
    std::map<std::string, std::size_t> constants;
    std::set<std::size_t> used;
    for (const std::string& statement : statementsOf(code))
    {
        std::smatch definition;
        if (std::regex_search(statement, definition, kDefinition))
        {
            constants[definition[1]] = std::stoul(definition[2]);
            continue;
        }
        if (isThrown(statement) || std::regex_match(statement, kTableRow))
            continue;
        for (Matches use(statement.begin(), statement.end(), kUse); use != Matches(); ++use)
        {
            if ((*use)[1].matched)
                used.insert(std::stoul((*use)[1]));
            else if (constants.count((*use)[2]) != 0)
                used.insert(constants.at((*use)[2]));
        }
    }
    return used;
}

bool isSentence(const std::string& text)
{
    return text.find(' ') != std::string::npos &&
           std::any_of(text.begin(), text.end(), [](unsigned char c) { return std::isalpha(c) != 0; });
}

/// Without the blanks around it, and without the full stop of the value before it.
std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" .");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

/// The second cells of the lists on a page.
std::vector<std::string> listedCells(const std::string& page)
{
    static const std::regex kRow(R"(\| (?:\d|-) \| ([^|]*) \| [^|]* \|)");
    std::istringstream lines(page);
    std::vector<std::string> cells;
    bool inList = false;
    for (std::string line; std::getline(lines, line);)
    {
        inList = line == "| level | text | from |" || (inList && line.rfind('|', 0) == 0);
        std::smatch row;
        if (inList && std::regex_match(line, row, kRow))
            cells.push_back(row[1]);
    }
    return cells;
}

std::set<std::string> listedTexts(const Page& page)
{
    static const std::regex kValue(R"(\.\.\.)");
    std::set<std::string> texts;
    for (const std::string& cell : listedCells(page.text))
    {
        for (std::sregex_token_iterator piece(cell.begin(), cell.end(), kValue, -1), end; piece != end; ++piece)
        {
            if (std::any_of(piece->first, piece->second, [](unsigned char c) { return std::isalpha(c) != 0; }))
                texts.insert(trimmed(*piece));
        }
    }
    return texts;
}

} // namespace

std::set<std::string> loggedTexts(const fs::path& directory)
{
    std::set<std::string> logged;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
    {
        if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h")
            continue;
        const Source source = takeApart(readFile(entry.path().string()));
        for (const std::size_t number : usedTexts(source.code))
        {
            if (isSentence(source.texts.at(number)))
                logged.insert(trimmed(source.texts.at(number)));
        }
    }
    return logged;
}

std::vector<std::string> wrongTexts(const Page& page, const std::set<std::string>& logged)
{
    const std::set<std::string> listed = listedTexts(page);
    std::vector<std::string> wrong;
    for (const std::string& text : logged)
    {
        if (listed.count(text) == 0)
            wrong.push_back("not on the page: " + text);
    }
    for (const std::string& text : listed)
    {
        if (logged.count(text) == 0)
            wrong.push_back("not in the sources: " + text);
    }
    return wrong;
}

} // namespace TAV::test
