#include "common/Text.h"

#include <algorithm>

#include "tav/logging/OneLine.h"

namespace programs
{

bool isUtf8(const std::string& bytes)
{
    std::size_t at = 0;
    while (at < bytes.size())
    {
        const std::size_t length = TAV::logging::utf8Length(bytes, at);
        if (length == 0)
            return false;
        at += length;
    }
    return true;
}

std::string printable(const std::string& bytes)
{
    return TAV::logging::oneLine(bytes);
}

std::size_t columnsOf(const std::string& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

} // namespace programs
