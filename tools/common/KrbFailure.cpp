#include "common/KrbFailure.h"

#include <cstring>

namespace programs
{
namespace
{

constexpr krb5_error_code kHighestErrno = 4095;

struct Explanation
{
    krb5_error_code error;
    const char* cause;
    const char* advice;
};

constexpr const char* kRightPassword =
    "Give the account's password. If it is right, the account's RC4 key is older: set the password anew.";
constexpr const char* kRightClocks = "Set the clocks of this machine and of the KDC; five minutes apart is too much.";
constexpr const char* kRealmInConfig =
    "Name its KDC under [realms] in krb5.conf, or in the file that KRB5_CONFIG names; realms are in capitals.";
constexpr const char* kRc4 =
    "Give the account an arcfour-hmac key (kadmin: change_password -e), and let permitted_enctypes allow it.";

constexpr Explanation kExplanations[] = {
    {KRB5KRB_AP_ERR_BAD_INTEGRITY, "wrong password", kRightPassword},
    {KRB5KDC_ERR_PREAUTH_FAILED, "wrong password", kRightPassword},
    {KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN,
     "unknown user",
     "The realm has no such account: look at the principal's spelling."},
    {KRB5_KDC_UNREACH, "no KDC can be reached", "See that the KDC runs, and that krb5.conf names its host and port."},
    {KRB5_REALM_UNKNOWN, "unknown realm", kRealmInConfig},
    {KRB5_REALM_CANT_RESOLVE, "unknown realm", kRealmInConfig},
    {KRB5KDC_ERR_WRONG_REALM, "unknown realm", kRealmInConfig},
    {KRB5_CONFIG_NODEFREALM,
     "no default realm",
     "Write the principal as USER@REALM, or name a default_realm in krb5.conf."},
    {KRB5_KT_NOTFOUND, "no RC4 key", kRc4},
    {KRB5KDC_ERR_ETYPE_NOSUPP, "no RC4 key", kRc4},
    {KRB5KDC_ERR_CLIENT_REVOKED, "the account is locked", "Have it unlocked on the KDC."},
    {KRB5KDC_ERR_NAME_EXP, "the account has expired", "Have its expiration date moved on the KDC."},
    {KRB5KDC_ERR_KEY_EXP, "the password has expired", "Have a new one set on the KDC."},
    {KRB5KRB_AP_ERR_SKEW, "the clocks differ", kRightClocks},
    {KRB5_KDCREP_SKEW, "the clocks differ", kRightClocks},
    {KRB5_CONFIG_BADFORMAT, "krb5.conf is malformed", "Mend it, or let KRB5_CONFIG name another file."},
    {KRB5_PARSE_MALFORMED, "malformed principal", "Write it as USER@REALM, with one @."},
    {KRB5_CC_UNKNOWN_TYPE,
     "unknown type of cache",
     "What stands before a colon in the cache's path is a type: name a path without one."},
};

std::string textOf(krb5_context context, krb5_error_code error)
{
    const char* text = krb5_get_error_message(context, error);
    std::string copy = text;
    krb5_free_error_message(context, text);
    return copy;
}

} // namespace

KrbFailure krbFailure(krb5_error_code error, const std::string& text)
{
    for (const Explanation& known : kExplanations)
    {
        if (known.error == error)
            return {error, known.cause, known.advice};
    }
    if (0 < error && error <= kHighestErrno)
        return {error,
                std::string("a file cannot be written: ") + std::strerror(error),
                "Give keytab and cache paths in a directory that exists and that you may write to."};
    return {error,
            text.empty() ? "error " + std::to_string(error) : text,
            "Run it again with KRB5_TRACE=/dev/stderr in the environment to see what libkrb5 does."};
}

void NotingKrbApi::forget()
{
    m_error = 0;
    m_text.clear();
}

KrbFailure NotingKrbApi::failure() const
{
    return krbFailure(m_error, m_text);
}

krb5_error_code NotingKrbApi::noted(krb5_context context, krb5_error_code error)
{
    if (error != 0 && m_error == 0)
    {
        m_error = error;
        m_text = textOf(context, error);
    }
    return error;
}

krb5_error_code NotingKrbApi::krb5InitContext(krb5_context* context)
{
    return noted(nullptr, KrbAPIWrapper::krb5InitContext(context));
}

krb5_error_code NotingKrbApi::krb5ParseName(krb5_context context, const char* name, krb5_principal* principal)
{
    return noted(context, KrbAPIWrapper::krb5ParseName(context, name, principal));
}

krb5_error_code NotingKrbApi::krb5KtResolve(krb5_context context, const char* name, krb5_keytab* keytab)
{
    return noted(context, KrbAPIWrapper::krb5KtResolve(context, name, keytab));
}

krb5_error_code NotingKrbApi::krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry)
{
    return noted(context, KrbAPIWrapper::krb5KtAddEntry(context, keytab, entry));
}

krb5_error_code NotingKrbApi::krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache)
{
    return noted(context, KrbAPIWrapper::krb5CcResolve(context, name, cache));
}

krb5_error_code NotingKrbApi::krb5cStringToKey(
    krb5_context context, krb5_enctype enctype, const krb5_data* string, const krb5_data* salt, krb5_keyblock* key)
{
    return noted(context, KrbAPIWrapper::krb5cStringToKey(context, enctype, string, salt, key));
}

krb5_error_code NotingKrbApi::krb5GetInitCredsKeytab(krb5_context context,
                                                     krb5_creds* creds,
                                                     krb5_principal client,
                                                     krb5_keytab keytab,
                                                     krb5_deltat startTime,
                                                     const char* service,
                                                     krb5_get_init_creds_opt* options)
{
    return noted(context,
                 KrbAPIWrapper::krb5GetInitCredsKeytab(context, creds, client, keytab, startTime, service, options));
}

} // namespace programs
