#include "support/Kdc.h"

#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "support/SacrificialProcess.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

constexpr const char* kReady = "commencing operation";
constexpr const char* kPrograms[] = {"krb5kdc", "kdb5_util", "kadmin.local"};

std::string clientText(const std::string& realm, std::uint16_t port)
{
    std::ostringstream text;
    text << "[libdefaults]\n"
         << "  default_realm = " << realm << "\n"
         << R"(  dns_lookup_kdc = false
  dns_lookup_realm = false
  dns_canonicalize_hostname = false
  rdns = false
[realms]
)"
         << "  " << realm << " = {\n    kdc = 127.0.0.1:" << port << "\n  }\n";
    return text.str();
}

std::string listenLine(const char* name, bool listens, std::uint16_t port)
{
    return std::string("  ") + name + " = " + (listens ? "127.0.0.1:" + std::to_string(port) : "\"\"") + "\n";
}

std::string serverText(const KdcSettings& settings, std::uint16_t port, const std::string& directory)
{
    std::ostringstream text;
    text << "[kdcdefaults]\n"
         << listenLine("kdc_listen", settings.udp, port) << listenLine("kdc_tcp_listen", settings.tcp, port)
         << "[realms]\n  " << settings.realm << " = {\n"
         << "    database_name = " << directory << "/principal\n"
         << "    key_stash_file = " << directory << "/stash\n"
         << "    acl_file = " << directory << "/acl\n  }\n"
         << "[logging]\n  kdc = FILE:" << directory << "/kdc.log\n";
    return text.str();
}

constexpr const char* kClockOffset = "clock_offset.so";

std::string readIfThere(const std::string& path)
{
    return std::filesystem::exists(path) ? readFile(path) : "";
}

} // namespace

std::string Kdc::missing()
{
    for (const char* name : kPrograms)
    {
        if (findServerProgram(name).empty())
            return std::string(name) + " is not installed";
    }
    return "";
}

Kdc::Kdc(const KdcSettings& settings) : m_settings(settings)
{
    // A proxy's helper, which is somebody else's process, reads the client's configuration, and loads what makes its
    // clock wrong: the directory of the build may be closed to it.
    std::filesystem::permissions(m_directory.path(), std::filesystem::perms(0755));
    std::filesystem::copy_file(TAV_CLOCK_OFFSET, m_directory.file(kClockOffset));
    m_directory.write("krb5.conf", clientText(settings.realm, port()));
    m_directory.write("kdc.conf", serverText(settings, port(), m_directory.path()));
    run({findServerProgram("kdb5_util"), "create", "-s", "-r", settings.realm, "-P", "master"});
    start();
}

std::vector<std::string> Kdc::clockAheadBy(std::chrono::seconds offset) const
{
    if (offset.count() == 0)
        return {};
    return {"LD_PRELOAD=" + m_directory.file(kClockOffset), "TAV_TEST_CLOCK_OFFSET=" + std::to_string(offset.count())};
}

ServerProgram Kdc::program() const
{
    ServerProgram program;
    program.argv = {findServerProgram("krb5kdc"), "-n", "-r", m_settings.realm};
    program.outputFile = m_directory.file("output");
    program.environment = {
        "KRB5_CONFIG=" + clientConfig(), "KRB5_KDC_PROFILE=" + m_directory.file("kdc.conf"), "KRB5CCNAME=MEMORY:"};
    for (const std::string& variable : clockAheadBy(m_settings.clockOffset))
        program.environment.push_back(variable);
    return program;
}

void Kdc::run(const std::vector<std::string>& tool)
{
    std::vector<std::string> argv = program().environment;
    argv.insert(argv.begin(), "env");
    argv.insert(argv.end(), tool.begin(), tool.end());
    outputOf(argv);
}

void Kdc::start()
{
    m_port.refuse();
    std::filesystem::remove(m_directory.file("kdc.log"));
    m_process = std::make_unique<ServerProcess>(program());
    m_process->waitUntil([this] { return log().find(kReady) != std::string::npos; });
}

void Kdc::stop()
{
    m_process.reset();
    m_port.refuse();
}

void Kdc::fallSilent()
{
    stop();
    m_port.beSilent(m_settings.udp, m_settings.tcp);
}

void Kdc::administer(const std::vector<std::string>& command)
{
    std::vector<std::string> tool{findServerProgram("kadmin.local"), "-r", m_settings.realm};
    tool.insert(tool.end(), command.begin(), command.end());
    run(tool);
}

void Kdc::addUser(const std::string& name, const std::string& password, const std::vector<std::string>& options)
{
    std::vector<std::string> command{
        "addprinc", "-clearpolicy", "-e", "aes256-cts-hmac-sha1-96:normal,arcfour-hmac:normal", "-pw", password};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(name);
    administer(command);
}

std::string Kdc::addService(const std::string& name)
{
    const std::string keytab = m_directory.file("service.keytab");
    administer({"addprinc", "-clearpolicy", "-randkey", name});
    administer({"ktadd", "-k", keytab, name});
    return readFile(keytab);
}

std::string Kdc::log() const
{
    return readIfThere(m_directory.file("kdc.log"));
}

std::size_t Kdc::issued(const std::string& user, const std::string& service) const
{
    std::istringstream lines(log());
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line);)
    {
        const bool isIssue = line.find(": ISSUE: ") != std::string::npos;
        if (isIssue && line.find(", " + user + " for " + service) != std::string::npos)
            ++count;
    }
    return count;
}

} // namespace TAV::test
