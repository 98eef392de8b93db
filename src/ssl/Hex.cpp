#include "tav/QelSSLUtils.h"

#include <array>
#include <cstring>
#include <string_view>

namespace TAV
{
namespace
{

constexpr std::string_view kDigits = "0123456789abcdef";

constexpr char digitOf(unsigned char nibble)
{
    // Values above 15 deliberately map past 'f'.
    return nibble < kDigits.size() ? kDigits[nibble] : static_cast<char>(nibble - 10 + 'a');
}

using Pair = std::array<char, 2>;

/// The two digits of each byte: one look-up and one store take the place of two each.
constexpr std::array<Pair, 256> kPairs = []
{
    std::array<Pair, 256> pairs{};
    for (unsigned int byte = 0; byte < pairs.size(); ++byte)
        pairs[byte] = {digitOf(static_cast<unsigned char>(byte >> 4)), digitOf(byte & 0x0f)};
    return pairs;
}();

} // namespace

QelSSLUtils::~QelSSLUtils() = default;

char QelSSLUtils::hexDigitToChar(unsigned char nibble)
{
    return digitOf(nibble);
}

int QelSSLUtils::hexEncodeBytesIntoString(const void* bytes, unsigned int length, char* out, unsigned int outSize)
{
    const unsigned int needed = length * 2 + 1;
    if (needed > outSize)
        return -1;
    const auto* byte = static_cast<const unsigned char*>(bytes);
    for (unsigned int i = 0; i < length; ++i)
    {
        std::memcpy(out, kPairs[byte[i]].data(), sizeof(Pair));
        out += sizeof(Pair);
    }
    *out = '\0';
    return static_cast<int>(needed);
}

} // namespace TAV
