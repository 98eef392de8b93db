#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <openssl/md5.h>
#include <openssl/sha.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "Cases.h"
#include "Pair.h"
#include "Resident.h"
#include "peers/Peers.h"
#include "tav/QelSSLUtils.h"

namespace TAV::bench
{
namespace
{

namespace fs = std::filesystem;

constexpr std::size_t kKilobyte = 1024;
constexpr std::size_t kLargeSize = 256 * kMegabyte;

std::string pathOf(std::size_t size)
{
    return fs::temp_directory_path() / ("tav-bench-" + std::to_string(::getpid()) + "-" + std::to_string(size));
}

/// A file of this size. Just written, it is in the page cache.
class CachedFile
{
public:
    explicit CachedFile(std::size_t size) : m_path(pathOf(size))
    {
        const int fd = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
        require(fd >= 0, "making a file");
        const std::string piece(std::min(size, kMegabyte), 'x');
        for (std::size_t written = 0; written < size; written += piece.size())
            require(::write(fd, piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()), "writing a file");
        ::close(fd);
    }
    CachedFile(const CachedFile&) = delete;
    CachedFile& operator=(const CachedFile&) = delete;
    ~CachedFile() { fs::remove(m_path); }

private:
    std::string m_path;
};

struct FileAndBytes
{
    explicit FileAndBytes(std::size_t size) : file(size), bytes(size, 'x') {}

    const CachedFile file;
    /// The same in memory.
    const std::string bytes;
};

struct TwoFiles
{
    const CachedFile small{kKilobyte};
    const CachedFile large{kLargeSize};
};

struct Digests
{
    std::array<unsigned char, MD5_DIGEST_LENGTH> md5;
    std::array<unsigned char, SHA_DIGEST_LENGTH> sha1;
    std::array<unsigned char, SHA256_DIGEST_LENGTH> sha256;
};

/// One digest after the other, each over all bytes at once.
Digests digestsOf(const void* bytes, std::size_t size)
{
    Digests digests;
    MD5_CTX md5;
    MD5_Init(&md5);
    MD5_Update(&md5, bytes, size);
    MD5_Final(digests.md5.data(), &md5);
    SHA_CTX sha1;
    SHA1_Init(&sha1);
    SHA1_Update(&sha1, bytes, size);
    SHA1_Final(digests.sha1.data(), &sha1);
    SHA256_CTX sha256;
    SHA256_Init(&sha256);
    SHA256_Update(&sha256, bytes, size);
    SHA256_Final(digests.sha256.data(), &sha256);
    return digests;
}

template <typename Digest>
std::string hexText(const Digest& digest)
{
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text(digest.size() * 2, '\0');
    auto digit = text.begin();
    for (const unsigned char byte : digest)
    {
        *digit++ = kDigits[byte >> 4];
        *digit++ = kDigits[byte & 0x0f];
    }
    return text;
}

/// The least that a program does for the checksums of a small file: open, read to the end, close, digest, hex texts.
Work openReadDigest(const std::string& path)
{
    return [path]
    {
        const int fd = ::open(path.c_str(), O_RDONLY);
        std::array<char, 2 * kKilobyte> bytes;
        std::size_t size = 0;
        for (ssize_t got = 0; (got = ::read(fd, bytes.data() + size, bytes.size() - size)) > 0;)
            size += static_cast<std::size_t>(got);
        ::close(fd);
        require(size == kKilobyte, "read");
        const Digests digests = digestsOf(bytes.data(), size);
        benchmark::DoNotOptimize(hexText(digests.md5));
        benchmark::DoNotOptimize(hexText(digests.sha1));
        benchmark::DoNotOptimize(hexText(digests.sha256));
    };
}

void runTool(const char* tool, const std::string& path)
{
    static const auto silently = []
    {
        posix_spawn_file_actions_t actions = {};
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        return actions;
    }();
    const std::array<const char*, 3> arguments{tool, path.c_str()};
    pid_t pid = 0;
    int status = 0;
    require(::posix_spawn(&pid, tool, &silently, nullptr, const_cast<char* const*>(arguments.data()), nullptr) == 0 &&
                ::waitpid(pid, &status, 0) == pid && status == 0,
            tool);
}

Work threeTools(const std::string& path)
{
    return [path]
    {
        for (const char* tool : {"/usr/bin/md5sum", "/usr/bin/sha1sum", "/usr/bin/sha256sum"})
            runTool(tool, path);
    };
}

Work checksumsOf(const std::string& path)
{
    return [path]
    {
        QelSSLUtils ssl;
        std::string md5;
        std::string sha1;
        std::string sha256;
        require(ssl.getChecksumValues(path, INPUT_FILE_PATH, md5, sha1, sha256), "getChecksumValues");
    };
}

void addFileCases(const std::string& what, std::size_t size, int rounds)
{
    const WhileMeasured<FileAndBytes> data;
    const std::string path = pathOf(size);
    Pair pair{"checksums, " + what};
    pair.ours = checksumsOf(path);
    pair.surroundings = data.madeBy([size] { return std::make_unique<FileAndBytes>(size); });
    pair.rounds = rounds;
    const auto against = [&pair](const char* peer, double target, const Work& theirs)
    {
        pair.peer = peer;
        pair.target = target;
        pair.theirs = theirs;
        compare(pair);
    };
    if (size == kKilobyte)
    {
        against("open + read + digests", 1.08, openReadDigest(path));
        return;
    }
    against("digests in memory", 1.05, [data] { digestsOf(data->bytes.data(), data->bytes.size()); });
    against("librhash", 1.02, peers::rhashOf(path));
    against("md5sum + sha1sum + sha256sum", kAhead, threeTools(path));
}

void addMemoryCase()
{
    Pair pair{"memory for checksums, 256 MB file", "the library, 1 kB file", 1.01};
    pair.ours = checksumsOf(pathOf(kLargeSize));
    pair.theirs = checksumsOf(pathOf(kKilobyte));
    pair.surroundings = WhileMeasured<TwoFiles>().madeBy(std::make_unique<TwoFiles>);
    comparePeakMemory(pair);
}

} // namespace

void addChecksumCases()
{
    addFileCases("1 kB file", kKilobyte, 301);
    addFileCases("1 MB file", kMegabyte, 301);
    addFileCases("256 MB file", kLargeSize, 7);
    addMemoryCase();
}

} // namespace TAV::bench
