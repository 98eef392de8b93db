#include "apps/QuarantineScene.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "endpoint_scan/SafeFiles.h"

namespace TAV::test
{

namespace fs = std::filesystem;

QuarantineScene::QuarantineScene()
{
    fs::create_directory(root());
}

endpointscan::RecordEntry QuarantineScene::denied(const std::string& path, const std::string& content, mode_t mode)
{
    const fs::path full = fs::path(root()) / path;
    fs::create_directories(full.parent_path());
    std::ofstream(full, std::ios::binary) << content;
    ::chmod(full.c_str(), mode);
    constexpr struct timespec kModified = {1'500'000'000, 123'456'789};
    const struct timespec times[] = {kModified, kModified};
    ::utimensat(AT_FDCWD, full.c_str(), times, 0);

    const endpointscan::Fd parent = endpointscan::openDirectory(full.parent_path().string());
    endpointscan::RecordEntry entry;
    entry.path = path;
    entry.facts = endpointscan::factsOf(endpointscan::statusAt(parent.get(), full.filename().string()));
    entry.facts.sha256 = endpointscan::sha256At(parent.get(), full.filename().string());
    entry.facts.mimeType = "text/plain";
    return entry;
}

endpointscan::Quarantine QuarantineScene::open(const std::string& password)
{
    endpointscan::Quarantine::make(quarantinePath());
    return {quarantinePath(), m_archives, password};
}

std::string QuarantineScene::storeAll(const std::vector<endpointscan::RecordEntry>& files)
{
    endpointscan::Quarantine quarantine = open();
    const endpointscan::StoreResult result = quarantine.store(root(), files, never);
    EXPECT_THAT(result.problems, ::testing::Each(::testing::IsEmpty()));
    return fs::path(result.archive).stem().string();
}

std::map<std::string, std::string> QuarantineScene::contentOf(const std::string& directory)
{
    std::map<std::string, std::string> content;
    if (!fs::exists(directory))
        return content;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
    {
        if (entry.is_regular_file())
            content[fs::relative(entry.path(), directory).string()] = readFile(entry.path().string());
    }
    return content;
}

std::vector<std::string> QuarantineScene::quarantineNames() const
{
    const endpointscan::Fd directory = endpointscan::openDirectory(quarantinePath());
    std::vector<std::string> names = endpointscan::namesIn(directory.get());
    names.erase(std::remove(names.begin(), names.end(), ".lock"), names.end());
    return names;
}

} // namespace TAV::test
