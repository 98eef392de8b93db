#include "support/MachineCas.h"

#include <curl/curl.h>
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "support/Tools.h"

namespace TAV::test
{
namespace
{

/// Where libcurl looks; empty if nowhere.
std::string machineDirectory()
{
    const char* path = curl_version_info(CURLVERSION_NOW)->capath;
    return path == nullptr ? "" : path;
}

void require(int result, const char* what)
{
    if (result != 0)
        throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

std::string obstacleToMachineCas()
{
    if (!std::filesystem::is_directory(machineDirectory()))
        return "libcurl has no directory of authorities on this machine";
    if (!hasTool("openssl"))
        return "openssl is missing";
    if (!hasTool("unshare") || runTool({"unshare", "--mount", "true"}).exitCode != 0)
        return "no namespace of mounts can be made (unshare --mount)";
    return "";
}

void giveMachineCas(const std::string& caFile, const TemporaryDirectory& place)
{
    // OpenSSL finds a certificate by the name of its file.
    std::string hash = outputOf({"openssl", "x509", "-noout", "-subject_hash", "-in", caFile});
    hash.pop_back();
    std::filesystem::create_directory(place.file("machine"));
    place.write("machine/" + hash + ".0", readFile(caFile));
    require(::unshare(CLONE_NEWNS), "unshare");
    require(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount private");
    require(::mount(place.file("machine").c_str(), machineDirectory().c_str(), nullptr, MS_BIND, nullptr), "mount");
}

std::string makeStrangeCa(const TemporaryDirectory& place)
{
    const std::string file = place.file("strange.pem");
    outputOf({"openssl",
              "req",
              "-x509",
              "-newkey",
              "ec",
              "-pkeyopt",
              "ec_paramgen_curve:P-256",
              "-nodes",
              "-subj",
              "/CN=Strange authority",
              "-keyout",
              "/dev/null",
              "-out",
              file});
    return file;
}

} // namespace TAV::test
