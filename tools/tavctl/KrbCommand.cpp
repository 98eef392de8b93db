#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "common/Keytab.h"
#include "common/KrbTicket.h"
#include "common/Text.h"
#include "tavctl/ChildProgram.h"
#include "tavctl/Commands.h"
#include "tavctl/KrbReport.h"

namespace tavctl
{
namespace
{

constexpr const char* kKrbExamples = "Keytab and ticket last as long as a program runs, or stay for other programs.\n"
                                     "\n"
                                     "Examples:\n"
                                     "  tavctl krb run --principal me@EXAMPLE.COM -- bash\n"
                                     "  tavctl krb renew --principal me@EXAMPLE.COM --keytab ./k --cache ./c\n"
                                     "  tavctl krb show --keytab ./k\n"
                                     "  tavctl krb SUBCOMMAND --help   more about each one";

constexpr const char* kPasswordNote =
    "The password comes from --password-file, or from the terminal without it; never from the command line, where\n"
    "every user of the machine could read it. The Kerberos library is configured as ever: by /etc/krb5.conf, or by "
    "the\n"
    "file that KRB5_CONFIG names. A KDC that does not answer is waited for about half a minute.\n";

constexpr const char* kRenewNote =
    "Makes a keytab from an account's password as the library's handler does it: deletes both files, writes the\n"
    "account's RC4 key into the keytab, and asks the KDC for a ticket with it. After success the keytab stays, mode\n"
    "0600, for other programs (KRB5_CLIENT_KTNAME); after a failure neither file is there. Keep it as secret as the\n"
    "password. The cache is not written: whoever shows a ticket first, with KRB5CCNAME in its environment, does that.\n"
    "A keytab that holds somebody else's key, and files of another kind, are never deleted: such a path is refused.\n"
    "\n";

constexpr const char* kKrbRenewExamples =
    "\n"
    "Examples:\n"
    "  tavctl krb renew --principal me@EXAMPLE.COM --keytab ./k --cache ./c --show\n"
    "  tavctl krb renew --principal me@EXAMPLE.COM --keytab ./k --cache ./c "
    "--password-file pw.txt --remove";

constexpr const char* kRunNote =
    "Makes keytab and ticket as 'tavctl krb renew' does, runs a program with KRB5_CLIENT_KTNAME and KRB5CCNAME in its\n"
    "environment, and removes both files when it has ended, or when SIGTERM or SIGHUP ended it: these are handed on.\n"
    "The program gets this one's input and output. Without --keytab and --cache the files are in a private directory\n"
    "below TMPDIR. The exit code is the program's, or 128 + the signal that ended it; 127 or 126 if it cannot be\n"
    "started; 1 if there is no ticket, and then it is not started. As the output is the program's, --json is "
    "refused.\n"
    "\n";

constexpr const char* kKrbRunExamples =
    "\n"
    "Examples:\n"
    "  tavctl krb run --principal me@EXAMPLE.COM -- curl --proxy proxy:3128 --proxy-negotiate --proxy-user : "
    "https://example.org\n"
    "  tavctl krb run --principal me@EXAMPLE.COM --password-file pw.txt -- bash";

constexpr const char* kShowNote = "Lists whose keys are in a keytab, not the keys.\n"
                                  "\n"
                                  "Examples:\n"
                                  "  tavctl krb show --keytab /run/mydaemon/client.keytab";

struct KrbOptions
{
    programs::KrbAccount account;
    bool show = false;
    bool remove = false;
    std::vector<std::string> argv;
};

programs::KrbAccount accountOf(const KrbOptions& options)
{
    programs::KrbAccount account = options.account;
    account.password.prompt = account.password.file.empty();
    return account;
}

void tellFailure(const programs::KrbRenewal& renewal, const std::string& principal, Context& context)
{
    // The lines stand there already if all lines are asked for.
    for (const programs::QueryLine& line : renewal.lines)
    {
        if (!context.isVerbose)
            context.console.error("krb: " + line.message);
    }
    context.console.error("krb: " + renewal.obstacle(principal) + ". " + renewal.failure.advice);
}

/// Saves a file from being deleted.
class Kept
{
public:
    explicit Kept(const std::string& path) : m_path(path), m_spare(path + ".kept" + std::to_string(::getpid()))
    {
        if (::link(path.c_str(), m_spare.c_str()) != 0)
            throw Failure("krb: " + path + ": cannot be kept: " + std::strerror(errno));
    }
    Kept(const Kept&) = delete;
    Kept& operator=(const Kept&) = delete;
    ~Kept() { ::unlink(m_spare.c_str()); }

    void putBack() const
    {
        if (::rename(m_spare.c_str(), m_path.c_str()) != 0)
            throw Failure("krb: " + m_path + ": cannot be kept: " + std::strerror(errno));
    }

private:
    std::string m_path;
    std::string m_spare;
};

/// Ends the handler, which deletes its files, and saves the keytab from that.
void endKeeping(std::unique_ptr<programs::KrbTicket> ticket)
{
    const Kept keytab(ticket->files()->keytab());
    ticket.reset();
    keytab.putBack();
}

int renew(const KrbOptions& options, Context& context)
{
    auto ticket = std::make_unique<programs::KrbTicket>(context.logger, accountOf(options));
    const programs::KrbRenewal renewal = ticket->renew();
    nlohmann::json json{{"success", renewal.isRenewed}, {"log", jsonOf(renewal.lines)}};
    addBytes(json, "principal", ticket->principal());
    addBytes(json, "cache", options.account.cache);
    if (!renewal.isRenewed)
    {
        json["failure"] = jsonOf(renewal.failure);
        context.console.show("", json);
        tellFailure(renewal, ticket->principal(), context);
        return kFailure;
    }
    TAV::KrbAPIWrapper api;
    const programs::Keytab keytab = programs::readKeytab(api, ticket->files()->keytab());
    if (!options.remove)
        endKeeping(std::move(ticket));
    addKeytab(json, keytab, options.show);
    json["kept"] = !options.remove;
    context.console.show("ticket   the KDC gave one to " + programs::printable(options.account.principal) + "\n" +
                             textOf(keytab, options.show, options.remove ? "; removed again" : ""),
                         json);
    return kSuccess;
}

int run(const KrbOptions& options, Context& context)
{
    if (context.console.isJson())
        throw UsageError("krb run: the output is the program's own: there is none for --json");
    struct rlimit coreLimit = {};
    ::getrlimit(RLIMIT_CORE, &coreLimit);
    programs::KrbTicket ticket(context.logger, accountOf(options));
    const programs::KrbRenewal renewal = ticket.renew();
    if (renewal.isRenewed)
        return runChildProgram(options.argv, coreLimit);
    tellFailure(renewal, ticket.principal(), context);
    return kFailure;
}

int show(const KrbOptions& options, Context& context)
{
    TAV::KrbAPIWrapper api;
    const programs::Keytab keytab = programs::readKeytab(api, options.account.keytab);
    nlohmann::json json;
    addKeytab(json, keytab, true);
    context.console.show(textOf(keytab, true), json);
    return kSuccess;
}

std::string obstacleToName(const std::string& name)
{
    return name.empty() ? "the name is missing" : "";
}

void addAccount(CLI::App& command, programs::KrbAccount& account, bool needsPaths)
{
    command.add_option("--principal", account.principal, "The account, USER@REALM")->required()->check(obstacleToName);
    command.add_option("--password-file", account.password.file, "A file that holds its password");
    command.add_option("--keytab", account.keytab, "Where the keytab is made")
        ->required(needsPaths)
        ->check(obstacleToName);
    command.add_option("--cache", account.cache, "Where the credentials cache is to be: a path without a colon")
        ->required(needsPaths)
        ->check(obstacleToName)
        ->check(programs::obstacleToCache);
}

void setAction(CLI::App& command,
               Action& chosen,
               const std::shared_ptr<KrbOptions>& options,
               int (*work)(const KrbOptions&, Context&))
{
    command.callback([options, work, &chosen]
                     { chosen = [options, work](Context& context) { return work(*options, context); }; });
}

} // namespace

void registerKrb(CLI::App& app, Action& chosen)
{
    auto options = std::make_shared<KrbOptions>();
    CLI::App* command = app.add_subcommand("krb", "Get a Kerberos ticket and a keytab from an account's password");
    command->require_subcommand(1);
    command->footer(kKrbExamples);

    CLI::App* renewal = command->add_subcommand("renew", "Make a keytab, and see whether the KDC takes it");
    addAccount(*renewal, options->account, true);
    renewal->add_flag("--show", options->show, "List the keytab's entries, as they are read back");
    renewal->add_flag("--remove", options->remove, "Remove the keytab again: only see whether it works");
    renewal->footer(std::string(kRenewNote) + kPasswordNote + kKrbRenewExamples);
    setAction(*renewal, chosen, options, renew);

    CLI::App* running = command->add_subcommand("run", "Run a program that has a ticket while it runs");
    addAccount(*running, options->account, false);
    running->add_option("PROGRAM", options->argv, "The program and its arguments, behind --")->required();
    running->footer(std::string(kRunNote) + kPasswordNote + kKrbRunExamples);
    setAction(*running, chosen, options, run);

    CLI::App* showing = command->add_subcommand("show", "List a keytab's entries, without the keys");
    showing->add_option("--keytab", options->account.keytab, "The keytab")->required();
    showing->footer(kShowNote);
    setAction(*showing, chosen, options, show);
}

} // namespace tavctl
