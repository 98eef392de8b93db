#pragma once

#include "tav/IQelSSL.h"

namespace TAV
{

/// `IQelSSL` over OpenSSL's libcrypto.
///
/// **Threads.** It has no state: any operation may run on any thread beside any other.
class TAV_EXPORT QelSSLUtils : public IQelSSL
{
public:
    QelSSLUtils() = default;
    QelSSLUtils(const QelSSLUtils&) = delete;
    QelSSLUtils& operator=(const QelSSLUtils&) = delete;
    ~QelSSLUtils() override;

    bool getChecksumValues(
        std::string input, InputTypes type, std::string& md5Hex, std::string& sha1Hex, std::string& sha256Hex) override;

    /// @copydoc IQelSSL::getHmacSha1
    ///
    /// Encodes its digest through the virtual `base64EncodeInputBuffer`, so a derived class that overrides the encoder
    /// changes this result too, and each call keeps that operation's block of memory.
    bool getHmacSha1(std::string data, std::string key, std::string& out) override;
    bool encodeBase64(std::string input, std::string& out) override;
    bool base64EncodeInputBuffer(std::string& out, const unsigned char* buffer, int length) override;
    bool decodeBase64(std::string input, std::string& out) override;

    /// The hex digit of a value.
    /// @param nibble  0 to 15. A value above 15 is not masked: it maps past 'f'.
    /// @return '0' to '9', 'a' to 'f'
    char hexDigitToChar(unsigned char nibble);

    /// Writes bytes as lowercase hex text, the high half of each byte first, and a zero byte at the end.
    /// @param bytes    the bytes; may be null if `length` is 0
    /// @param length   how many bytes
    /// @param out      the caller's buffer; receives `length * 2 + 1` characters
    /// @param outSize  size of `out` in bytes
    /// @return the characters written, the zero byte included; or -1, with nothing written, if `out` is too small.
    ///         Sizes are computed in 32 bits: a `length` of 2^31 and above wraps around and passes the test.
    int hexEncodeBytesIntoString(const void* bytes, unsigned int length, char* out, unsigned int outSize);
};

} // namespace TAV
