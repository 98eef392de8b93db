#pragma once

#include <krb5/krb5.h>

#include "tav/Export.h"

namespace TAV
{

/// The calls into MIT Kerberos that `KrbHandler` makes, one operation for each, so that a test can replace them; and
/// those that belong to them.
///
/// Each operation stands for the one function of libkrb5 that its comment names: the arguments go to it, and its result
/// comes back, both unchanged. 0 is success; other numbers are libkrb5's own errors or `errno` values. Nothing is
/// checked, logged or kept.
///
/// **Threads.** Those of libkrb5: one context, and what was made with it, is used by one thread at a time.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT IkrbAPIWrapper
{
public:
    virtual ~IkrbAPIWrapper() = default;

    /// krb5_init_context(). A library context; the caller gives it to `krb5FreeContext`.
    virtual krb5_error_code krb5InitContext(krb5_context* context) = 0;

    /// krb5_parse_name(). A principal from its text; the caller gives it to `krb5FreePrincipal`.
    virtual krb5_error_code krb5ParseName(krb5_context context, const char* name, krb5_principal* principal) = 0;

    /// krb5_unparse_name(). The text of a principal, in memory of libkrb5's.
    virtual krb5_error_code krb5UnparseName(krb5_context context, krb5_const_principal principal, char** name) = 0;

    /// krb5_string_to_enctype(). An encryption type from its name.
    virtual krb5_error_code krb5StringToEnctype(char* name, krb5_enctype* enctype) = 0;

    /// krb5_timeofday(). The time in seconds since 1970, as the context sees it.
    virtual krb5_error_code krb5Timeofday(krb5_context context, krb5_timestamp* now) = 0;

    /// krb5_principal2salt(). The default salt of a principal; the caller gives its contents to `krb5FreeDataContents`.
    virtual krb5_error_code
    krb5Principal2salt(krb5_context context, krb5_const_principal principal, krb5_data* salt) = 0;

    /// krb5_c_string_to_key(). A key from a password and a salt; the caller gives its contents to
    /// `krb5FreeKeyblockContents`.
    virtual krb5_error_code krb5cStringToKey(krb5_context context,
                                             krb5_enctype enctype,
                                             const krb5_data* string,
                                             const krb5_data* salt,
                                             krb5_keyblock* key) = 0;

    /// krb5_kt_resolve(). A handle of a key table, named TYPE:PATH; the caller gives it to `krb5KtClose`.
    virtual krb5_error_code krb5KtResolve(krb5_context context, const char* name, krb5_keytab* keytab) = 0;

    /// krb5_kt_add_entry(). Writes an entry into a key table.
    virtual krb5_error_code krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry) = 0;

    /// krb5_cc_resolve(). A handle of a credentials cache; the caller gives it to `krb5CcClose`. What stands before a
    /// colon in the name is a type.
    virtual krb5_error_code krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache) = 0;

    /// krb5_get_init_creds_keytab(). Initial credentials from the KDC, by the client's key in a key table; the caller
    /// gives their contents to `krb5FreeCredContents`. Blocks while the KDC is asked, for about half a minute if it is
    /// silent.
    virtual krb5_error_code krb5GetInitCredsKeytab(krb5_context context,
                                                   krb5_creds* creds,
                                                   krb5_principal client,
                                                   krb5_keytab keytab,
                                                   krb5_deltat startTime,
                                                   const char* service,
                                                   krb5_get_init_creds_opt* options) = 0;

    /// krb5_kt_start_seq_get(). Begins to read the entries of a key table.
    virtual krb5_error_code krb5KtStartSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor) = 0;

    /// krb5_kt_next_entry(). Reads the next entry.
    virtual krb5_error_code
    krb5KtNextEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry, krb5_kt_cursor* cursor) = 0;

    /// krb5_kt_end_seq_get(). Ends to read the entries.
    virtual krb5_error_code krb5KtEndSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor) = 0;

    /// krb5_copy_principal(). A copy; the caller gives it to `krb5FreePrincipal`.
    virtual krb5_error_code
    krb5CopyPrincipal(krb5_context context, krb5_const_principal principal, krb5_principal* copy) = 0;

    /// krb5_cc_close(). Closes a handle; the cache stays.
    virtual krb5_error_code krb5CcClose(krb5_context context, krb5_ccache cache) = 0;

    /// krb5_kt_close(). Closes a handle; the key table stays.
    virtual krb5_error_code krb5KtClose(krb5_context context, krb5_keytab keytab) = 0;

    /// krb5_free_context().
    virtual void krb5FreeContext(krb5_context context) = 0;

    /// krb5_free_principal().
    virtual void krb5FreePrincipal(krb5_context context, krb5_principal principal) = 0;

    /// krb5_free_cred_contents().
    virtual void krb5FreeCredContents(krb5_context context, krb5_creds* creds) = 0;

    /// krb5_free_creds().
    virtual void krb5FreeCreds(krb5_context context, krb5_creds* creds) = 0;

    /// krb5_free_data_contents().
    virtual void krb5FreeDataContents(krb5_context context, krb5_data* data) = 0;

    /// krb5_free_data().
    virtual void krb5FreeData(krb5_context context, krb5_data* data) = 0;

    /// krb5_free_keyblock_contents().
    virtual void krb5FreeKeyblockContents(krb5_context context, krb5_keyblock* key) = 0;

    /// krb5_free_keyblock().
    virtual void krb5FreeKeyblock(krb5_context context, krb5_keyblock* key) = 0;
};

} // namespace TAV
