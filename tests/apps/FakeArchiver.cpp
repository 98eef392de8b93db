#include "apps/FakeArchiver.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

namespace fs = std::filesystem;

constexpr const char* kRecord = "record.json";

std::vector<fs::path> sortedFiles(const fs::path& directory)
{
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(directory))
    {
        if (entry.is_regular_file())
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

void alterLastByte(const fs::path& file)
{
    std::string bytes = readFile(file.string());
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    std::ofstream(file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

} // namespace

FakeArchiver::FakeArchiver()
{
    m_archives.failure = FakeQelArchiveUtils::Failure::HalfDone;
    onCommand = [this](const Argv& argv) { return run(argv); };
}

bool FakeArchiver::run(const Argv& argv)
{
    if (beforeCommand)
        beforeCommand(argv);
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
    if (fault == Fault::CreateHalfDone)
        m_archives.failCall("createArchive", 1);
    if (fault == Fault::CreateDropsFile)
        fs::remove(sortedFiles(directory).at(0));
    return m_archives.createArchive(archive, ArchiveType::SevenZip, {directory}, {}, password);
}

bool FakeArchiver::extract(const std::string& archive, const std::string& directory, const std::string& password)
{
    if (fault == Fault::ExtractFails || !m_archives.extractArchive(archive, directory, password))
        return false;
    const fs::path record = fs::path(directory) / kRecord;
    std::vector<fs::path> files = sortedFiles(directory);
    files.erase(std::remove(files.begin(), files.end(), record), files.end());
    if (fault == Fault::ExtractAltersFile)
        alterLastByte(files.at(0));
    if (fault == Fault::ExtractAltersRecord)
        alterLastByte(record);
    return true;
}

} // namespace TAV::test
