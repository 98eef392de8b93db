#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace TAV::test
{

/// Base64 in its plainest form: bit by bit, as RFC 4648 describes it.
inline std::string referenceBase64(const std::string& bytes)
{
    static const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bits;
    for (const char byte : bytes)
    {
        for (int bit = 7; bit >= 0; --bit)
            bits += ((static_cast<unsigned char>(byte) >> bit) & 1) != 0 ? '1' : '0';
    }
    while (bits.size() % 6 != 0)
        bits += '0';
    std::string text;
    for (std::size_t at = 0; at < bits.size(); at += 6)
        text += kAlphabet[std::stoul(bits.substr(at, 6), nullptr, 2)];
    while (text.size() % 4 != 0)
        text += '=';
    return text;
}

/// The bytes that hex text stands for.
inline std::string fromHex(const std::string& hex)
{
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2)
        bytes += static_cast<char>(std::stoul(hex.substr(at, 2), nullptr, 16));
    return bytes;
}

/// The same bytes in every run; all values occur, zero bytes too.
inline std::string randomBytes(std::size_t size, std::uint32_t seed = 1)
{
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(generator() & 0xffU);
    return bytes;
}

} // namespace TAV::test
