#include "common/QueryText.h"

#include <algorithm>
#include <cctype>
#include <tuple>
#include <utility>

namespace programs
{
namespace
{

constexpr unsigned long kHighestPort = 65535;
constexpr std::size_t kLongestPort = 5;

bool isAlphanumeric(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

bool isAll(const std::string& text, bool (*isGood)(char))
{
    return !text.empty() && std::all_of(text.begin(), text.end(), isGood);
}

/// What RFC 9110 allows in a method or in the name of a header.
bool isTokenCharacter(char c)
{
    return isAlphanumeric(c) || std::string("!#$%&'*+-.^_`|~").find(c) != std::string::npos;
}

bool isHostCharacter(char c)
{
    return isAlphanumeric(c) || c == '-' || c == '.' || c == '_';
}

bool isIpv6Character(char c)
{
    return std::isxdigit(static_cast<unsigned char>(c)) != 0 || c == ':' || c == '.';
}

bool isDigit(char c)
{
    return '0' <= c && c <= '9';
}

bool isPort(const std::string& text)
{
    if (!isAll(text, isDigit) || text.size() > kLongestPort)
        return false;
    const unsigned long port = std::stoul(text);
    return 0 < port && port <= kHighestPort;
}

/// Where the host ends: at its closing bracket, at the first colon, or with the text.
std::size_t endOfHost(const std::string& server)
{
    const std::size_t end = server.front() == '[' ? server.find(']') : server.find(':');
    if (end == std::string::npos)
        return server.size();
    return server[end] == ']' ? end + 1 : end;
}

bool isHost(const std::string& host)
{
    if (host.front() == '[')
        return host.back() == ']' && isAll(host.substr(1, host.size() - 2), isIpv6Character);
    return isAll(host, isHostCharacter) && isAlphanumeric(host.front());
}

/// @param form  what to say of an address that has another form
std::string obstacleTo(const std::string& address, const char* form)
{
    const std::size_t end = address.empty() ? 0 : endOfHost(address);
    if (end == 0)
        return "the host is missing";
    if (!isHost(address.substr(0, end)) || address.find_first_of("/@") != std::string::npos)
        return form;
    if (end < address.size() && (address[end] != ':' || !isPort(address.substr(end + 1))))
        return "the port is not a number from 1 to 65535";
    return "";
}

std::pair<std::string, std::string> splitLine(const std::string& line)
{
    std::size_t end = line.find(':') + 1;
    end = std::min(line.find_first_not_of(' ', end), line.size());
    return {line.substr(0, end), line.substr(end)};
}

} // namespace

std::string obstacleToServer(const std::string& server)
{
    return obstacleTo(server, "not HOST or HOST:PORT, without https:// and path");
}

std::string obstacleToProxy(const std::string& proxy)
{
    const std::size_t scheme = proxy.find("://");
    std::string address = scheme == std::string::npos ? proxy : proxy.substr(scheme + 3);
    if (!address.empty() && address.back() == '/')
        address.pop_back();
    return obstacleTo(address, "not HOST:PORT or http://HOST:PORT, without user and path");
}

std::string obstacleToMethod(const std::string& method)
{
    if (!isAll(method, isTokenCharacter))
        return "not the name of a method";
    // libcurl goes by the body that is sent, whatever the method is called, and expects one in return.
    if (method == "HEAD")
        return "the client would wait for a body that never comes";
    return "";
}

std::string obstacleToHeaderLine(const std::string& line)
{
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || !isAll(line.substr(0, colon), isTokenCharacter))
        return "not a header line, which is \"Name: value\"";
    const bool hasControl =
        std::any_of(line.begin(), line.end(), [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; });
    return hasControl ? "a control character would end the line" : "";
}

TAV::TAVHTTPHeader headerOf(const std::vector<std::string>& lines)
{
    TAV::TAVHTTPHeader header;
    // By the order in which the client sends its pairs.
    const std::pair<std::string*, std::string*> places[] = {
        {&header.key1, &header.value1},
        {&header.key2, &header.value3},
        {&header.key4, &header.value4},
        {&header.key3, &header.value2},
    };
    if (!lines.empty())
        header.firstHeader = lines.front();
    for (std::size_t i = 1; i < std::min(lines.size(), kMostHeaderLines); ++i)
        std::tie(*places[i - 1].first, *places[i - 1].second) = splitLine(lines[i]);
    return header;
}

} // namespace programs
