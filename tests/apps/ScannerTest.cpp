#include "endpoint_scan/Scanner.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "endpoint_scan/DenyListVerdicts.h"
#include "endpoint_scan/SafeFiles.h"
#include "support/TemporaryDirectory.h"

using endpointscan::DenyList;
using endpointscan::DenyListVerdicts;
using endpointscan::Finding;
using endpointscan::ScanSettings;
using endpointscan::Verdict;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace fs = std::filesystem;

namespace
{

constexpr const char* kEmptySha256 = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

class ScannerTest : public ::testing::Test
{
protected:
    ScannerTest()
    {
        m_settings.isCancelled = [] { return false; };
        m_settings.onProgress = [](std::size_t, std::size_t) {};
    }

    std::vector<Finding> scanned(const std::string& denied = "")
    {
        std::istringstream text(denied);
        const endpointscan::Fd root = endpointscan::openDirectory(m_place.path());
        m_settings.root = root.get();
        DenyListVerdicts verdicts(DenyList::parse(text, "list"));
        return scan(m_settings, verdicts);
    }

    TAV::test::TemporaryDirectory m_place;
    ScanSettings m_settings;
};

std::vector<std::string> pathsOf(const std::vector<Finding>& findings)
{
    std::vector<std::string> paths;
    for (const Finding& finding : findings)
        paths.push_back(finding.path);
    return paths;
}

TEST_F(ScannerTest, FindsFilesOfAllDirectoriesSortedByPath)
{
    fs::create_directories(m_place.file("b/c"));
    for (const char* name : {"z", "a", "b/x", "b/c/y"})
        m_place.write(name, name);
    EXPECT_THAT(pathsOf(scanned()), ElementsAre("a", "b/c/y", "b/x", "z"));
}

TEST_F(ScannerTest, TellsTypeAndChecksums)
{
    m_place.write("abc", "abc");
    const Finding finding = scanned().at(0);
    EXPECT_EQ(finding.verdict, Verdict::Clean);
    EXPECT_EQ(finding.facts.mimeType, "text/plain");
    EXPECT_EQ(finding.facts.size, 3U);
    EXPECT_EQ(finding.facts.md5, "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(finding.facts.sha1, "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(finding.facts.sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(ScannerTest, FindsWhatIsOnTheDenyList)
{
    m_place.write("bad", "");
    m_place.write("good", "x");
    const std::vector<Finding> findings = scanned(kEmptySha256);
    EXPECT_EQ(findings.at(0).verdict, Verdict::Denied);
    EXPECT_EQ(findings.at(1).verdict, Verdict::Clean);
}

TEST_F(ScannerTest, SkipsWhatIsNoRegularFileAndSaysWhatItIs)
{
    fs::create_symlink("/etc/passwd", m_place.file("a-link"));
    fs::create_directory_symlink("/etc", m_place.file("b-directory-link"));
    ::mkfifo(m_place.file("c-fifo").c_str(), 0600);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    m_place.file("d-socket").copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(listener, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)), 0);
    ::close(listener);

    std::vector<std::string> reasons;
    for (const Finding& finding : scanned())
    {
        EXPECT_EQ(finding.verdict, Verdict::Skipped) << finding.path;
        reasons.push_back(finding.reason);
    }
    EXPECT_THAT(reasons, ElementsAre("symbolic link", "symbolic link", "named pipe", "socket"));
}

TEST_F(ScannerTest, DoesNotEnterAnExcludedDirectory)
{
    fs::create_directory(m_place.file("q"));
    m_place.write("q/file", "");
    struct stat status = {};
    ASSERT_EQ(::stat(m_place.file("q").c_str(), &status), 0);
    m_settings.excluded = {{status.st_dev, status.st_ino}};
    const std::vector<Finding> findings = scanned();
    ASSERT_THAT(pathsOf(findings), ElementsAre("q"));
    EXPECT_EQ(findings[0].verdict, Verdict::Skipped);
}

TEST_F(ScannerTest, SkipsTheKernelsOwnFiles)
{
    const endpointscan::Fd root = endpointscan::openDirectory("/proc");
    m_settings.root = root.get();
    DenyListVerdicts none{DenyList()};
    const std::vector<Finding> findings = scan(m_settings, none);
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].reason, "file system of the kernel");
}

TEST_F(ScannerTest, ReportsAFileThatVanishesMeanwhile)
{
    m_place.write("a", "x");
    m_settings.isCancelled = [this, asked = 0]() mutable
    {
        if (++asked == 2) // asked before each directory, then before each file
            fs::remove(m_place.file("a"));
        return false;
    };
    const std::vector<Finding> findings = scanned();
    ASSERT_THAT(pathsOf(findings), ElementsAre("a"));
    EXPECT_EQ(findings[0].verdict, Verdict::Failed);
    EXPECT_THAT(findings[0].reason, HasSubstr("No such file"));
}

TEST_F(ScannerTest, ReportsWhatMayNotBeRead)
{
    if (::geteuid() == 0)
    {
        ASSERT_EQ(::seteuid(65534), 0) << "root may read everything";
    }
    const TAV::test::TemporaryDirectory own;
    own.write("secret", "x");
    fs::create_directory(own.file("closed"));
    own.write("open", "x");
    ::chmod(own.file("secret").c_str(), 0);
    ::chmod(own.file("closed").c_str(), 0);
    const endpointscan::Fd root = endpointscan::openDirectory(own.path());
    m_settings.root = root.get();
    DenyListVerdicts none{DenyList()};
    const std::vector<Finding> findings = scan(m_settings, none);
    ::chmod(own.file("closed").c_str(), 0700);
    ::seteuid(::getuid());

    ASSERT_THAT(pathsOf(findings), ElementsAre("closed", "open", "secret"));
    EXPECT_EQ(findings[0].verdict, Verdict::Failed);
    EXPECT_THAT(findings[0].reason, HasSubstr("Permission denied"));
    EXPECT_EQ(findings[1].verdict, Verdict::Clean);
    EXPECT_EQ(findings[2].verdict, Verdict::Failed);
    EXPECT_THAT(findings[2].reason, HasSubstr("Permission denied"));
}

TEST_F(ScannerTest, FindsTheSameWithAnyNumberOfThreads)
{
    constexpr int kFiles = 100;
    for (int i = 0; i < kFiles; ++i)
        m_place.write("file" + std::to_string(i), std::string(static_cast<std::size_t>(i), 'x'));
    std::vector<std::string> reference;
    for (const unsigned int threads : {1U, 2U, 8U, 32U})
    {
        m_settings.threads = threads;
        std::vector<std::string> digests;
        for (const Finding& finding : scanned(kEmptySha256))
            digests.push_back(finding.path + finding.facts.sha256 + finding.facts.mimeType);
        if (reference.empty())
            reference = digests;
        EXPECT_EQ(digests.size(), static_cast<std::size_t>(kFiles));
        EXPECT_EQ(digests, reference) << threads;
    }
}

TEST_F(ScannerTest, LosesNoFileWhenCancelled)
{
    for (const char* name : {"a", "b", "c"})
        m_place.write(name, name);
    std::atomic<int> asked{0};
    m_settings.isCancelled = [&asked] { return ++asked > 2; }; // lets the directory and one file pass
    const std::vector<Finding> findings = scanned();
    ASSERT_EQ(findings.size(), 3U);
    EXPECT_EQ(findings[0].verdict, Verdict::Clean);
    EXPECT_EQ(findings[1].verdict, Verdict::Failed);
    EXPECT_THAT(findings[1].reason, HasSubstr("interrupted"));
    EXPECT_EQ(findings[2].verdict, Verdict::Failed);
}

TEST_F(ScannerTest, ReportsItsProgressToTheEnd)
{
    for (const char* name : {"a", "b", "c"})
        m_place.write(name, name);
    std::vector<std::size_t> last;
    m_settings.onProgress = [&last](std::size_t done, std::size_t all) { last = {done, all}; };
    scanned();
    EXPECT_THAT(last, ElementsAre(3, 3));
}

} // namespace
