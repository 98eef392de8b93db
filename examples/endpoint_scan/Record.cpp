#include "endpoint_scan/Record.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "common/Text.h"
#include "endpoint_scan/SafeFiles.h"
#include "tav/QelSSLUtils.h"

namespace endpointscan
{
namespace
{

constexpr int kFormat = 1;
constexpr int kIndent = 2;
constexpr int kOctal = 8;
constexpr mode_t kPermissions = 07777;
const std::string kEncoded = "_base64";

std::string bytesOf(const Json& object, const std::string& name)
{
    if (!object.contains(name + kEncoded))
        return object.at(name).get<std::string>();
    std::string bytes;
    if (!TAV::QelSSLUtils().decodeBase64(object.at(name + kEncoded).get<std::string>(), bytes))
        throw std::runtime_error("bad base64 in the record");
    return bytes;
}

Json toJson(const RecordEntry& entry)
{
    const FileFacts& facts = entry.facts;
    Json object;
    addBytes(object, "path", entry.path);
    object.update({{"size", facts.size},
                   {"mode", modeText(facts.mode)},
                   {"user", facts.user},
                   {"group", facts.group},
                   {"modified", timeText(facts.modified.tv_sec)},
                   {"modified_seconds", facts.modified.tv_sec},
                   {"modified_nanoseconds", facts.modified.tv_nsec},
                   {"mime_type", facts.mimeType},
                   {"md5", facts.md5},
                   {"sha1", facts.sha1},
                   {"sha256", facts.sha256},
                   {"stored_as", entry.storedAs}});
    return object;
}

RecordEntry entryFrom(const Json& object)
{
    RecordEntry entry;
    entry.path = bytesOf(object, "path");
    entry.storedAs = object.at("stored_as").get<std::string>();
    FileFacts& facts = entry.facts;
    facts.size = object.at("size").get<std::uint64_t>();
    facts.mode = static_cast<mode_t>(std::stoul(object.at("mode").get<std::string>(), nullptr, kOctal)) & kPermissions;
    facts.user = object.at("user").get<uid_t>();
    facts.group = object.at("group").get<gid_t>();
    facts.modified.tv_sec = object.at("modified_seconds").get<std::time_t>();
    facts.modified.tv_nsec = object.at("modified_nanoseconds").get<long>();
    facts.mimeType = object.at("mime_type").get<std::string>();
    facts.md5 = object.at("md5").get<std::string>();
    facts.sha1 = object.at("sha1").get<std::string>();
    facts.sha256 = object.at("sha256").get<std::string>();
    return entry;
}

bool isPlainName(const std::string& name)
{
    return !name.empty() && name.find_first_not_of("0123456789abcdef-") == std::string::npos && name.front() != '-';
}

void requireHarmless(const Record& record)
{
    for (const RecordEntry& entry : record.files)
    {
        if (!isBelow(entry.path))
            throw std::runtime_error("the record names a place outside: " + programs::printable(entry.path));
        if (!isPlainName(entry.storedAs))
            throw std::runtime_error("the record names a file that is not in the archive: " +
                                     programs::printable(entry.storedAs));
    }
}

} // namespace

std::string modeText(mode_t mode)
{
    std::array<char, 8> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned int>(mode & kPermissions)));
    return text.data();
}

std::string timeText(std::time_t seconds)
{
    std::array<char, 64> text{};
    struct tm parts = {};
    if (::gmtime_r(&seconds, &parts) == nullptr)
        return "";
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return {text.data(), size};
}

void addBytes(Json& object, const std::string& name, const std::string& bytes)
{
    if (programs::isUtf8(bytes))
    {
        object[name] = bytes;
        return;
    }
    std::string encoded;
    TAV::QelSSLUtils().encodeBase64(bytes, encoded);
    object[name] = programs::printable(bytes); // for people
    object[name + kEncoded] = encoded;
}

std::string placeOf(const Record& record, const RecordEntry& entry)
{
    return (record.root == "/" ? "" : record.root) + "/" + entry.path;
}

std::string toText(const Record& record)
{
    Json files = Json::array();
    std::transform(record.files.begin(), record.files.end(), std::back_inserter(files), toJson);
    Json object{{"format", kFormat}, {"id", record.id}, {"created", record.created}};
    addBytes(object, "host", record.host);
    addBytes(object, "root", record.root);
    object["files"] = std::move(files);
    return object.dump(kIndent) + "\n";
}

Record recordFromText(const std::string& text)
{
    Record record;
    try
    {
        const Json object = Json::parse(text);
        if (object.at("format").get<int>() != kFormat)
            throw std::runtime_error("the record has an unknown format");
        record.id = object.at("id").get<std::string>();
        record.created = object.at("created").get<std::string>();
        record.host = bytesOf(object, "host");
        record.root = bytesOf(object, "root");
        const Json& files = object.at("files");
        std::transform(files.begin(), files.end(), std::back_inserter(record.files), entryFrom);
    }
    catch (const std::exception& error)
    {
        throw std::runtime_error(std::string("not a quarantine record: ") + error.what());
    }
    requireHarmless(record);
    return record;
}

} // namespace endpointscan
