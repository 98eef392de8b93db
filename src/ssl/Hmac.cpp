#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <cstring>

#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

constexpr unsigned int kSha1Size = 20;

} // namespace

bool QelSSLUtils::getHmacSha1(std::string data, std::string key, std::string& out)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    // The key deliberately ends at its first zero byte; the data does not.
    HMAC(EVP_sha1(),
         key.c_str(),
         static_cast<int>(std::strlen(key.c_str())),
         reinterpret_cast<const unsigned char*>(data.data()),
         data.size(),
         digest.data(),
         &size);
    if (size != kSha1Size)
        return false;
    return base64EncodeInputBuffer(out, digest.data(), static_cast<int>(kSha1Size));
}

} // namespace TAV
