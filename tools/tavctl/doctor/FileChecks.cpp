// Hashing, file types and archives: what works on files.
#include <array>
#include <regex>

#include "common/Text.h"
#include "tavctl/ArchiveTool.h"
#include "tavctl/doctor/Checks.h"

namespace tavctl::doctor
{
namespace
{

constexpr std::array<const char*, 5> kElsewhere{
    "/usr/lib/p7zip/7za", "/usr/lib/7zip/7za", "/usr/bin/7za", "/usr/bin/7zz", "/usr/bin/7zr"};

// The beginning of an image of one pixel.
const std::string kPngHeader("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\x8\x6\0\0\0\x1f\x15\xc4\x89", 33);

/// The version in what 7-Zip says of itself, as "16.02"; empty if it is none.
std::string versionIn(const std::string& output)
{
    static const std::regex expression(R"(\b7-Zip(?: \([A-Za-z]+\))?(?: \[[0-9]+\])? ([0-9]+\.[0-9]+))");
    std::smatch match;
    return std::regex_search(output, match, expression) ? match[1].str() : "";
}

/// Whether it knows -sdel, which every archive is made with.
bool canMoveFiles(const std::string& version)
{
    constexpr double kFirstWithSdel = 9.30;
    return std::stod(version) >= kFirstWithSdel;
}

std::vector<std::string> howToInstall(Host& host)
{
    const std::string directory = std::string(kArchiveToolPath).substr(0, std::string(kArchiveToolPath).rfind('/'));
    for (const char* place : kElsewhere)
    {
        if (host.exists(place))
            return {"mkdir -p " + directory + " && ln -sf " + place + " " + kArchiveToolPath};
    }
    return {"install 7-Zip (Debian: p7zip-full), and put its program, or a link to it, at that path"};
}

} // namespace

std::optional<Finding> checkHashing(Host& host, const Questions& /*questions*/)
{
    const std::string error = host.hashingError();
    if (error.empty())
        return Finding{State::Ok, "MD5, SHA-1, SHA-256 and HMAC-SHA1 give the known answers", {}};
    return Finding{
        State::Problem,
        error + " does not give the known answer",
        {"look at OpenSSL's configuration (OPENSSL_CONF, /etc/ssl/openssl.cnf): its default provider must be on"}};
}

std::optional<Finding> checkFileTypes(Host& host, const Questions& /*questions*/)
{
    const MimeAnswer answer = host.mimeTypeOf(kPngHeader);
    const std::string database = host.environment("MAGIC").value_or("");
    const std::string source = database.empty() ? "" : " (database " + programs::printable(database) + ", from MAGIC)";
    const std::vector<std::string> advice{database.empty()
                                              ? "install libmagic's database (Debian: libmagic-mgc)"
                                              : "unset the environment variable MAGIC, or mend what it names"};
    if (!answer.error.empty())
        return Finding{State::Problem, programs::printable(answer.error) + source, advice};
    if (answer.type != "image/png")
        return Finding{
            State::Problem, "takes the header of a PNG image for " + programs::printable(answer.type) + source, advice};
    return Finding{State::Ok, "recognises the header of a PNG image" + source, {}};
}

std::optional<Finding> checkArchiver(Host& host, const Questions& /*questions*/)
{
    const std::string obstacle = host.obstacleToRun(kArchiveToolPath);
    if (!obstacle.empty())
        return Finding{State::Problem, std::string(kArchiveToolPath) + ": " + obstacle, howToInstall(host)};
    const CommandOutput output = host.run({kArchiveToolPath});
    const std::string version = versionIn(output.text);
    if (!output.isSuccess)
        return Finding{State::Problem, std::string(kArchiveToolPath) + " does not run", howToInstall(host)};
    if (version.empty())
        return Finding{State::Problem, std::string(kArchiveToolPath) + " is not 7-Zip", howToInstall(host)};
    if (!canMoveFiles(version))
        return Finding{State::Problem,
                       "7-Zip " + version + " does not know -sdel, which every archive is made with",
                       {"install 9.30 or later"}};
    return Finding{State::Ok, "7-Zip " + version + " at " + kArchiveToolPath, {}};
}

} // namespace tavctl::doctor
