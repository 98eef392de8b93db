#pragma once

#include <functional>
#include <map>
#include <string>

#include "tav/QelSSLUtils.h"
#include "tav/testing/Fake.h"

namespace TAV::test
{

/// The three checksums of one input, as a test makes them up.
struct Checksums
{
    std::string md5;    ///< MD5
    std::string sha1;   ///< SHA-1; not given for data
    std::string sha256; ///< SHA-256; not given for data
};

/// Checksums and encodings that a test steers. Each operation notes its call and fails if the test planned so;
/// otherwise it gives the test's own answer, if there is one, or the real one.
///
///     FakeQelSSL ssl;
///     ssl.checksums["/sample"] = {"", "", "ba78..."};        // no such file is needed
///     ssl.failCall("getChecksumValues", 2);                  // the second file cannot be read
///     ssl.onGetHmacSha1 = [](const std::string&, const std::string&, std::string& out) { out = "mac"; return true; };
///     ...
///     EXPECT_THAT(ssl.calls(), ElementsAre("getChecksumValues(/sample, 1)"));
///
/// Calls are noted with their inputs, keys included; that of a buffer as "base64EncodeInputBuffer(20 bytes)".
///
/// A planned failure gives false and leaves the outputs as the real operation would: `decodeBase64` and `encodeBase64`
/// empty theirs, `getChecksumValues` of data empties SHA-1 and SHA-256, all else is untouched. `encodeBase64` of the
/// real kind fails for an empty input only, so a sweep by `failAnyCall` passes it by; `failCall` reaches it.
class FakeQelSSL : public IQelSSL, public Fake
{
public:
    using Fake::Fake;

    /// Answers of `getChecksumValues` by its input, a path or data.
    std::map<std::string, Checksums> checksums;

    /// When set, in the place of the real `getChecksumValues`, with its arguments.
    std::function<bool(const std::string&, InputTypes, std::string&, std::string&, std::string&)> onGetChecksumValues;

    /// When set, in the place of the real `getHmacSha1`, with its arguments.
    std::function<bool(const std::string&, const std::string&, std::string&)> onGetHmacSha1;

    /// When set, in the place of the real `encodeBase64`, with its arguments.
    std::function<bool(const std::string&, std::string&)> onEncodeBase64;

    /// When set, in the place of the real `base64EncodeInputBuffer`, with its arguments.
    std::function<bool(std::string&, const unsigned char*, int)> onBase64EncodeInputBuffer;

    /// When set, in the place of the real `decodeBase64`, with its arguments.
    std::function<bool(const std::string&, std::string&)> onDecodeBase64;

    bool getChecksumValues(
        std::string input, InputTypes type, std::string& md5Hex, std::string& sha1Hex, std::string& sha256Hex) override;

    bool getHmacSha1(std::string data, std::string key, std::string& out) override
    {
        if (enter("getHmacSha1", joined({data, key})))
            return false;
        return onGetHmacSha1 ? onGetHmacSha1(data, key, out) : m_real.getHmacSha1(data, key, out);
    }

    bool encodeBase64(std::string input, std::string& out) override
    {
        if (enter("encodeBase64", input, false))
            return out.clear(), false;
        return onEncodeBase64 ? onEncodeBase64(input, out) : m_real.encodeBase64(input, out);
    }

    bool base64EncodeInputBuffer(std::string& out, const unsigned char* buffer, int length) override
    {
        if (enter("base64EncodeInputBuffer", std::to_string(length) + " bytes"))
            return false;
        return onBase64EncodeInputBuffer ? onBase64EncodeInputBuffer(out, buffer, length)
                                         : m_real.base64EncodeInputBuffer(out, buffer, length);
    }

    bool decodeBase64(std::string input, std::string& out) override
    {
        if (enter("decodeBase64", input))
            return out.clear(), false;
        return onDecodeBase64 ? onDecodeBase64(input, out) : m_real.decodeBase64(input, out);
    }

private:
    static bool fail(InputTypes type, std::string& sha1Hex, std::string& sha256Hex);
    static bool
    give(const Checksums& answer, InputTypes type, std::string& md5Hex, std::string& sha1Hex, std::string& sha256Hex);

    QelSSLUtils m_real;
};

inline bool FakeQelSSL::getChecksumValues(
    std::string input, InputTypes type, std::string& md5Hex, std::string& sha1Hex, std::string& sha256Hex)
{
    if (enter("getChecksumValues", joined({input, std::to_string(type)})))
        return fail(type, sha1Hex, sha256Hex);
    const auto answer = checksums.find(input);
    if (answer != checksums.end())
        return give(answer->second, type, md5Hex, sha1Hex, sha256Hex);
    return onGetChecksumValues ? onGetChecksumValues(input, type, md5Hex, sha1Hex, sha256Hex)
                               : m_real.getChecksumValues(input, type, md5Hex, sha1Hex, sha256Hex);
}

inline bool FakeQelSSL::fail(InputTypes type, std::string& sha1Hex, std::string& sha256Hex)
{
    if (type == INPUT_DATA)
    {
        sha1Hex.clear();
        sha256Hex.clear();
    }
    return false;
}

inline bool FakeQelSSL::give(
    const Checksums& answer, InputTypes type, std::string& md5Hex, std::string& sha1Hex, std::string& sha256Hex)
{
    if (type != INPUT_FILE_PATH && type != INPUT_DATA)
        return false;
    const bool isFile = type == INPUT_FILE_PATH;
    md5Hex = answer.md5;
    sha1Hex = isFile ? answer.sha1 : std::string();
    sha256Hex = isFile ? answer.sha256 : std::string();
    return true;
}

} // namespace TAV::test
