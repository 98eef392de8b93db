#include "FakeCgroups.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace fs = std::filesystem;

namespace TAV::test
{

std::string groupUnder(const std::string& mount)
{
    return mount + "/zell_tp_ods";
}

std::string groupFile(const std::string& mount, const std::string& name)
{
    return groupUnder(mount) + "/" + name;
}

std::string cpuInfoOf(unsigned int processors)
{
    std::string text;
    for (unsigned int i = 0; i < processors; ++i)
        text += "processor\t: " + std::to_string(i) + "\nvendor_id\t: SomeVendor\ncpu cores\t: 2\n\n";
    return text;
}

FakeCgroups::FakeCgroups()
{
    onStat = [this](const char* path, struct stat*, int& err)
    {
        if (has(path))
            return 0;
        err = ENOENT;
        return -1;
    };
    onMkdir = [this](const std::string& path, mode_t, int&)
    {
        addGroup(path);
        return 0;
    };
    onOpenInputFile = [this](std::ifstream& stream, const std::string& path) { stream.open(real(path)); };
    onOpenOutputFile = [this](std::ofstream& stream, const std::string& path)
    {
        if (!has(path))
            return;
        m_outputs.push_back(path);
        stream.open(m_root.file("output." + std::to_string(m_outputs.size())));
    };
}

void FakeCgroups::addController(const std::string& mount)
{
    addFile(mount + "/" + kPeriod, "100000\n");
    addFile(mount + "/" + kQuota, "-1\n");
}

void FakeCgroups::addGroup(const std::string& path)
{
    addController(path);
    addFile(path + "/" + kProcs, "");
}

void FakeCgroups::addFile(const std::string& path, std::string_view content)
{
    fs::create_directories(fs::path(real(path)).parent_path());
    m_root.write("root" + path, content);
}

void FakeCgroups::remove(const std::string& path)
{
    fs::remove_all(real(path));
}

bool FakeCgroups::has(const std::string& path) const
{
    return fs::exists(real(path));
}

std::string FakeCgroups::real(const std::string& path) const
{
    return m_root.file("root" + path);
}

std::vector<std::pair<std::string, std::string>> FakeCgroups::writes() const
{
    std::vector<std::pair<std::string, std::string>> all;
    for (const std::string& path : m_outputs)
        all.emplace_back(path, readFile(m_root.file("output." + std::to_string(all.size() + 1))));
    return all;
}

unsigned int FakeCgroups::openFiles() const
{
    unsigned int count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd"))
    {
        std::error_code ignored;
        if (fs::read_symlink(entry.path(), ignored).string().rfind(m_root.path(), 0) == 0)
            ++count;
    }
    return count;
}

CgroupSetUp::CgroupSetUp(const std::string& mount, unsigned int processors)
    : utils(cgroups, logger, std::make_shared<kernelVersion>(kernelVersion{4, 19, 0}))
{
    cgroups->addController(mount);
    cgroups->addFile("/proc/cpuinfo", cpuInfoOf(processors));
}

std::vector<std::string> CgroupSetUp::messages() const
{
    std::vector<std::string> texts;
    for (const LogLine& line : logger.lines())
    {
        EXPECT_EQ(line, (LogLine{6, "TAVUtils", line.message}));
        texts.push_back(line.message);
    }
    return texts;
}

} // namespace TAV::test
