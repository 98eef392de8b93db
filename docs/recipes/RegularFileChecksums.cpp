// Recipe: hash regular files only, without a gap between the check and the reading.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "support/TemporaryDirectory.h"
#include "tav/QelSSLUtils.h"

namespace
{

//! [regular file checksums]
/// The SHA-256 of a regular file, or nothing for anything else.
std::optional<std::string> sha256OfRegularFile(TAV::IQelSSL& ssl, const std::string& path)
{
    // O_PATH opens no device and waits for nobody; the descriptor pins the file that is checked.
    const int fd = ::open(path.c_str(), O_PATH | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    struct stat status = {};
    const bool isRegular = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    std::string md5;
    std::string sha1;
    std::string sha256;
    const std::string pinned = "/proc/self/fd/" + std::to_string(fd);
    const bool hashed = isRegular && ssl.getChecksumValues(pinned, TAV::INPUT_FILE_PATH, md5, sha1, sha256);
    ::close(fd);
    return hashed ? std::optional<std::string>(sha256) : std::nullopt;
}
//! [regular file checksums]

TEST(RegularFileChecksumsTest, HashesRegularFile)
{
    const TAV::test::TemporaryDirectory directory;
    TAV::QelSSLUtils ssl;

    EXPECT_EQ(sha256OfRegularFile(ssl, directory.write("abc", "abc")),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(RegularFileChecksumsTest, RefusesDirectoryWhichPlainCallTakesForEmptyFile)
{
    const TAV::test::TemporaryDirectory directory;
    TAV::QelSSLUtils ssl;
    std::string md5;
    std::string sha1;
    std::string sha256;

    EXPECT_EQ(sha256OfRegularFile(ssl, directory.path()), std::nullopt);
    EXPECT_TRUE(ssl.getChecksumValues(directory.path(), TAV::INPUT_FILE_PATH, md5, sha1, sha256));
    EXPECT_EQ(sha256, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(RegularFileChecksumsTest, RefusesFifoWithoutWaiting)
{
    const TAV::test::TemporaryDirectory directory;
    const std::string path = directory.file("fifo");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    TAV::QelSSLUtils ssl;

    EXPECT_EQ(sha256OfRegularFile(ssl, path), std::nullopt);
}

TEST(RegularFileChecksumsTest, RefusesMissingFile)
{
    const TAV::test::TemporaryDirectory directory;
    TAV::QelSSLUtils ssl;

    EXPECT_EQ(sha256OfRegularFile(ssl, directory.file("missing")), std::nullopt);
}

} // namespace
