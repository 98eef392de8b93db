#include "tavctl/doctor/Report.h"

#include <algorithm>
#include <array>

namespace tavctl::doctor
{
namespace
{

struct StateStyle
{
    State state;
    const char* name;
    const char* plural;
    const char* colour; ///< of terminals, as ECMA-48 numbers them
};

constexpr std::array<StateStyle, 4> kStyles{{
    {State::Ok, "ok", "ok", "32"},
    {State::Note, "note", "notes", "36"},
    {State::Warning, "warning", "warnings", "33"},
    {State::Problem, "problem", "problems", "1;31"},
}};

constexpr const char* kHeadingColour = "1"; // bold
constexpr std::size_t kStateWidth = 7;
constexpr std::size_t kCheckWidth = 11;
const std::string kIndent(2, ' ');
const std::string kGap(2, ' ');

const StateStyle& styleOf(State state)
{
    return *std::find_if(kStyles.begin(), kStyles.end(), [state](const StateStyle& s) { return s.state == state; });
}

std::string padded(const std::string& text, std::size_t width)
{
    return text + std::string(width - std::min(width, text.size()), ' ');
}

} // namespace

std::string nameOf(State state)
{
    return styleOf(state).name;
}

std::string textOf(const Entry& entry, bool isFirst, bool isColoured)
{
    const StateStyle& style = styleOf(entry.finding.state);
    const auto shown = [isColoured](const std::string& words, const char* colour)
    { return isColoured ? std::string("\x1b[") + colour + "m" + words + "\x1b[0m" : words; };
    std::string text = isFirst ? shown(entry.service, kHeadingColour) + "\n" : "";
    text += kIndent + shown(padded(style.name, kStateWidth), style.colour) + kGap + padded(entry.check, kCheckWidth) +
            kGap + entry.finding.text + "\n";
    const std::string margin(kIndent.size() + kStateWidth + kGap.size() + kCheckWidth + kGap.size(), ' ');
    for (std::size_t i = 0; i < entry.finding.advice.size(); ++i)
        text += margin + (i == 0 ? "-> " : "   ") + entry.finding.advice[i] + "\n";
    return text;
}

std::size_t countOf(const std::vector<Entry>& entries, State state)
{
    return static_cast<std::size_t>(std::count_if(
        entries.begin(), entries.end(), [state](const Entry& entry) { return entry.finding.state == state; }));
}

bool isWell(const std::vector<Entry>& entries, bool isStrict)
{
    return countOf(entries, State::Problem) == 0 && (!isStrict || countOf(entries, State::Warning) == 0);
}

std::string summaryOf(const std::vector<Entry>& entries)
{
    std::string text;
    for (const StateStyle& style : kStyles)
    {
        const std::size_t count = countOf(entries, style.state);
        text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + (count == 1 ? style.name : style.plural);
    }
    return "\n" + text + "\n";
}

nlohmann::json jsonOf(const std::vector<Entry>& entries)
{
    nlohmann::json checks = nlohmann::json::array();
    for (const Entry& entry : entries)
        checks.push_back({{"service", entry.service},
                          {"check", entry.check},
                          {"state", nameOf(entry.finding.state)},
                          {"text", entry.finding.text},
                          {"advice", entry.finding.advice}});
    nlohmann::json counts;
    for (const StateStyle& style : kStyles)
        counts[style.name] = countOf(entries, style.state);
    return {{"checks", std::move(checks)}, {"counts", std::move(counts)}};
}

} // namespace tavctl::doctor
