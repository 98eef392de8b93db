#include "ArchiveFixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <memory>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{
namespace
{

std::size_t countDescriptors()
{
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

/// What the new process does; it tells the outcome by notes, each with a first word that says what it is.
void runAndNote(const ArchiveOperation& operation, SharedNotes& notes)
{
    RecordingLogger logger;
    const auto version = std::make_shared<kernelVersion>(kernelVersion{5, 10, 0});
    QelArchiveUtils archives(logger, std::make_shared<TAVUtils>(std::make_shared<TAVSystemUtils>(), logger, version));
    const std::size_t before = countDescriptors();
    const pid_t self = ::getpid();
    const bool answer = operation(archives);
    if (::getpid() != self)
    {
        notes.add("result came back in the child");
        ::_exit(127);
    }
    notes.add(answer ? "result true" : "result false");
    for (const LogLine& line : logger.lines())
        notes.add("log " + std::to_string(line.level) + " " + line.component.value_or("") + ": " + line.message);
    if (countDescriptors() != before)
        notes.add("left descriptors");
    if (::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD)
        notes.add("left a child process");
}

} // namespace

ArchiveRun runArchive(const ArchiveOperation& operation, const std::function<void()>& before)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            if (before)
                before();
            runAndNote(operation, notes);
        });
    const auto status = process.wait();
    ArchiveRun run;
    for (const std::string& note : notes.lines())
    {
        const auto blank = note.find(' ');
        const std::string kind = note.substr(0, blank);
        const std::string value = note.substr(blank + 1);
        if (kind == "result")
            run.result += value;
        else
            (kind == "log" ? run.log : run.left).push_back(value);
    }
    if (!status)
        run.result += "still running";
    else if (*status != 0)
        run.result += "ended with status " + std::to_string(*status);
    return run;
}

std::vector<std::string> namesIn(const std::string& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void ArchiveTest::SetUp()
{
    if (::access(kArchiveTool, X_OK) != 0)
        GTEST_SKIP() << kArchiveTool << " is missing: run ./dev setup, which makes it a link to /usr/lib/p7zip/7za";
}

ArchiveRun
ArchiveTest::create(const std::string& archive, const std::vector<std::string>& files, const std::string& password)
{
    return runArchive([&](IQelArchiveUtils& archives)
                      { return archives.createArchive(archive, ArchiveType::SevenZip, files, {}, password); });
}

ArchiveRun ArchiveTest::extract(const std::string& archive, const std::string& target, const std::string& password)
{
    return runArchive([&](IQelArchiveUtils& archives) { return archives.extractArchive(archive, target, password); });
}

void ArchiveTest::expectContent(const std::string& archive,
                                const std::string& name,
                                const std::string& content,
                                const std::string& password)
{
    const std::string target = directory.file("extracted" + std::to_string(++m_extractions));
    EXPECT_EQ(extract(archive, target, password).result, "true");
    ASSERT_EQ(namesIn(target), std::vector<std::string>{name});
    EXPECT_EQ(readFile(target + "/" + name), content);
}

} // namespace TAV::test
