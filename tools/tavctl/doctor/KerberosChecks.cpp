#include "common/Text.h"
#include "tavctl/doctor/Checks.h"

namespace tavctl::doctor
{
namespace
{

constexpr const char* kDefaultPath = "/etc/krb5.conf";
constexpr const char* kSampleRealm = "ATHENA.MIT.EDU";

std::string configurationPath(Host& host)
{
    return host.environment("KRB5_CONFIG").value_or(kDefaultPath);
}

/// KRB5_CONFIG may name several files, with colons between them.
bool isAnyThere(Host& host, const std::string& paths)
{
    std::size_t begin = 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + 1)
    {
        end = paths.find(':', begin);
        if (host.read(paths.substr(begin, end - begin)).error == 0)
            return true;
    }
    return false;
}

/// What the configuration says about weak types, as it is written there.
std::string settingsText(const KerberosFacts& facts)
{
    std::string text;
    const auto add = [&text](const char* name, const std::string& value)
    {
        if (!value.empty())
            text += (text.empty() ? " (" : ", ") + std::string(name) + " = " + programs::printable(value);
    };
    add("permitted_enctypes", facts.permittedEnctypes);
    add("allow_weak_crypto", facts.allowWeakCrypto);
    add("allow_rc4", facts.allowRc4);
    return text.empty() ? "" : text + ")";
}

bool isNo(const std::string& value)
{
    return value == "false" || value == "no" || value == "0" || value == "off" || value == "n" || value == "f";
}

} // namespace

std::optional<Finding> checkKerberosConfiguration(Host& host, const Questions& /*questions*/)
{
    const std::string path = configurationPath(host);
    const KerberosFacts facts = host.kerberos();
    const std::string shown = path.empty() ? "the empty path in KRB5_CONFIG" : programs::printable(path);
    if (!facts.error.empty())
        return Finding{State::Problem,
                       shown + ": " + programs::printable(facts.error),
                       {"every ticket renewal fails until it is mended"}};
    if (!isAnyThere(host, path))
        return Finding{State::Warning,
                       shown + " cannot be read: no realm is configured",
                       {"name the realm and its KDC in it, or name another file in KRB5_CONFIG;",
                        "not needed if no proxy asks for Kerberos"}};
    if (facts.defaultRealm == kSampleRealm)
        return Finding{State::Warning,
                       shown + " is the distribution's sample: its default realm is " + kSampleRealm,
                       {"a principal without a realm would be asked for at that realm, on the Internet;",
                        "set default_realm; not needed if no proxy asks for Kerberos"}};
    if (facts.defaultRealm.empty())
        return Finding{State::Note, shown + " sets no default_realm: give principals as user@REALM", {}};
    return Finding{State::Ok, shown + ", default realm " + programs::printable(facts.defaultRealm), {}};
}

std::optional<Finding> checkRc4(Host& host, const Questions& /*questions*/)
{
    const KerberosFacts facts = host.kerberos();
    const std::string settings = settingsText(facts);
    if (!facts.error.empty())
        return Finding{State::Problem, "not tried: the Kerberos library does not start", {}};
    if (!facts.rc4Error.empty())
        return Finding{State::Problem,
                       "no arcfour-hmac-md5 key can be derived: " + programs::printable(facts.rc4Error) + settings,
                       {"the library knows no other type of key; a host in FIPS mode refuses this one"}};
    if (!facts.isRc4Permitted)
        return Finding{State::Problem,
                       "arcfour-hmac is not among the permitted types: no ticket is found for its key" + settings,
                       {"add arcfour-hmac to permitted_enctypes, or set allow_rc4 = true in [libdefaults]"}};
    if (isNo(facts.allowRc4))
        return Finding{State::Warning,
                       "arcfour-hmac is usable now, but switched off for newer releases" + settings,
                       {"set allow_rc4 = true in [libdefaults] before the Kerberos library is updated"}};
    return Finding{State::Ok, "an arcfour-hmac-md5 key was derived, and is permitted" + settings, {}};
}

} // namespace tavctl::doctor
