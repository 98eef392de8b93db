// Recipe: the SHA-256 of bytes in memory, zero bytes included.

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "tav/QelSSLUtils.h"

namespace
{

//! [digest of memory]
/// Hands the bytes over as an unnamed file in memory: of a file, all three checksums are computed, over every byte.
std::optional<std::string> sha256OfBytes(TAV::IQelSSL& ssl, const std::string& bytes)
{
    const int fd = ::memfd_create("bytes", MFD_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    std::size_t done = 0;
    ssize_t size = 0;
    while (done < bytes.size() && (size = ::write(fd, bytes.data() + done, bytes.size() - done)) > 0)
        done += static_cast<std::size_t>(size);
    std::string md5;
    std::string sha1;
    std::string sha256;
    const bool hashed =
        done == bytes.size() &&
        ssl.getChecksumValues("/proc/self/fd/" + std::to_string(fd), TAV::INPUT_FILE_PATH, md5, sha1, sha256);
    ::close(fd);
    return hashed ? std::optional<std::string>(sha256) : std::nullopt;
}
//! [digest of memory]

TEST(DigestOfMemoryTest, HashesEveryByte)
{
    TAV::QelSSLUtils ssl;

    EXPECT_EQ(sha256OfBytes(ssl, ""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256OfBytes(ssl, "abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_NE(sha256OfBytes(ssl, std::string("a\0b", 3)), sha256OfBytes(ssl, std::string("a\0\0", 3)));
}

} // namespace
