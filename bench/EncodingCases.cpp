#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "Cases.h"
#include "Pair.h"
#include "Resident.h"
#include "tav/QelSSLUtils.h"

namespace TAV::bench
{
namespace
{

const unsigned char* unsignedBytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string someBytes()
{
    std::string bytes(kMegabyte, '\0');
    unsigned int state = 1;
    for (char& byte : bytes)
    {
        state = state * 1103515245 + 12345;
        byte = static_cast<char>(state >> 16);
    }
    return bytes;
}

std::string encoded(const std::string& bytes)
{
    std::string text;
    require(QelSSLUtils().encodeBase64(bytes, text), "encodeBase64");
    return text;
}

struct Texts
{
    const std::string bytes = someBytes();
    const std::string text = encoded(bytes);
    std::string out;
    /// Room for every result, for the peers.
    std::vector<unsigned char> room = std::vector<unsigned char>(2 * kMegabyte + 1);
};

void encodeByIterators(Texts& texts)
{
    require(QelSSLUtils().encodeBase64(texts.bytes, texts.out), "encodeBase64");
}

void encodeByChain(Texts& texts)
{
    require(QelSSLUtils().base64EncodeInputBuffer(texts.out, unsignedBytes(texts.bytes), static_cast<int>(kMegabyte)),
            "base64EncodeInputBuffer");
}

void decode(Texts& texts)
{
    require(QelSSLUtils().decodeBase64(texts.text, texts.out), "decodeBase64");
}

void encodeHex(Texts& texts)
{
    QelSSLUtils().hexEncodeBytesIntoString(texts.bytes.data(),
                                           kMegabyte,
                                           reinterpret_cast<char*>(texts.room.data()),
                                           static_cast<unsigned int>(texts.room.size()));
    benchmark::ClobberMemory();
}

/// libcrypto's own loops, into a buffer that is there already.
void evpEncode(Texts& texts)
{
    require(EVP_EncodeBlock(texts.room.data(), unsignedBytes(texts.bytes), static_cast<int>(kMegabyte)) > 0,
            "EVP_EncodeBlock");
}

void evpDecode(Texts& texts)
{
    require(EVP_DecodeBlock(texts.room.data(), unsignedBytes(texts.text), static_cast<int>(texts.text.size())) > 0,
            "EVP_DecodeBlock");
}

void hexByTable(Texts& texts)
{
    constexpr const char* kDigits = "0123456789abcdef";
    auto* digit = texts.room.data();
    for (const char byte : texts.bytes)
    {
        const auto value = static_cast<unsigned char>(byte);
        *digit++ = static_cast<unsigned char>(kDigits[value >> 4]);
        *digit++ = static_cast<unsigned char>(kDigits[value & 0x0f]);
    }
    *digit = '\0';
    benchmark::ClobberMemory();
}

} // namespace

void addEncodingCases()
{
    struct Case
    {
        const char* what;
        const char* peer;
        double target;
        void (*ours)(Texts&);
        void (*theirs)(Texts&);
        int callsPerRound;
    };
    // Each call of the chain keeps its block of memory for good, so it is not called more often than it must be.
    constexpr Case kCases[] = {
        {"base64, 1 MB, iterators", "EVP_EncodeBlock", 10, encodeByIterators, evpEncode, 0},
        {"base64, 1 MB, BIO chain", "EVP_EncodeBlock", 3.2, encodeByChain, evpEncode, 1},
        {"decode base64, 1 MB", "EVP_DecodeBlock", 1.5, decode, evpDecode, 0},
        {"hex, 1 MB", "a loop with a table", kAsFast, encodeHex, hexByTable, 0},
    };
    const WhileMeasured<Texts> texts;
    for (const Case& one : kCases)
    {
        Pair pair{one.what, one.peer, one.target};
        pair.ours = [texts, work = one.ours] { work(*texts); };
        pair.theirs = [texts, work = one.theirs] { work(*texts); };
        pair.surroundings = texts.madeBy(std::make_unique<Texts>);
        pair.callsPerRound = one.callsPerRound;
        compare(pair);
    }
}

} // namespace TAV::bench
