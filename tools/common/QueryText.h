#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tav/ICurlWrapper.h"

namespace programs
{

/// Why `server` is no HOST, HOST:PORT or [IPV6]:PORT, or an empty text if it is. The client puts it into an address as
/// it stands, where a user name, a path or nothing at all would send the query to somebody else.
std::string obstacleToServer(const std::string& server);

/// Why a text is no address of a proxy: HOST, HOST:PORT, or one of these behind a scheme, as in "http://HOST:PORT/".
/// Empty if it is one.
std::string obstacleToProxy(const std::string& proxy);

/// Why `method` is no name of an HTTP method that the client can use, or an empty text if it is.
std::string obstacleToMethod(const std::string& method);

/// Why `line` is no header line "Name: value", or an empty text if it is.
std::string obstacleToHeaderLine(const std::string& line);

constexpr std::size_t kMostHeaderLines = 5;

/// Puts up to five header lines where the client sends them in this order: its pairs of keys and values are crossed.
/// @param lines  each one with a colon
TAV::TAVHTTPHeader headerOf(const std::vector<std::string>& lines);

} // namespace programs
