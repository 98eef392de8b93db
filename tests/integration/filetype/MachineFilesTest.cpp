#include "MachineFiles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/Tools.h"
#include "tav/MagicUtils.h"

namespace TAV
{
namespace
{

using test::machineFiles;

std::string textOf(const char* answer)
{
    return answer == nullptr ? "(null)" : answer;
}

class MachineFilesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!test::hasTool("file"))
            GTEST_SKIP() << "the program `file` is missing: install the package file";
        magic.magicOpen();
        magic.magicLoad(nullptr);
    }

    void TearDown() override { magic.magicClose(); }

    MagicUtils magic;
};

/// One line for each of these files, as the tool sees them by path.
std::vector<std::string> toolAnswers(std::vector<std::string>::const_iterator begin,
                                     std::vector<std::string>::const_iterator end)
{
    std::vector<std::string> argv{"file", "--mime-type", "-b", "--"};
    argv.insert(argv.end(), begin, end);
    std::istringstream output(test::outputOf(argv));
    std::vector<std::string> lines;
    for (std::string line; std::getline(output, line);)
        lines.push_back(line);
    return lines;
}

TEST_F(MachineFilesTest, ByPathTheTypeIsTheToolsType)
{
    const auto& files = machineFiles();
    ASSERT_EQ(files.size(), test::kMachineFiles) << "the machine has too few files";
    std::set<std::string> types;
    constexpr std::size_t kAtATime = 50;
    for (std::size_t at = 0; at < files.size(); at += kAtATime)
    {
        const std::size_t count = std::min(kAtATime, files.size() - at);
        const auto first = files.begin() + static_cast<std::ptrdiff_t>(at);
        const auto expected = toolAnswers(first, first + static_cast<std::ptrdiff_t>(count));
        ASSERT_EQ(expected.size(), count);
        for (std::size_t i = 0; i < count; ++i)
        {
            const std::string type = textOf(magic.magicFile(files[at + i].c_str()));
            EXPECT_EQ(type, expected[i]) << files[at + i];
            EXPECT_EQ(type.find("charset"), std::string::npos) << files[at + i];
            types.insert(type);
        }
    }
    EXPECT_GE(types.size(), test::kMachineFiles / 30) << "files of too few kinds say little";
    RecordProperty("files", static_cast<int>(files.size()));
    RecordProperty("types", static_cast<int>(types.size()));
}

TEST_F(MachineFilesTest, ByDescriptorTheTypeIsTheToolsType)
{
    const auto& files = machineFiles();
    std::size_t compared = 0;
    for (const std::string& path : files)
    {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            continue; // not ours to read
        const std::string type = textOf(magic.magicDescriptor(fd));
        EXPECT_EQ(::close(fd), 0) << "libmagic leaves the descriptor open";
        EXPECT_EQ(type + "\n", test::outputOf({"file", "--mime-type", "-b", "-"}, path)) << path;
        ++compared;
    }
    EXPECT_GE(compared, test::kMachineFiles * 9 / 10);
}

TEST_F(MachineFilesTest, EightThreadsWithAnObjectEachAgree)
{
    const auto& all = machineFiles();
    const auto count = static_cast<std::ptrdiff_t>(std::min(all.size(), test::kMachineFiles / 6));
    const std::vector<std::string> files(all.begin(), all.begin() + count);
    std::vector<std::string> expected;
    expected.reserve(files.size());
    for (const std::string& path : files)
        expected.push_back(textOf(magic.magicFile(path.c_str())));

    std::vector<std::vector<std::string>> seen(8);
    std::vector<std::thread> threads;
    threads.reserve(seen.size());
    for (auto& answers : seen)
    {
        threads.emplace_back(
            [&answers, &files]
            {
                MagicUtils own;
                own.magicOpen();
                own.magicLoad(nullptr);
                for (const std::string& path : files)
                    answers.push_back(textOf(own.magicFile(path.c_str())));
                own.magicClose();
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& answers : seen)
        EXPECT_EQ(answers, expected);
}

} // namespace
} // namespace TAV
