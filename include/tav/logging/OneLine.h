#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

namespace TAV::logging
{

/// What RFC 3629 allows: a first byte, how many bytes its character has, and the range of the second one. The others
/// are 0x80 to 0xbf.
struct Utf8Lead
{
    unsigned char first;      ///< lowest first byte
    unsigned char last;       ///< highest first byte
    std::size_t length;       ///< bytes of the character
    unsigned char secondFrom; ///< lowest second byte
    unsigned char secondTo;   ///< highest second byte
};

/// Every kind of UTF-8 character.
inline constexpr std::array<Utf8Lead, 9> kUtf8Leads{{
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

/// @param text  any bytes
/// @param at    a position in it
/// @return the length of the UTF-8 character that begins there, or 0 if the bytes there are none
inline std::size_t utf8Length(const std::string& text, std::size_t at)
{
    const auto byteAt = [&text](std::size_t position) { return static_cast<unsigned char>(text[position]); };
    const auto* lead =
        std::find_if(kUtf8Leads.begin(),
                     kUtf8Leads.end(),
                     [byte = byteAt(at)](const Utf8Lead& l) { return l.first <= byte && byte <= l.last; });
    if (lead == kUtf8Leads.end() || at + lead->length > text.size())
        return 0;
    for (std::size_t i = 1; i < lead->length; ++i)
    {
        const unsigned char from = i == 1 ? lead->secondFrom : 0x80;
        const unsigned char to = i == 1 ? lead->secondTo : 0xbf;
        if (byteAt(at + i) < from || byteAt(at + i) > to)
            return 0;
    }
    return lead->length;
}

/// Whether the UTF-8 character at `at`, of this length, is a C0 control, DEL or a C1 control.
/// @param text    the text
/// @param at      where the character begins
/// @param length  its bytes
/// @return whether it is one
inline bool isControl(const std::string& text, std::size_t at, std::size_t length)
{
    const auto byte = static_cast<unsigned char>(text[at]);
    if (length == 1)
        return byte < 0x20 || byte == 0x7f;
    return length == 2 && byte == 0xc2 && static_cast<unsigned char>(text[at + 1]) < 0xa0;
}

/// Makes one harmless line of a message: control characters, newlines among them, and bytes that are not UTF-8 become
/// "\x0a" and the like. A command's standard error or a file name can then neither forge a line of the log nor steer
/// the terminal that shows it, and the systemd journal shows the text instead of "blob data".
///
/// Not reversible: a text that holds "\x0a" as four characters stays as it is.
/// @param text  any bytes, of any length
/// @return the line, without a newline at its end
inline std::string oneLine(const std::string& text)
{
    constexpr const char* kDigits = "0123456789abcdef";
    std::string line;
    line.reserve(text.size());
    for (std::size_t at = 0; at < text.size();)
    {
        const std::size_t length = utf8Length(text, at);
        const std::size_t step = std::max<std::size_t>(length, 1);
        if (length != 0 && !isControl(text, at, length))
        {
            line.append(text, at, step);
            at += step;
            continue;
        }
        for (const std::size_t end = at + step; at < end; ++at)
        {
            const auto byte = static_cast<unsigned char>(text[at]);
            line.append("\\x").append(1, kDigits[byte >> 4U]).append(1, kDigits[byte & 0xfU]);
        }
    }
    return line;
}

} // namespace TAV::logging
