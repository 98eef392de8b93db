#include "reputation_server/Application.h"

#include <CLI/CLI.hpp>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <thread>

#include "common/StandardDescriptors.h"
#include "endpoint_scan/Types.h"
#include "endpoint_scan/WholeFiles.h"
#include "reputation_server/Answers.h"
#include "reputation_server/Certificates.h"
#include "reputation_server/Server.h"
#include "reputation_server/WorkDirectory.h"

namespace reputationserver
{
namespace
{

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kUsage = 2;
constexpr int kHighestPort = 65535;
constexpr unsigned int kLongestDelay = 3'600'000;
constexpr std::chrono::milliseconds kPause{1};

constexpr const char* kAbout = "Tells by HTTPS, on this machine only, which file contents are malicious.";
constexpr const char* kFooter =
    "Send POST https://localhost:PORT/1 with a SHA-256 as 64 hexadecimal digits or as {\"sha256\": \"...\"}; the\n"
    "answer is {\"sha256\": \"...\", \"verdict\": \"malicious\"} for a digest on the list, and \"clean\" for any "
    "other.\n"
    "When it listens, it prints its port and the file of its certificate authority, which is made anew at each start\n"
    "and removed at the end. SIGTERM and SIGINT end it.\n"
    "\n"
    "Exit codes: 0 stopped, 1 failure (the reason stands on standard error), 2 bad arguments or a bad list.\n"
    "\n"
    "Examples:\n"
    "  reputation_server --list malicious.txt --port 8443\n"
    "  reputation_server --delay 2000 --fail-every 3 --ready-file ready";

struct Options
{
    int port = 0;
    std::string readyFile;
    std::string list;
    unsigned int delayMs = 0;
    std::uint64_t failEvery = 0;
};

void complain(const std::string& message)
{
    static_cast<void>(std::fputs(("reputation_server: " + message + "\n").c_str(), stderr));
}

void describe(CLI::App& app, Options& options)
{
    app.set_version_flag("--version", "reputation_server " REPUTATION_SERVER_VERSION);
    app.add_option("--port", options.port, "The port on 127.0.0.1; a free one if 0 or missing")
        ->check(CLI::Range(0, kHighestPort));
    app.add_option("--list", options.list, "A file of the malicious contents' SHA-256 digests, one per line");
    app.add_option("--ready-file", options.readyFile, "Write \"PORT CA-FILE\" here instead of printing it");
    app.add_option("--delay", options.delayMs, "Milliseconds that each answer waits for")
        ->check(CLI::Range(0U, kLongestDelay));
    app.add_option("--fail-every", options.failEvery, "Answer each N-th request with status 503")
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{UINT32_MAX}));
    app.footer(kFooter);
}

/// The signals that end the program. Blocked in every thread, so that one place waits for them.
class EndSignals
{
public:
    EndSignals()
    {
        ::sigemptyset(&m_signals);
        ::sigaddset(&m_signals, SIGTERM);
        ::sigaddset(&m_signals, SIGINT);
        ::pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
    }

    void wait() const
    {
        int which = 0;
        ::sigwait(&m_signals, &which);
    }

    /// Ends the wait from inside.
    static void raise() { ::kill(::getpid(), SIGTERM); }

private:
    sigset_t m_signals = {};
};

void announce(const Options& options, int port, const std::string& caFile)
{
    const std::string line = std::to_string(port) + " " + caFile + "\n";
    if (!options.readyFile.empty())
        endpointscan::writeAtomically(options.readyFile, line);
    else if (std::fputs(line.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw std::runtime_error("cannot write to standard output");
}

/// Serves in a thread of its own for as long as it lives.
class Serving
{
public:
    explicit Serving(Server& server) : m_server(server)
    {
        m_thread = std::thread(
            [this]
            {
                m_server.serve();
                m_hasEnded = true;
                EndSignals::raise();
            });
        while (!m_server.isServing() && !m_hasEnded)
            std::this_thread::sleep_for(kPause);
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;
    ~Serving()
    {
        m_server.stop();
        m_thread.join();
    }

    bool hasEnded() const { return m_hasEnded; }

private:
    Server& m_server;
    std::atomic<bool> m_hasEnded{false};
    std::thread m_thread;
};

int serve(const Options& options)
{
    Answers answers(options.list.empty() ? endpointscan::DenyList() : endpointscan::DenyList::load(options.list),
                    options.failEvery);
    const EndSignals signals;
    programs::ignoreBrokenPipes();
    const WorkDirectory directory;
    const Certificates certificates = makeCertificates();
    const std::string caFile = directory.write("ca.pem", toPem(*certificates.authority));
    Server server(
        certificates, [&answers](const std::string& body) { return answers.answer(body); }, options.delayMs);
    const int port = server.bind(options.port);
    {
        const Serving serving(server);
        announce(options, port, caFile);
        signals.wait();
        if (serving.hasEnded())
            throw std::runtime_error("the server broke off");
    }
    complain(answers.summary());
    return kSuccess;
}

int perform(const Options& options)
{
    try
    {
        return serve(options);
    }
    catch (const endpointscan::UsageError& error)
    {
        complain(error.what());
        return kUsage;
    }
    catch (const std::exception& error)
    {
        complain(error.what());
        return kFailure;
    }
}

} // namespace

int run(int argc, const char* const* argv)
{
    Options options;
    CLI::App app(kAbout, "reputation_server");
    describe(app, options);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? kSuccess : kUsage;
    }
    return perform(options);
}

} // namespace reputationserver
