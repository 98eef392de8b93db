#include "KdcStates.h"

#include <cerrno>
#include <filesystem>
#include <ostream>

namespace TAV::test
{
namespace
{

constexpr const char* kNoContext = "Kerberos module initializtion failed.";
constexpr const char* kNoPrincipal = "Kerberos principal name parsing failed.";
constexpr const char* kNoEntry = "Kerberos keytab entry addition failed.";
constexpr const char* kNoCache = "Kerberos credentials cache generation failed.";
constexpr const char* kNoCredentials = "Kerberos initialization failed.";
constexpr const char* kKeytab = "keytab";
constexpr const char* kNone = "";

constexpr const char* kTcpFirst = "udp_preference_limit = 1";
constexpr const char* kRc4Forbidden = "permitted_enctypes = aes256-cts-hmac-sha1-96";
constexpr std::chrono::hours kHour{1};

void useAccount(Circumstances& c, std::vector<std::string> options)
{
    c.accountOptions = std::move(options);
}

std::vector<KdcState> answers()
{
    return {
        {"Udp", "the KDC answers over UDP", nullptr, 0, kKeytab, [](Circumstances& c) { c.kdc.tcp = false; }},
        {"Tcp", "the KDC answers over TCP only", nullptr, 0, kKeytab, [](Circumstances& c) { c.kdc.udp = false; }},
        {"TcpFirst",
         "the same, and the client tries TCP first",
         nullptr,
         0,
         kKeytab,
         [](Circumstances& c)
         {
             c.kdc.udp = false;
             c.defaults = kTcpFirst;
         }},
        {"PreAuthentication",
         "the account requires pre-authentication",
         nullptr,
         0,
         kKeytab,
         [](Circumstances& c) { useAccount(c, {"+requires_preauth"}); }},
    };
}

std::vector<KdcState> refusals()
{
    return {
        {"WrongPassword",
         "wrong password",
         kNoCredentials,
         KRB5KRB_AP_ERR_BAD_INTEGRITY,
         kKeytab,
         [](Circumstances& c) { c.password = "wrong"; }},
        {"WrongPasswordWithPreAuthentication",
         "wrong password, pre-authentication required",
         kNoCredentials,
         KRB5KDC_ERR_PREAUTH_FAILED,
         kKeytab,
         [](Circumstances& c)
         {
             useAccount(c, {"+requires_preauth"});
             c.password = "wrong";
         }},
        {"EmptyPassword",
         "empty password",
         kNoCredentials,
         KRB5KRB_AP_ERR_BAD_INTEGRITY,
         kKeytab,
         [](Circumstances& c) { c.password = ""; }},
        {"UnknownUser",
         "the realm does not know the user",
         kNoCredentials,
         KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN,
         kKeytab,
         [](Circumstances& c) { c.user = "nobody@TEST.EXAMPLE"; }},
        {"UnknownRealm",
         "krb5.conf does not know the realm",
         kNoCredentials,
         KRB5_REALM_UNKNOWN,
         kKeytab,
         [](Circumstances& c) { c.user = "user@OTHER.EXAMPLE"; }},
        {"KdcStopped",
         "the KDC does not run: its port is closed",
         kNoCredentials,
         KRB5_KDC_UNREACH,
         kKeytab,
         [](Circumstances& c) { c.change = [](Kdc& kdc) { kdc.stop(); }; }},
    };
}

std::vector<KdcState> accounts()
{
    return {
        {"AesOnlyAccount",
         "the account has AES keys only",
         kNoCredentials,
         KRB5_KT_NOTFOUND,
         kKeytab,
         [](Circumstances& c) {
             useAccount(c, {"-e", "aes256-cts-hmac-sha1-96:normal"});
         }},
        {"Rc4NotPermitted",
         "krb5.conf permits AES only",
         kNoCredentials,
         KRB5_KT_NOTFOUND,
         kKeytab,
         [](Circumstances& c) { c.defaults = kRc4Forbidden; }},
        {"LockedAccount",
         "the account is locked",
         kNoCredentials,
         KRB5KDC_ERR_CLIENT_REVOKED,
         kKeytab,
         [](Circumstances& c) { useAccount(c, {"-allow_tix"}); }},
        {"ExpiredAccount",
         "the account has expired",
         kNoCredentials,
         KRB5KDC_ERR_NAME_EXP,
         kKeytab,
         [](Circumstances& c) {
             useAccount(c, {"-expire", "2001-01-01"});
         }},
        {"ExpiredPassword",
         "the password has expired",
         kNoCredentials,
         KRB5KDC_ERR_KEY_EXP,
         kKeytab,
         [](Circumstances& c) {
             useAccount(c, {"-pwexpire", "2001-01-01"});
         }},
        {"PasswordMustBeChanged",
         "the password must be changed first",
         kNoCredentials,
         KRB5KDC_ERR_KEY_EXP,
         kKeytab,
         [](Circumstances& c) { useAccount(c, {"+needchange"}); }},
    };
}

std::vector<KdcState> clocks()
{
    return {
        {"ClockAhead",
         "the KDC's clock is an hour ahead",
         nullptr,
         0,
         kKeytab,
         [](Circumstances& c) { c.kdc.clockOffset = kHour; }},
        {"ClockAheadWithPreAuthentication",
         "the same, pre-authentication required",
         nullptr,
         0,
         kKeytab,
         [](Circumstances& c)
         {
             c.kdc.clockOffset = kHour;
             useAccount(c, {"+requires_preauth"});
         }},
        {"ClockBehind",
         "the KDC's clock is an hour behind",
         nullptr,
         0,
         kKeytab,
         [](Circumstances& c) { c.kdc.clockOffset = -kHour; }},
        {"ClockAheadAndNotFollowed",
         "the KDC's clock is an hour ahead, and krb5.conf says `kdc_timesync = 0`",
         kNoCredentials,
         KRB5_KDCREP_SKEW,
         kKeytab,
         [](Circumstances& c)
         {
             c.kdc.clockOffset = kHour;
             c.defaults = "kdc_timesync = 0";
         }},
        {"ClockAheadWithinTheLimit",
         "the same, and krb5.conf allows for it (`clockskew = 7200`)",
         nullptr,
         0,
         kKeytab,
         [](Circumstances& c)
         {
             c.kdc.clockOffset = kHour;
             c.defaults = "kdc_timesync = 0\nclockskew = 7200";
         }},
    };
}

std::vector<KdcState> configurations()
{
    return {
        {"MalformedConfig",
         "krb5.conf is malformed",
         kNoContext,
         KRB5_CONFIG_BADFORMAT,
         kNone,
         [](Circumstances& c) { c.configText = "[libdefaults\n a = {{"; }},
        {"MalformedPrincipal",
         "principal `a@b@c`",
         kNoPrincipal,
         KRB5_PARSE_MALFORMED,
         kNone,
         [](Circumstances& c) { c.user = "a@b@c"; }},
        {"EmptyPrincipal", "empty principal", kNoEntry, KRB5_KT_IOERR, kKeytab, [](Circumstances& c) { c.user = ""; }},
        {"UserWithoutRealm",
         "principal without a realm: krb5.conf's `default_realm` is added",
         nullptr,
         0,
         kKeytab,
         [](Circumstances& c) { c.user = "user"; }},
    };
}

std::vector<KdcState> paths()
{
    return {
        {"KeytabDirectoryMissing",
         "the keytab's directory is missing",
         kNoEntry,
         ENOENT,
         kNone,
         [](Circumstances& c) { c.keytabName = "missing/keytab"; }},
        {"KeytabIsFullDirectory",
         "a directory with a file in it has the keytab's name",
         kNoEntry,
         EISDIR,
         kKeytab,
         [](Circumstances& c) {
             c.prepare = [](const KerberosScene& scene)
             { std::filesystem::create_directories(scene.keytabFile() + "/file"); };
         }},
        {"KeytabNameTooLong",
         "the keytab's file name is too long (300 characters)",
         kNoEntry,
         ENAMETOOLONG,
         kNone,
         [](Circumstances& c) { c.keytabName = std::string(300, 'k'); }},
        {"KeytabPathTooLong",
         "the keytab's path is too long (5,000 characters)",
         kNoEntry,
         ENAMETOOLONG,
         kNone,
         [](Circumstances& c)
         {
             while (c.keytabName.size() < 5000)
                 c.keytabName += "/kkkkkkkkk";
         }},
        {"CacheOfUnknownType",
         "cache path `FOO:bar`: the part before a colon is taken for a type",
         kNoCache,
         KRB5_CC_UNKNOWN_TYPE,
         kKeytab,
         [](Circumstances& c) { c.cacheName = "FOO:bar"; }},
        {"CacheInMemory",
         "cache path `MEMORY:x`",
         nullptr,
         0,
         kKeytab,
         [](Circumstances& c) { c.cacheName = "MEMORY:x"; }},
        {"CacheDirectoryMissing",
         "the cache's directory is missing",
         nullptr,
         0,
         kKeytab,
         [](Circumstances& c) { c.cacheName = "missing/cache"; }},
    };
}

std::vector<KdcState> all(const std::vector<std::vector<KdcState>>& groups)
{
    std::vector<KdcState> states;
    for (const std::vector<KdcState>& group : groups)
        states.insert(states.end(), group.begin(), group.end());
    return states;
}

KdcState silent(const char* name, const char* state, const char* realm, bool udp, bool tcp, int seconds)
{
    const auto arrange = [realm, udp, tcp](Circumstances& c)
    {
        c.kdc = {realm, udp, tcp, {}};
        c.user = std::string("user@") + realm;
        c.change = [](Kdc& kdc) { kdc.fallSilent(); };
    };
    return {name, state, kNoCredentials, KRB5_KDC_UNREACH, kKeytab, arrange, seconds};
}

} // namespace

std::ostream& operator<<(std::ostream& out, const KdcState& state)
{
    return out << state.state;
}

const std::vector<KdcState>& promptStates()
{
    static const std::vector<KdcState> states =
        all({answers(), refusals(), accounts(), clocks(), configurations(), paths()});
    return states;
}

const std::vector<KdcState>& silentStates()
{
    static const std::vector<KdcState> states = {
        silent("Udp", "the KDC is silent on UDP, its TCP port is closed", "UDP.EXAMPLE", true, false, 18),
        silent("Tcp", "the KDC is silent on TCP, its UDP port is closed", "TCP.EXAMPLE", false, true, 24),
        silent("Both", "the KDC is silent on both", "BOTH.EXAMPLE", true, true, 27),
    };
    return states;
}

const std::vector<KdcState>& laterStates()
{
    static const std::vector<KdcState> states = {
        {"Stopped", "the KDC stops after a renewal", kNoCredentials, KRB5_KDC_UNREACH, kKeytab, {}},
        {"Back", "the KDC is back", nullptr, 0, kKeytab, {}},
    };
    return states;
}

const KdcState& unconfiguredState()
{
    static const KdcState state = {"NoConfig",
                                   "there is no krb5.conf, and the DNS, which libkrb5 then asks, cannot be reached",
                                   kNoCredentials,
                                   KRB5_REALM_UNKNOWN,
                                   kKeytab,
                                   {}};
    return state;
}

std::string pageRow(const KdcState& state, const std::string& test)
{
    const LogLine line = lastLine(state);
    const std::string files = state.files[0] == '\0' ? "none" : state.files;
    const std::string time = state.seconds == 0 ? "at once" : std::to_string(state.seconds) + " s";
    return std::string("| ") + state.state + " | " + (state.reason == nullptr ? "true" : "false") + " | " +
           std::to_string(line.level) + ": " + line.message + " | " + files + " | " + time + " | `" + test + "` |\n";
}

LogLine lastLine(const KdcState& state)
{
    return state.reason == nullptr ? renewedLine() : failureLine(state.reason);
}

std::vector<LogLine> expectedLog(const KdcState& state)
{
    return noCacheToRemove() + noKeytabToRemove() + lastLine(state);
}

} // namespace TAV::test
