#pragma once

#include <string>

namespace tavctl
{

/// The whole content of a file, or of standard input if `path` is "-" or empty.
/// @throws Failure  if it cannot be read to its end
std::string readInput(const std::string& path);

/// Why `path` is no readable regular file, or an empty text if it is. Asks without opening anything that could block.
std::string obstacleToRead(const std::string& path);

/// "PATH: WHAT", for an error; an empty path in quotes.
std::string about(const std::string& path, const std::string& what);

/// "-" and the empty path by a name for people.
std::string inputName(const std::string& path);

} // namespace tavctl
