#pragma once

#include <string>

namespace programs
{

/// Whether the bytes are well-formed UTF-8, which is what JSON text must be.
bool isUtf8(const std::string& bytes);

/// A file name for people: control characters and bytes that are not UTF-8 become "\x1b" and the like, so that no name
/// can steer a terminal or break a table.
std::string printable(const std::string& bytes);

/// How many columns a terminal gives the text, taking each code point for one.
std::size_t columnsOf(const std::string& text);

} // namespace programs
