#include <openssl/md5.h>
#include <openssl/sha.h>
#include <stdio_ext.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

constexpr std::size_t kPieceSize = 1024;
/// Saves most of the read(2) calls; on the stack, so that a file costs no memory whatever its size.
constexpr std::size_t kStreamBufferSize = 32768;

template <std::size_t DigestSize>
using Digest = std::array<unsigned char, DigestSize>;

template <std::size_t DigestSize>
std::string hexText(QelSSLUtils& ssl, const Digest<DigestSize>& digest)
{
    std::string text(DigestSize * 2, '\0');
    // The terminator is written over the string's own.
    ssl.hexEncodeBytesIntoString(digest.data(), DigestSize, text.data(), static_cast<unsigned int>(text.size() + 1));
    return text;
}

struct FileClose
{
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};

/// The three digests, fed piece by piece; data needs the first one only.
struct Digests
{
    MD5_CTX md5Context;
    SHA_CTX sha1Context;
    SHA256_CTX sha256Context;
    Digest<MD5_DIGEST_LENGTH> md5;
    Digest<SHA_DIGEST_LENGTH> sha1;
    Digest<SHA256_DIGEST_LENGTH> sha256;

    bool update(const void* piece, std::size_t size)
    {
        return MD5_Update(&md5Context, piece, size) != 0 && SHA1_Update(&sha1Context, piece, size) != 0 &&
               SHA256_Update(&sha256Context, piece, size) != 0;
    }

    bool finish()
    {
        return MD5_Final(md5.data(), &md5Context) != 0 && SHA1_Final(sha1.data(), &sha1Context) != 0 &&
               SHA256_Final(sha256.data(), &sha256Context) != 0;
    }
};

/// Feeds a whole file. A read error ends it like the end of the file; the two are deliberately not told apart.
bool digestFile(const char* path, Digests& digests)
{
    std::array<char, kStreamBufferSize> streamBuffer;
    std::array<char, kPieceSize> piece{};
    const std::unique_ptr<std::FILE, FileClose> file(std::fopen(path, "rb"));
    if (file == nullptr)
        return false;
    // Where no buffer can be set, the stream makes one of its own: slower, and otherwise the same.
    static_cast<void>(std::setvbuf(file.get(), streamBuffer.data(), _IOFBF, streamBuffer.size()));
    __fsetlocking(file.get(), FSETLOCKING_BYCALLER); // no other thread knows this stream
    while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), file.get()))
    {
        if (!digests.update(piece.data(), size))
            return false;
    }
    return true;
}

/// MD5 of the data as a C string sees it: zeros from the first zero byte on, at the full length.
bool digestData(const std::string& data, MD5_CTX& context, Digest<MD5_DIGEST_LENGTH>& md5)
{
    const std::size_t size = data.size();
    const std::unique_ptr<char[]> copy(new char[size + 1]);
    std::strncpy(copy.get(), data.c_str(), size + 1);
    return MD5_Update(&context, copy.get(), size) != 0 && MD5_Final(md5.data(), &context) != 0;
}

} // namespace

bool QelSSLUtils::getChecksumValues(
    std::string input, InputTypes type, std::string& md5Hex, std::string& sha1Hex, std::string& sha256Hex)
{
    Digests digests;
    if (MD5_Init(&digests.md5Context) == 0)
        return false;

    if (type == INPUT_FILE_PATH)
    {
        if (SHA1_Init(&digests.sha1Context) == 0 || SHA256_Init(&digests.sha256Context) == 0)
            return false;
        if (!digestFile(input.c_str(), digests) || !digests.finish())
            return false;
        // Making a text can fail for want of memory; handing all three over cannot.
        std::string md5 = hexText(*this, digests.md5);
        std::string sha1 = hexText(*this, digests.sha1);
        std::string sha256 = hexText(*this, digests.sha256);
        md5Hex = std::move(md5);
        sha1Hex = std::move(sha1);
        sha256Hex = std::move(sha256);
        return true;
    }
    if (type == INPUT_DATA)
    {
        sha1Hex.clear();
        sha256Hex.clear();
        if (!digestData(input, digests.md5Context, digests.md5))
            return false;
        md5Hex = hexText(*this, digests.md5);
        return true;
    }
    return false;
}

} // namespace TAV
