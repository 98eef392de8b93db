#include "tavctl/KrbReport.h"

#include <array>
#include <cstdio>

#include "common/Text.h"
#include "tavctl/Console.h"

namespace tavctl
{
namespace
{

std::string octal(mode_t mode)
{
    std::array<char, 16> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%04o", mode));
    return text.data();
}

std::string timeText(std::time_t time)
{
    std::array<char, 32> text{};
    struct tm parts = {};
    ::gmtime_r(&time, &parts);
    static_cast<void>(std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts));
    return text.data();
}

} // namespace

std::string textOf(const programs::Keytab& keytab, bool withEntries, const std::string& remark)
{
    std::string text = "keytab   " + programs::printable(keytab.path) + ", mode " + octal(keytab.mode) + ", " +
                       std::to_string(keytab.size) + " bytes" + remark + "\n";
    if (!withEntries)
        return text;
    for (const programs::KeytabEntry& entry : keytab.entries)
        text += "entry    " + programs::printable(entry.principal) + ", version " + std::to_string(entry.version) +
                ", " + entry.typeName + ", made " + timeText(entry.time) + "\n";
    return text;
}

void addKeytab(nlohmann::json& object, const programs::Keytab& keytab, bool withEntries)
{
    addBytes(object, "keytab", keytab.path);
    object["mode"] = octal(keytab.mode);
    object["size"] = keytab.size;
    if (!withEntries)
        return;
    nlohmann::json entries = nlohmann::json::array();
    for (const programs::KeytabEntry& entry : keytab.entries)
    {
        nlohmann::json json{
            {"version", entry.version}, {"encryption_type", entry.typeName}, {"time", timeText(entry.time)}};
        addBytes(json, "principal", entry.principal);
        entries.push_back(std::move(json));
    }
    object["entries"] = std::move(entries);
}

nlohmann::json jsonOf(const programs::KrbFailure& failure)
{
    return {{"cause", failure.cause}, {"advice", failure.advice}, {"error", failure.error}};
}

nlohmann::json jsonOf(const std::vector<programs::QueryLine>& lines)
{
    nlohmann::json log = nlohmann::json::array();
    for (const programs::QueryLine& line : lines)
        log.push_back({{"level", line.level}, {"component", line.component}, {"message", line.message}});
    return log;
}

} // namespace tavctl
