#include "apps/FakeArchiver.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char* kRecord = "record.json";

void writeFile(const fs::path& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::vector<fs::path> sortedFiles(const fs::path& directory)
{
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(directory))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

std::string bytesOf(const json& value)
{
    const auto& binary = value.get_binary();
    return {binary.begin(), binary.end()};
}

json binaryOf(const std::string& bytes)
{
    return json::binary({bytes.begin(), bytes.end()});
}

} // namespace

bool FakeArchiver::executeSystemCommand(const std::vector<std::string>& argv, const std::map<int, bool>*)
{
    m_commands.push_back(argv);
    if (onCommand)
        onCommand(argv);
    if (fault == Fault::ToolMissing)
        return false;
    std::string password;
    std::vector<std::string> paths;
    for (std::size_t i = 2; i < argv.size(); ++i)
    {
        if (argv[i].rfind("-p", 0) == 0)
            password = argv[i].substr(2);
        else if (argv[i].rfind("-o", 0) == 0)
            paths.push_back(argv[i].substr(2));
        else if (argv[i].front() != '-')
            paths.push_back(argv[i]);
    }
    const bool ok =
        argv[1] == "a" ? create(paths.at(0), paths.at(1), password) : extract(paths.at(0), paths.at(1), password);
    if (afterCommand)
        afterCommand(argv);
    return ok;
}

bool FakeArchiver::create(const std::string& archive, const std::string& directory, const std::string& password)
{
    json content{{"password", password}, {"files", json::object()}};
    const std::vector<fs::path> files = sortedFiles(directory);
    for (const fs::path& file : files)
    {
        if (fault != Fault::CreateDropsFile || file != files.front())
            content["files"][file.filename().string()] = binaryOf(readFile(file.string()));
        fs::remove(file);
        if (fault == Fault::CreateHalfDone)
            break;
    }
    if (fault != Fault::CreateHalfDone)
        fs::remove(directory);
    const std::vector<std::uint8_t> bytes = json::to_cbor(content);
    writeFile(archive, {bytes.begin(), bytes.end()});
    return fault != Fault::CreateHalfDone;
}

bool FakeArchiver::extract(const std::string& archive, const std::string& directory, const std::string& password)
{
    const json content = json::from_cbor(readFile(archive));
    if (fault == Fault::ExtractFails || content.at("password") != password)
        return false;
    fs::create_directories(directory);
    bool isFirst = true;
    for (const auto& [name, value] : content.at("files").items())
    {
        std::string bytes = bytesOf(value);
        const bool isRecord = name == kRecord;
        if ((fault == Fault::ExtractAltersFile && !isRecord && isFirst) ||
            (fault == Fault::ExtractAltersRecord && isRecord))
            bytes.back() = static_cast<char>(bytes.back() ^ 1);
        isFirst = isFirst && isRecord;
        writeFile(fs::path(directory) / name, bytes);
    }
    return true;
}

} // namespace TAV::test
