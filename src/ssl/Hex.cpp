#include "tav/QelSSLUtils.h"

namespace TAV
{

QelSSLUtils::~QelSSLUtils() = default;

char QelSSLUtils::hexDigitToChar(unsigned char nibble)
{
    // Values above 15 deliberately map past 'f'.
    return static_cast<char>(nibble <= 9 ? nibble + '0' : nibble - 10 + 'a');
}

int QelSSLUtils::hexEncodeBytesIntoString(const void* bytes, unsigned int length, char* out, unsigned int outSize)
{
    const unsigned int needed = length * 2 + 1;
    if (needed > outSize)
        return -1;
    const auto* byte = static_cast<const unsigned char*>(bytes);
    for (unsigned int i = 0; i < length; ++i)
    {
        *out++ = hexDigitToChar(byte[i] >> 4);
        *out++ = hexDigitToChar(byte[i] & 0x0f);
    }
    *out = '\0';
    return static_cast<int>(needed);
}

} // namespace TAV
