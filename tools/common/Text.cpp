#include "common/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace programs
{
namespace
{

unsigned char byteAt(const std::string& text, std::size_t at)
{
    return static_cast<unsigned char>(text[at]);
}

/// What RFC 3629 allows as the second byte behind a first one; the others are 0x80 to 0xbf.
struct Lead
{
    unsigned char first;
    unsigned char last;
    std::size_t length;
    unsigned char secondFrom;
    unsigned char secondTo;
};

constexpr std::array<Lead, 9> kLeads{{
    {0x00, 0x7f, 1, 0x00, 0x00},
    {0xc2, 0xdf, 2, 0x80, 0xbf},
    {0xe0, 0xe0, 3, 0xa0, 0xbf},
    {0xe1, 0xec, 3, 0x80, 0xbf},
    {0xed, 0xed, 3, 0x80, 0x9f},
    {0xee, 0xef, 3, 0x80, 0xbf},
    {0xf0, 0xf0, 4, 0x90, 0xbf},
    {0xf1, 0xf3, 4, 0x80, 0xbf},
    {0xf4, 0xf4, 4, 0x80, 0x8f},
}};

/// The length of the UTF-8 character at `at`, or 0 if there is none.
std::size_t characterLength(const std::string& text, std::size_t at)
{
    const unsigned char lead = byteAt(text, at);
    const auto* row =
        std::find_if(kLeads.begin(), kLeads.end(), [lead](const Lead& l) { return l.first <= lead && lead <= l.last; });
    if (row == kLeads.end() || at + row->length > text.size())
        return 0;
    for (std::size_t i = 1; i < row->length; ++i)
    {
        const unsigned char byte = byteAt(text, at + i);
        const unsigned char from = i == 1 ? row->secondFrom : 0x80;
        const unsigned char to = i == 1 ? row->secondTo : 0xbf;
        if (byte < from || byte > to)
            return 0;
    }
    return row->length;
}

/// C0, DEL and C1 controls.
bool isControl(const std::string& text, std::size_t at, std::size_t length)
{
    if (length == 1)
        return byteAt(text, at) < 0x20 || byteAt(text, at) == 0x7f;
    return length == 2 && byteAt(text, at) == 0xc2 && byteAt(text, at + 1) < 0xa0;
}

std::string escaped(unsigned char byte)
{
    std::array<char, 5> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned int>(byte)));
    return text.data();
}

} // namespace

bool isUtf8(const std::string& bytes)
{
    std::size_t at = 0;
    while (at < bytes.size())
    {
        const std::size_t length = characterLength(bytes, at);
        if (length == 0)
            return false;
        at += length;
    }
    return true;
}

std::string printable(const std::string& bytes)
{
    std::string text;
    std::size_t at = 0;
    while (at < bytes.size())
    {
        const std::size_t length = characterLength(bytes, at);
        const std::size_t step = std::max<std::size_t>(length, 1);
        if (length == 0 || isControl(bytes, at, length))
        {
            for (std::size_t i = 0; i < step; ++i)
                text += escaped(byteAt(bytes, at + i));
        }
        else
        {
            text.append(bytes, at, length);
        }
        at += step;
    }
    return text;
}

std::size_t columnsOf(const std::string& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

} // namespace programs
