#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "common/KrbTicket.h"
#include "common/OnlyGivenCa.h"
#include "common/Password.h"
#include "common/QueryText.h"
#include "common/StandardDescriptors.h"
#include "tav/CurlWrapper.h"
#include "tavctl/Commands.h"
#include "tavctl/Input.h"
#include "tavctl/QueryReport.h"

namespace tavctl
{
namespace
{

constexpr const char* kQueryExamples =
    "Sends a request to https://SERVER/1 as the library's client does it, and shows what came back. The body stands\n"
    "behind the figures; --output writes it into a file, byte by byte, and --output - prints nothing but the body.\n"
    "With --repeat all requests go over one session, which keeps its connection: the later ones are faster, and no\n"
    "time goes into TLS. Then the body is that of the last request.\n"
    "\n"
    "Only the HTTP status decides: 200 is success, even if the body was cut off behind it.\n"
    "Exit codes beside the usual ones: 3 if a request was not answered with 200; the client's log lines stand on\n"
    "standard error then.\n"
    "\n"
    "Examples:\n"
    "  tavctl query --server localhost:8443 --ca ca.pem --data '{\"sha256\": \"...\"}'\n"
    "  tavctl query --server localhost:8443 --ca ca.pem --header 'X-Client: me' --data-file request.json --repeat 100\n"
    "  tavctl query --server www.example.org --ca ca.pem --proxy proxy:3128 --proxy-user me --proxy-password-file "
    "pw.txt\n"
    "  tavctl query --server www.example.org --ca ca.pem --proxy proxy:3128 --krb-principal me@EXAMPLE.COM "
    "--krb-password-file pw.txt";

constexpr unsigned long kSession = 1;
constexpr long kDefaultTimeout = 30;
constexpr int kLongestTimeout = 24 * 60 * 60;
constexpr int kMostRepetitions = 100'000;

struct QueryOptions
{
    std::string server;
    std::string caFile;
    std::string method = "POST";
    std::vector<std::string> headerLines;
    std::string data;
    std::string dataFile;
    std::string proxy;
    std::string proxyUser;
    programs::SecretSource proxyPassword;
    bool useTunnel = false;
    programs::KrbAccount account; ///< whose ticket the proxy gets
    long timeout = kDefaultTimeout;
    unsigned int repetitions = 1;
    bool ignoreHost = false;
    bool ignorePeer = false;
    std::string output;
};

void refuse(const std::string& what, const std::string& obstacle)
{
    if (!obstacle.empty())
        throw UsageError("query: " + what + ": " + obstacle);
}

void check(const QueryOptions& options, const Context& context)
{
    refuse("--server \"" + options.server + "\"", programs::obstacleToServer(options.server));
    refuse("--method \"" + options.method + "\"", programs::obstacleToMethod(options.method));
    for (const std::string& line : options.headerLines)
        refuse("--header \"" + line + "\"", programs::obstacleToHeaderLine(line));
    if (options.headerLines.size() > programs::kMostHeaderLines)
        throw UsageError("query: --header: the client sends no more than five lines");
    if (options.caFile.empty() && !options.ignorePeer)
        throw UsageError("query: give --ca FILE, or --no-verify-peer to trust any server");
    if (options.proxyUser.find(':') != std::string::npos)
        throw UsageError("query: --proxy-user: a colon would begin the password");
    if (!options.proxyUser.empty() && !options.proxyPassword.isGiven())
        throw UsageError("query: --proxy-user: tell where its password comes from");
    if (options.account.isGiven() && !options.account.password.isGiven())
        throw UsageError("query: --krb-principal: tell where its password comes from");
    if (options.output == "-" && context.console.isJson())
        throw UsageError("query: --output - leaves no place for --json");
    const std::string obstacle = options.caFile.empty() ? "" : obstacleToRead(options.caFile);
    if (!obstacle.empty())
        throw Failure(about(options.caFile, obstacle));
}

/// libcurl decodes the credentials of a proxy like a URL.
std::string encoded(const std::string& text)
{
    std::string result;
    for (const char c : text)
        result += c == '%' ? "%25" : std::string(1, c);
    return result;
}

std::string credentialsOf(const QueryOptions& options)
{
    if (options.proxyUser.empty())
        return {};
    return encoded(options.proxyUser) + ":" + encoded(programs::readPassword(options.proxyPassword));
}

TAV::TAVQueryConfig configOf(const QueryOptions& options)
{
    TAV::TAVQueryConfig config;
    config.requestType = options.method;
    config.caCertPath = options.caFile;
    config.sslVerifyHost = options.ignoreHost ? 0 : config.sslVerifyHost;
    config.sslVerifyPeer = options.ignorePeer ? 0 : config.sslVerifyPeer;
    config.timeout = options.timeout;
    config.serverHost = options.server;
    config.proxyAddress = options.proxy;
    config.proxyCredentials = credentialsOf(options);
    config.proxyTunnel = options.useTunnel ? 1 : 0;
    return config;
}

/// A ticket for the proxy, if it is to have one.
std::unique_ptr<programs::KrbTicket> ticketFor(const QueryOptions& options, Context& context)
{
    if (!options.account.isGiven())
        return nullptr;
    auto ticket = std::make_unique<programs::KrbTicket>(context.logger, options.account);
    const programs::KrbRenewal renewal = ticket->renew();
    if (!renewal.isRenewed)
        throw Failure("query: " + renewal.obstacle(ticket->principal()) + ". " + renewal.failure.advice);
    return ticket;
}

QueryReport send(const QueryOptions& options, const std::string& body, Context& context)
{
    const TAV::TAVQueryConfig config = configOf(options);
    programs::ignoreBrokenPipes();
    programs::QueryLog log(context.logger);
    TAV::CurlWrapper client(log, std::make_shared<programs::OnlyGivenCa>());
    client.configureOptions(config, kSession);
    client.initSession(kSession);
    TAV::TAVHTTPHeader header = programs::headerOf(options.headerLines);
    QueryReport report;
    report.server = options.server;
    for (unsigned int i = 0; i < options.repetitions; ++i)
    {
        TAV::LumoStats stats;
        report.body.clear();
        const bool isAnswered = client.sendNetworkRequest(header, body, report.body, kSession, stats);
        std::vector<programs::QueryLine> lines = log.takeLines();
        if (isAnswered)
            report.answered.push_back(stats);
        else
            report.addFailure(std::move(lines));
    }
    client.deInitSession(kSession);
    return report;
}

void writeBody(const std::string& path, const std::string& body)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wbe"),
                                                               [](std::FILE* f) { return std::fclose(f); });
    if (file == nullptr || std::fwrite(body.data(), 1, body.size(), file.get()) != body.size() ||
        std::fflush(file.get()) != 0)
        throw Failure(about(path, std::strerror(errno)));
}

int queryAndTell(const QueryOptions& options, Context& context)
{
    check(options, context);
    const std::string body = options.dataFile.empty() ? options.data : readInput(options.dataFile);
    const std::unique_ptr<programs::KrbTicket> ticket = ticketFor(options, context);
    const QueryReport report = send(options, body, context);
    if (options.output == "-")
        context.console.write(report.body);
    else if (!options.output.empty())
        writeBody(options.output, report.body);
    if (options.output != "-")
        context.console.show(textOf(report, options.output), jsonOf(report, options.output));
    if (report.isSuccess())
        return kSuccess;
    // The lines stand there already if all lines are asked for.
    for (const programs::QueryLine& line : report.lines)
    {
        if (!context.isVerbose)
            context.console.error("query: " + line.message);
    }
    return kNotAnswered;
}

void addBody(CLI::App& command, QueryOptions& options)
{
    CLI::Option_group* body = command.add_option_group("Body", "What is sent; nothing without these");
    body->add_option("--data", options.data, "This text");
    body->add_option("--data-file", options.dataFile, "The bytes of a file; of standard input if it is -");
    body->require_option(0, 1);
}

void addKerberos(CLI::App& command, programs::KrbAccount& account, CLI::Option* proxy)
{
    CLI::Option* principal =
        command
            .add_option("--krb-principal", account.principal, "The account, USER@REALM, whose ticket the proxy gets")
            ->check([](const std::string& name) { return std::string(name.empty() ? "the name is missing" : ""); })
            ->needs(proxy);
    CLI::Option_group* password =
        command.add_option_group("Kerberos password", "Where the account's password comes from");
    password->add_option("--krb-password-file", account.password.file, "A file that holds it")->needs(principal);
    password->add_flag("--krb-password-prompt", account.password.prompt, "Ask on the terminal")->needs(principal);
    password->require_option(0, 1);
    command
        .add_option("--krb-keytab", account.keytab, "Where its keytab is while this runs; a private place if missing")
        ->needs(principal);
    command
        .add_option(
            "--krb-cache", account.cache, "Where its tickets are while this runs; the same. A path without a colon")
        ->check(programs::obstacleToCache)
        ->needs(principal);
}

void addProxy(CLI::App& command, QueryOptions& options)
{
    CLI::Option* proxy = command.add_option("--proxy", options.proxy, "HOST:PORT or URL of a proxy; none if missing")
                             ->check(programs::obstacleToProxy);
    CLI::Option* user = command.add_option("--proxy-user", options.proxyUser, "Name for the proxy")->needs(proxy);
    command.add_flag("--tunnel", options.useTunnel, "Ask the proxy for a tunnel (https gets one anyway)")->needs(proxy);
    CLI::Option_group* password = command.add_option_group("Password", "Where the password for the proxy comes from");
    password->add_option("--proxy-password-file", options.proxyPassword.file, "A file that holds it")->needs(user);
    password->add_option("--proxy-password-env", options.proxyPassword.environment, "An environment variable")
        ->needs(user);
    password->add_flag("--proxy-password-prompt", options.proxyPassword.prompt, "Ask on the terminal")->needs(user);
    password->require_option(0, 1);
    addKerberos(command, options.account, proxy);
}

} // namespace

void registerQuery(CLI::App& app, Action& chosen)
{
    auto options = std::make_shared<QueryOptions>();
    CLI::App* command = app.add_subcommand("query", "Send an HTTPS request, and show the answer and its timings");
    command->add_option("--server", options->server, "HOST or HOST:PORT; the request goes to https://SERVER/1")
        ->required();
    command->add_option("--ca", options->caFile, "The certificates (PEM) of whom to trust, and of nobody else");
    command->add_option("--method", options->method, "The HTTP method")->capture_default_str();
    command->add_option("--header", options->headerLines, "A line \"Name: value\", sent in this order; up to five")
        ->allow_extra_args(false);
    addBody(*command, *options);
    addProxy(*command, *options);
    command->add_option("--timeout", options->timeout, "Seconds for a whole request; 0 for any time")
        ->check(CLI::Range(0, kLongestTimeout))
        ->capture_default_str();
    command->add_option("--repeat", options->repetitions, "How many requests to send, one after the other")
        ->check(CLI::Range(1, kMostRepetitions))
        ->capture_default_str();
    command->add_flag("--no-verify-host", options->ignoreHost, "Take a certificate that was made for another host");
    command->add_flag("--no-verify-peer", options->ignorePeer, "Take a certificate from anybody");
    command->add_option("--output", options->output, "Write the body into this file; - for nothing but the body");
    command->footer(kQueryExamples);
    command->callback([options, &chosen]
                      { chosen = [options](Context& context) { return queryAndTell(*options, context); }; });
}

} // namespace tavctl
