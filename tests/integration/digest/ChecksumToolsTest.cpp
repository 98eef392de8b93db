#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "support/TemporaryDirectory.h"
#include "support/Tools.h"
#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

using test::TemporaryDirectory;

struct Digests
{
    bool answer = false;
    std::string md5 = "before";
    std::string sha1 = "before";
    std::string sha256 = "before";

    friend bool operator==(const Digests& a, const Digests& b)
    {
        return a.answer == b.answer && a.md5 == b.md5 && a.sha1 == b.sha1 && a.sha256 == b.sha256;
    }
    friend std::ostream& operator<<(std::ostream& out, const Digests& digests)
    {
        return out << digests.answer << ' ' << digests.md5 << ' ' << digests.sha1 << ' ' << digests.sha256;
    }
};

const Digests kUntouched{};
const Digests kOfNothing{true,
                         "d41d8cd98f00b204e9800998ecf8427e",
                         "da39a3ee5e6b4b0d3255bfef95601890afd80709",
                         "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"};
const Digests kOfAbc{true,
                     "900150983cd24fb0d6963f7d28e17f72",
                     "a9993e364706816aba3e25717850c26c9cd0d89d",
                     "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"};

Digests ofFile(const std::string& path)
{
    Digests digests;
    digests.answer = QelSSLUtils().getChecksumValues(path, INPUT_FILE_PATH, digests.md5, digests.sha1, digests.sha256);
    return digests;
}

/// The digest that a tool gives for a file, which it reads through its standard input: no name to escape.
std::string byTool(const std::string& tool, const std::string& path)
{
    const std::string line = test::outputOf({tool}, path);
    return line.substr(0, line.find(' '));
}

Digests byTools(const std::string& path)
{
    return {true, byTool("md5sum", path), byTool("sha1sum", path), byTool("sha256sum", path)};
}

/// Content without a period that pieces could hide behind.
std::string content(std::size_t size, bool zeroBytes = true)
{
    std::string bytes(size, '\0');
    std::uint64_t state = 88172645463325252ULL + size;
    for (char& byte : bytes)
    {
        state ^= state << 13U;
        state ^= state >> 7U;
        state ^= state << 17U;
        byte = static_cast<char>(state & 0xffU);
        if (byte == '\0' && !zeroBytes)
            byte = 1;
    }
    return bytes;
}

class ChecksumSizeTest : public testing::TestWithParam<std::size_t>
{
};

TEST_P(ChecksumSizeTest, AgreesWithTheTools)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("file", content(GetParam()));
    EXPECT_EQ(ofFile(path), byTools(path));
}

INSTANTIATE_TEST_SUITE_P(
    AroundTheBlocks,
    ChecksumSizeTest,
    testing::Values(0, 1, 55, 56, 63, 64, 65, 1023, 1024, 1025, 2048, 4095, 4096, 4097, 16384, 16385));
INSTANTIATE_TEST_SUITE_P(Large, ChecksumSizeTest, testing::Values(64U << 20U));

TEST(ChecksumFileTest, DirectoryOpensAndReadsNothing)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(ofFile(directory.path()), kOfNothing);
}

TEST(ChecksumFileTest, MissingFileFails)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(ofFile(directory.file("missing")), kUntouched);
    EXPECT_EQ(ofFile(directory.file("missing/deeper")), kUntouched);
}

TEST(ChecksumFileTest, ReadErrorAtTheBeginningGivesTheDigestsOfNothing)
{
    // Nothing is mapped at address 0, so the first read of this file fails with EIO.
    const int fd = ::open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    char byte = 0;
    EXPECT_EQ(::read(fd, &byte, 1), -1);
    EXPECT_EQ(errno, EIO);
    ::close(fd);
    EXPECT_EQ(ofFile("/proc/self/mem"), kOfNothing);
}

TEST(ChecksumFileTest, FileWithoutASizeIsReadToItsEnd)
{
    // The kernel reports 0 bytes for it.
    EXPECT_EQ(std::filesystem::file_size("/proc/version"), 0U);
    EXPECT_EQ(ofFile("/proc/version"), byTools("/proc/version"));
    EXPECT_EQ(ofFile("/dev/null"), kOfNothing);
}

TEST(ChecksumFileTest, FifoBlocksUntilAWriterComesAndReadsWhatItWrites)
{
    const TemporaryDirectory directory;
    const std::string path = directory.file("fifo");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    auto digests = std::async(std::launch::async, [&path] { return ofFile(path); });
    // It cannot be ready, however fast or slow the machine is: nobody has opened the other end.
    EXPECT_EQ(digests.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    std::ofstream writer(path);
    writer << "a" << std::flush << "bc";
    writer.close();
    EXPECT_EQ(digests.get(), kOfAbc);
}

TEST(ChecksumFileTest, UnreadableFileFails)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("file", "abc");
    std::filesystem::permissions(directory.path(), std::filesystem::perms(0755));
    test::SharedNotes notes;
    const auto body = [&]
    {
        constexpr uid_t kNobody = 65534;
        if (::geteuid() == 0 && ::seteuid(kNobody) != 0)
            throw std::runtime_error("cannot become somebody else");
        const auto note = [&] { notes.add(ofFile(path) == kUntouched ? "refused" : "read"); };
        note();
        if (::geteuid() == kNobody && ::seteuid(0) != 0)
            throw std::runtime_error("cannot become root again");
        std::filesystem::permissions(path, std::filesystem::perms(0644));
        if (::geteuid() == 0 && ::seteuid(kNobody) != 0)
            throw std::runtime_error("cannot become somebody else");
        note();
    };
    std::filesystem::permissions(path, std::filesystem::perms(0));
    test::SacrificialProcess process(body);
    ASSERT_EQ(process.wait(), 0);
    EXPECT_EQ(notes.text(), "refused\nread\n") << "first without the right to read, then with it";
}

TEST(ChecksumFileTest, PathWithAZeroByteIsCutThere)
{
    const TemporaryDirectory directory;
    std::string path = directory.write("file", "abc");
    path += '\0';
    path += "more";
    EXPECT_EQ(ofFile(path), kOfAbc);
}

TEST(ChecksumFileTest, PathsOfAnyBytesWork)
{
    const TemporaryDirectory directory;
    for (const char* name :
         {"\xff\xfe\x80", "with blank", "new\nline", "back\\slash", "-dash", "\xd0\xb8\xd0\xbc\xd1\x8f"})
        EXPECT_EQ(ofFile(directory.write(name, "abc")), kOfAbc) << name;
}

TEST(ChecksumFileTest, TooLongPathFails)
{
    EXPECT_EQ(ofFile("/tmp/" + std::string(100000, 'x')), kUntouched);
}

TEST(ChecksumFileTest, SymbolicLinkIsFollowed)
{
    const TemporaryDirectory directory;
    std::filesystem::create_symlink(directory.write("file", "abc"), directory.file("link"));
    EXPECT_EQ(ofFile(directory.file("link")), kOfAbc);
    std::filesystem::create_symlink("nowhere", directory.file("dangling"));
    EXPECT_EQ(ofFile(directory.file("dangling")), kUntouched);
}

TEST(ChecksumFileTest, NoDescriptorStaysOpen)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("file", content(5000));
    const auto openDescriptors = []
    {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const auto before = openDescriptors();
    for (const std::string& input : {path, directory.path(), directory.file("missing")})
        ofFile(input);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(ChecksumDataTest, HundredMegabytesAgreeWithTheTool)
{
    const TemporaryDirectory directory;
    const std::string data = content(100000000, false);
    const std::string path = directory.write("data", data);
    Digests digests;
    digests.answer = QelSSLUtils().getChecksumValues(data, INPUT_DATA, digests.md5, digests.sha1, digests.sha256);
    EXPECT_EQ(digests, (Digests{true, byTool("md5sum", path), "", ""}));
}

TEST(ChecksumDataTest, DataWithAZeroByteAgreesWithTheToolOverZeros)
{
    const TemporaryDirectory directory;
    std::string data = content(10000, false);
    data[4321] = '\0';
    Digests digests;
    digests.answer = QelSSLUtils().getChecksumValues(data, INPUT_DATA, digests.md5, digests.sha1, digests.sha256);
    const std::string zeroed = data.substr(0, 4321) + std::string(10000 - 4321, '\0');
    EXPECT_EQ(digests.md5, byTool("md5sum", directory.write("zeroed", zeroed)));
}

} // namespace
} // namespace TAV
