#include "tav/QelSSLUtils.h"

#include <string_view>

namespace TAV
{
namespace
{

constexpr std::string_view kDigits = "0123456789abcdef";

/// File-local so that the encoder's loop can inline it, which an exported member cannot be.
constexpr char digitOf(unsigned char nibble)
{
    // Values above 15 deliberately map past 'f'.
    return nibble < kDigits.size() ? kDigits[nibble] : static_cast<char>(nibble - 10 + 'a');
}

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
        *out++ = digitOf(byte[i] >> 4);
        *out++ = digitOf(byte[i] & 0x0f);
    }
    *out = '\0';
    return static_cast<int>(needed);
}

} // namespace TAV
