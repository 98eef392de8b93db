#include "support/NginxServer.h"

#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>

#include "support/SacrificialProcess.h"

namespace TAV::test
{
namespace
{

constexpr const char* kEchoModule = "/usr/lib/nginx/modules/ngx_http_echo_module.so";

/// One process only, so that none is left when it is killed.
constexpr const char* kMainPart = R"(daemon off;
master_process off;
pid nginx.pid;
user root;
error_log error.log notice;
events { worker_connections 512; }
http {
  log_format fields '$connection $connection_requests $ssl_session_reused $ssl_protocol $server_protocol $request_method $status';
  access_log access.log fields;
  client_body_temp_path body;
  proxy_temp_path proxy;
  fastcgi_temp_path fastcgi;
  uwsgi_temp_path uwsgi;
  scgi_temp_path scgi;
)";

/// The case is put into the path, which then decides.
constexpr const char* kCases = R"(    location / { rewrite ^ /case/$http_x_case last; }
    location /case/ { default_type text/plain; return 200 "fine"; }
)";

std::string siteBlock(const NginxSite& site, std::uint16_t port)
{
    std::ostringstream block;
    block << "  server {\n    listen 127.0.0.1:" << port;
    if (!site.certificate.empty())
        block << " ssl";
    block << " " << site.listenWords << ";\n";
    if (!site.certificate.empty())
        block << "    ssl_certificate " << site.certificate << ";\n    ssl_certificate_key " << site.key << ";\n";
    if (!site.certificate.empty() && site.directives.find("ssl_protocols") == std::string::npos)
        block << "    ssl_protocols TLSv1.2 TLSv1.3;\n";
    block << "    " << site.directives << "\n" << kCases;
    for (const NginxCase& entry : site.cases)
        block << "    location = /case/" << entry.name << " { default_type text/plain; " << entry.directives << " }\n";
    block << "  }\n";
    return block.str();
}

std::vector<NginxRequest> parse(const std::string& log)
{
    std::vector<NginxRequest> requests;
    std::istringstream lines(log);
    NginxRequest request;
    std::string resumed;
    while (lines >> request.connection >> request.ordinal >> resumed >> request.tlsVersion >> request.httpVersion >>
           request.method >> request.status)
    {
        request.resumedTls = resumed == "r";
        requests.push_back(request);
    }
    return requests;
}

} // namespace

std::string NginxServer::missing()
{
    if (findServerProgram("nginx").empty())
        return "nginx is not installed";
    return ::access(kEchoModule, R_OK) == 0 ? "" : std::string("nginx's echo module is not installed: ") + kEchoModule;
}

NginxServer::NginxServer(const std::vector<NginxSite>& sites)
{
    std::string config = std::string("load_module ") + kEchoModule + ";\n" + kMainPart;
    for (const NginxSite& site : sites)
    {
        m_ports.push_back(std::make_unique<FreePort>());
        config += siteBlock(site, m_ports.back()->number());
    }
    m_directory.write("nginx.conf", config + "}\n");
    start();
}

void NginxServer::stop()
{
    m_process.reset();
}

void NginxServer::start()
{
    ServerProgram program;
    program.argv = {
        findServerProgram("nginx"), "-p", m_directory.path(), "-e", "error.log", "-c", m_directory.file("nginx.conf")};
    program.outputFile = m_directory.file("output");
    m_process = std::make_unique<ServerProcess>(program);
    m_process->waitUntilAnswers(port());
}

std::vector<NginxRequest> NginxServer::requests(std::size_t expected) const
{
    // A request is noted a moment after its answer is complete.
    std::vector<NginxRequest> noted;
    eventually([&] { return (noted = parse(readFile(m_directory.file("access.log")))).size() >= expected; });
    return noted;
}

} // namespace TAV::test
