#include "tav/KrbAPIWrapper.h"

namespace TAV
{

KrbAPIWrapper::~KrbAPIWrapper() = default;

krb5_error_code KrbAPIWrapper::krb5InitContext(krb5_context* context)
{
    return krb5_init_context(context);
}

krb5_error_code KrbAPIWrapper::krb5ParseName(krb5_context context, const char* name, krb5_principal* principal)
{
    return krb5_parse_name(context, name, principal);
}

krb5_error_code KrbAPIWrapper::krb5UnparseName(krb5_context context, krb5_const_principal principal, char** name)
{
    return krb5_unparse_name(context, principal, name);
}

krb5_error_code KrbAPIWrapper::krb5StringToEnctype(char* name, krb5_enctype* enctype)
{
    return krb5_string_to_enctype(name, enctype);
}

krb5_error_code KrbAPIWrapper::krb5Timeofday(krb5_context context, krb5_timestamp* now)
{
    return krb5_timeofday(context, now);
}

krb5_error_code KrbAPIWrapper::krb5Principal2salt(krb5_context context, krb5_const_principal principal, krb5_data* salt)
{
    return krb5_principal2salt(context, principal, salt);
}

krb5_error_code KrbAPIWrapper::krb5cStringToKey(
    krb5_context context, krb5_enctype enctype, const krb5_data* string, const krb5_data* salt, krb5_keyblock* key)
{
    return krb5_c_string_to_key(context, enctype, string, salt, key);
}

krb5_error_code KrbAPIWrapper::krb5KtResolve(krb5_context context, const char* name, krb5_keytab* keytab)
{
    return krb5_kt_resolve(context, name, keytab);
}

krb5_error_code KrbAPIWrapper::krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry)
{
    return krb5_kt_add_entry(context, keytab, entry);
}

krb5_error_code KrbAPIWrapper::krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache)
{
    return krb5_cc_resolve(context, name, cache);
}

krb5_error_code KrbAPIWrapper::krb5GetInitCredsKeytab(krb5_context context,
                                                      krb5_creds* creds,
                                                      krb5_principal client,
                                                      krb5_keytab keytab,
                                                      krb5_deltat startTime,
                                                      const char* service,
                                                      krb5_get_init_creds_opt* options)
{
    return krb5_get_init_creds_keytab(context, creds, client, keytab, startTime, service, options);
}

krb5_error_code KrbAPIWrapper::krb5KtStartSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor)
{
    return krb5_kt_start_seq_get(context, keytab, cursor);
}

krb5_error_code KrbAPIWrapper::krb5KtNextEntry(krb5_context context,
                                               krb5_keytab keytab,
                                               krb5_keytab_entry* entry,
                                               krb5_kt_cursor* cursor)
{
    return krb5_kt_next_entry(context, keytab, entry, cursor);
}

krb5_error_code KrbAPIWrapper::krb5KtEndSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor)
{
    return krb5_kt_end_seq_get(context, keytab, cursor);
}

krb5_error_code
KrbAPIWrapper::krb5CopyPrincipal(krb5_context context, krb5_const_principal principal, krb5_principal* copy)
{
    return krb5_copy_principal(context, principal, copy);
}

krb5_error_code KrbAPIWrapper::krb5CcClose(krb5_context context, krb5_ccache cache)
{
    return krb5_cc_close(context, cache);
}

krb5_error_code KrbAPIWrapper::krb5KtClose(krb5_context context, krb5_keytab keytab)
{
    return krb5_kt_close(context, keytab);
}

void KrbAPIWrapper::krb5FreeContext(krb5_context context)
{
    krb5_free_context(context);
}

void KrbAPIWrapper::krb5FreePrincipal(krb5_context context, krb5_principal principal)
{
    krb5_free_principal(context, principal);
}

void KrbAPIWrapper::krb5FreeCredContents(krb5_context context, krb5_creds* creds)
{
    krb5_free_cred_contents(context, creds);
}

void KrbAPIWrapper::krb5FreeCreds(krb5_context context, krb5_creds* creds)
{
    krb5_free_creds(context, creds);
}

void KrbAPIWrapper::krb5FreeDataContents(krb5_context context, krb5_data* data)
{
    krb5_free_data_contents(context, data);
}

void KrbAPIWrapper::krb5FreeData(krb5_context context, krb5_data* data)
{
    krb5_free_data(context, data);
}

void KrbAPIWrapper::krb5FreeKeyblockContents(krb5_context context, krb5_keyblock* key)
{
    krb5_free_keyblock_contents(context, key);
}

void KrbAPIWrapper::krb5FreeKeyblock(krb5_context context, krb5_keyblock* key)
{
    krb5_free_keyblock(context, key);
}

} // namespace TAV
