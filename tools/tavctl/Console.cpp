#include "tavctl/Console.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/Text.h"
#include "tav/QelSSLUtils.h"

namespace tavctl
{
namespace
{

std::string base64Of(const std::string& bytes)
{
    std::string text;
    TAV::QelSSLUtils().encodeBase64(bytes, text);
    return text;
}

} // namespace

void Console::show(const std::string& text, const nlohmann::json& json)
{
    constexpr int kIndent = 2;
    write(m_json ? json.dump(kIndent, ' ', false, nlohmann::json::error_handler_t::replace) + "\n" : text);
}

void Console::write(const std::string& bytes)
{
    // The outcome is asked for once, by flush().
    static_cast<void>(std::fwrite(bytes.data(), 1, bytes.size(), stdout));
}

void Console::error(const std::string& message)
{
    static_cast<void>(std::fputs(("tavctl: " + programs::printable(message) + "\n").c_str(), stderr));
}

bool Console::flush()
{
    const bool failedBefore = std::ferror(stdout) != 0;
    errno = 0;
    if (std::fflush(stdout) == 0 && !failedBefore)
        return true;
    error(std::string("cannot write the output") + (errno == 0 ? "" : std::string(": ") + std::strerror(errno)));
    return false;
}

void addBytes(nlohmann::json& object, const std::string& name, const std::string& bytes)
{
    if (programs::isUtf8(bytes))
        object[name] = bytes;
    else
        object[name + "_base64"] = base64Of(bytes);
}

void addBytes(nlohmann::json& object, const std::string& name, const std::vector<std::string>& list)
{
    if (std::all_of(list.begin(), list.end(), programs::isUtf8))
    {
        object[name] = list;
        return;
    }
    nlohmann::json& encoded = object[name + "_base64"];
    for (const std::string& bytes : list)
        encoded.push_back(base64Of(bytes));
}

nlohmann::json fileEntry(const std::string& path)
{
    nlohmann::json entry;
    addBytes(entry, "file", path);
    return entry;
}

} // namespace tavctl
