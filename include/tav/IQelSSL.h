#pragma once

#include <cstdint>
#include <string>

#include "tav/Export.h"

namespace TAV
{

/// What the input string of a checksum is. Any other value is refused.
enum InputTypes : std::int32_t
{
    INPUT_FILE_PATH = 1, ///< the path of a file to read
    INPUT_DATA = 2,      ///< the bytes to hash
};

/// Checksums, message authentication and base64.
///
/// No operation logs, and none throws but for want of memory (`std::bad_alloc`); each tells its outcome by its result.
/// MD5, SHA-1 and HMAC-SHA1 serve here to identify things. They do not withstand an attacker who forges them.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT IQelSSL
{
public:
    virtual ~IQelSSL() = default;

    /// Computes checksums as lowercase hex text: MD5 (RFC 1321, 32 characters), SHA-1 and SHA-256 (FIPS 180-4, 40 and
    /// 64 characters).
    ///
    /// Of a file, all three, in one pass and in constant memory; the three outputs are assigned together, on success
    /// only. A read error is not told from the end of the file: the checksums are then those of what was read, and a
    /// directory gives those of the empty input. A FIFO blocks. Check for a regular file first.
    ///
    /// Of data, MD5 alone: `sha1Hex` and `sha256Hex` become empty, even when the call then fails. From its first zero
    /// byte on, the data is hashed as if it were zeros to its end.
    ///
    /// @param input      a path (cut at its first zero byte) or the data, as `type` says
    /// @param type       `INPUT_FILE_PATH` or `INPUT_DATA`
    /// @param md5Hex     receives the MD5 text
    /// @param sha1Hex    receives the SHA-1 text, or is emptied
    /// @param sha256Hex  receives the SHA-256 text, or is emptied
    /// @return false, with the outputs untouched but for the two named above, if the type is another one, the file
    ///         cannot be opened or libcrypto fails
    virtual bool getChecksumValues(
        std::string input, InputTypes type, std::string& md5Hex, std::string& sha1Hex, std::string& sha256Hex) = 0;

    /// HMAC-SHA1 (RFC 2104) of `data`, as the base64 text of the 20 bytes: 28 characters, the last one '='. Each call
    /// keeps about 100 bytes of memory for good: it encodes by `base64EncodeInputBuffer`.
    /// @param data  the message, which comes first; taken whole
    /// @param key   the key, which comes second; cut at its first zero byte
    /// @param out   receives the text; untouched on failure
    /// @return false if libcrypto fails
    virtual bool getHmacSha1(std::string data, std::string key, std::string& out) = 0;

    /// Base64 (RFC 4648, section 4, padded, no line breaks) of a string.
    /// @param input  the bytes, zero bytes included
    /// @param out    receives the text
    /// @return whether `out` is not empty: false for an empty input, which empties `out`
    virtual bool encodeBase64(std::string input, std::string& out) = 0;

    /// The same encoding of a buffer, by libcrypto's BIO_f_base64(3). Each call keeps a copy of the encoded text, at
    /// least a third larger than the buffer, for good: never use it for large buffers, and prefer `encodeBase64` where
    /// many texts are encoded.
    /// @param out     receives the text; untouched on failure
    /// @param buffer  the bytes; may be null if `length` is 0
    /// @param length  how many bytes, 0 or more; 0 gives true and an empty text
    /// @return false if libcrypto fails
    virtual bool base64EncodeInputBuffer(std::string& out, const unsigned char* buffer, int length) = 0;

    /// Decodes base64 text (RFC 4648, section 4) into bytes. The text is taken as one line: a line break in its middle
    /// makes it fail.
    ///
    /// The result counts when it is as long as the length and the padding of the text promise. Some odd texts pass that
    /// test: "====" (one zero byte), "=AAA", "Zg==Zg==" and one more character behind a text without padding: "Zm9vx"
    /// and "Zm9v-" are taken as "Zm9v", and a newline there counts as nothing. Behind padding a newline is refused:
    /// strip newlines first.
    ///
    /// @param input  the text; 3 characters or fewer are refused
    /// @param out    receives the bytes, which may be zero bytes; empty on failure
    /// @return whether the text was decoded
    virtual bool decodeBase64(std::string input, std::string& out) = 0;
};

} // namespace TAV
