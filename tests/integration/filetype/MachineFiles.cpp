#include "MachineFiles.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>

namespace TAV::test
{
namespace
{

namespace fs = std::filesystem;

/// Empty files are all of one kind, and what is large takes long without telling more.
constexpr std::uintmax_t kLargest = 256 * 1024;

bool isChoosable(const fs::directory_entry& entry)
{
    std::error_code err;
    if (entry.is_symlink(err) || !entry.is_regular_file(err))
        return false;
    const std::uintmax_t size = entry.file_size(err);
    return !err && size > 0 && size <= kLargest;
}

std::vector<std::string> regularFilesBelow(const std::string& root)
{
    std::vector<std::string> paths;
    std::error_code err;
    fs::recursive_directory_iterator at(root, fs::directory_options::skip_permission_denied, err);
    for (; !err && at != fs::recursive_directory_iterator(); at.increment(err))
    {
        if (isChoosable(*at))
            paths.push_back(at->path().string());
    }
    return paths;
}

/// The first `ofEachKind` of each extension.
std::vector<std::string> someOf(const std::vector<std::string>& paths, std::size_t ofEachKind)
{
    std::map<std::string, std::size_t> taken;
    std::vector<std::string> chosen;
    for (const std::string& path : paths)
    {
        if (++taken[fs::path(path).extension().string()] <= ofEachKind)
            chosen.push_back(path);
    }
    return chosen;
}

/// At most `count` of them, from the whole length of the list.
std::vector<std::string> thinnedOut(const std::vector<std::string>& paths, std::size_t count)
{
    if (paths.size() <= count)
        return paths;
    std::vector<std::string> kept;
    for (std::size_t i = 0; i < count; ++i)
        kept.push_back(paths[i * paths.size() / count]);
    return kept;
}

std::vector<std::string> choose()
{
    std::vector<std::string> all = regularFilesBelow("/usr");
    const std::vector<std::string> more = regularFilesBelow("/etc");
    all.insert(all.end(), more.begin(), more.end());
    std::sort(all.begin(), all.end());
    std::vector<std::string> chosen;
    for (std::size_t ofEachKind = 1; chosen.size() < kMachineFiles && chosen.size() < all.size(); ++ofEachKind)
        chosen = someOf(all, ofEachKind);
    return thinnedOut(chosen, kMachineFiles);
}

} // namespace

const std::vector<std::string>& machineFiles()
{
    static const std::vector<std::string> files = choose();
    return files;
}

} // namespace TAV::test
