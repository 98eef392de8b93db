#include "support/SquidProxy.h"

#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "support/SacrificialProcess.h"

namespace TAV::test
{
namespace
{

/// squid refuses to work as root.
constexpr const char* kUser = "proxy";

std::string configuration(std::uint16_t port, const std::string& directory, const std::string& directives)
{
    std::ostringstream text;
    text << "http_port 127.0.0.1:" << port << "\n"
         << "coredump_dir " << directory << "\n" // its working directory
         << "cache_log " << directory << "/cache.log\n"
         << "logformat fields %Ss/%03>Hs %rm %ru %un\n"
         << "access_log stdio:" << directory << "/access.log fields\n"
         << R"(visible_hostname localhost
pid_filename none
cache deny all
cache_mem 0
netdb_filename none
pinger_enable off
max_filedescriptors 1024
)" << directives;
    return text.str();
}

void giveToUser(const std::string& path)
{
    if (::getuid() != 0)
        return;
    const passwd* entry = ::getpwnam(kUser);
    if (entry == nullptr || ::chown(path.c_str(), entry->pw_uid, entry->pw_gid) != 0)
        throw std::runtime_error("cannot give " + path + " to the user " + kUser);
}

/// It has it open by now and needs no names, which would be left behind when it is killed.
void removeSharedMemory(const std::string& name)
{
    for (const char* part : {"metadata", "queues", "readers"})
        std::filesystem::remove("/dev/shm/" + name + "-cf__" + part + ".shm");
}

std::vector<SquidRequest> parse(const std::string& log)
{
    std::vector<SquidRequest> requests;
    std::istringstream lines(log);
    SquidRequest request;
    while (lines >> request.result >> request.method >> request.target >> request.user)
    {
        // The look whether it answers is noted too.
        if (request.method != "-")
            requests.push_back(request);
    }
    return requests;
}

} // namespace

std::string SquidProxy::missing()
{
    if (findServerProgram("squid").empty())
        return "squid is not installed";
    return ::getuid() == 0 && ::getpwnam(kUser) == nullptr ? std::string("no user is called ") + kUser : "";
}

SquidProxy::SquidProxy(const SquidSettings& settings)
{
    giveToUser(m_directory.path());
    m_directory.write("squid.conf", configuration(port(), m_directory.path(), settings.directives));
    for (const SquidSettings::File& file : settings.files)
        giveToUser(m_directory.write(file.name, file.content));

    const std::string name = "tavutils" + std::to_string(::getpid()) + "on" + std::to_string(port());
    ServerProgram program;
    program.argv = {findServerProgram("squid"), "-N", "-n", name, "-f", m_directory.file("squid.conf")};
    program.outputFile = m_directory.file("output");
    program.user = kUser;
    program.environment = settings.environment;
    m_process = std::make_unique<ServerProcess>(program);
    m_process->waitUntilAnswers(port());
    removeSharedMemory(name);
}

void SquidProxy::stop()
{
    // Killed: by itself it would take four seconds.
    m_process.reset();
}

std::vector<SquidRequest> SquidProxy::requests(std::size_t expected) const
{
    std::vector<SquidRequest> noted;
    eventually([&] { return (noted = parse(readFile(m_directory.file("access.log")))).size() >= expected; });
    return noted;
}

} // namespace TAV::test
