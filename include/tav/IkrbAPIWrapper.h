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
    /// @param context  receives the context
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5InitContext(krb5_context* context) = 0;

    /// krb5_parse_name(). A principal from its text; the caller gives it to `krb5FreePrincipal`.
    /// @param context    the library context
    /// @param name       the text, such as user\@REALM; a realm that is left out is the default one
    /// @param principal  receives the principal
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5ParseName(krb5_context context, const char* name, krb5_principal* principal) = 0;

    /// krb5_unparse_name(). The text of a principal; the caller frees it with krb5_free_unparsed_name(), for which
    /// there is no operation here.
    /// @param context    the library context
    /// @param principal  the principal
    /// @param name       receives the text
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5UnparseName(krb5_context context, krb5_const_principal principal, char** name) = 0;

    /// krb5_string_to_enctype(). An encryption type from its name.
    /// @param name     the name, such as "arcfour-hmac-md5"; not changed
    /// @param enctype  receives the number
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5StringToEnctype(char* name, krb5_enctype* enctype) = 0;

    /// krb5_timeofday(). The time in seconds since 1970, as the context sees it.
    /// @param context  the library context
    /// @param now      receives the time
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5Timeofday(krb5_context context, krb5_timestamp* now) = 0;

    /// krb5_principal2salt(). The default salt of a principal; the caller gives its contents to `krb5FreeDataContents`.
    /// @param context    the library context
    /// @param principal  the principal
    /// @param salt       receives the salt
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code
    krb5Principal2salt(krb5_context context, krb5_const_principal principal, krb5_data* salt) = 0;

    /// krb5_c_string_to_key(). A key from a password and a salt; the caller gives its contents to
    /// `krb5FreeKeyblockContents`.
    /// @param context  the library context
    /// @param enctype  the kind of key
    /// @param string   the password
    /// @param salt     the salt
    /// @param key      receives the key
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5cStringToKey(krb5_context context,
                                             krb5_enctype enctype,
                                             const krb5_data* string,
                                             const krb5_data* salt,
                                             krb5_keyblock* key) = 0;

    /// krb5_kt_resolve(). A handle of a key table, named TYPE:PATH; the caller gives it to `krb5KtClose`.
    /// @param context  the library context
    /// @param name     type and path
    /// @param keytab   receives the handle
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5KtResolve(krb5_context context, const char* name, krb5_keytab* keytab) = 0;

    /// krb5_kt_add_entry(). Writes an entry into a key table.
    /// @param context  the library context
    /// @param keytab   the key table
    /// @param entry    principal, time, version and key
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry) = 0;

    /// krb5_cc_resolve(). A handle of a credentials cache; the caller gives it to `krb5CcClose`. What stands before a
    /// colon in the name is a type.
    /// @param context  the library context
    /// @param name     path, or type and path
    /// @param cache    receives the handle
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache) = 0;

    /// krb5_get_init_creds_keytab(). Initial credentials from the KDC, by the client's key in a key table; the caller
    /// gives their contents to `krb5FreeCredContents`. Blocks while the KDC is asked, for about half a minute if it is
    /// silent.
    /// @param context    the library context
    /// @param creds      receives the credentials
    /// @param client     whose credentials
    /// @param keytab     where the key is
    /// @param startTime  seconds from now until they are valid; 0: at once
    /// @param service    for which service; null: to obtain tickets
    /// @param options    may be null
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5GetInitCredsKeytab(krb5_context context,
                                                   krb5_creds* creds,
                                                   krb5_principal client,
                                                   krb5_keytab keytab,
                                                   krb5_deltat startTime,
                                                   const char* service,
                                                   krb5_get_init_creds_opt* options) = 0;

    /// krb5_kt_start_seq_get(). Begins to read the entries of a key table; the caller gives the cursor to
    /// `krb5KtEndSeqGet`.
    /// @param context  the library context
    /// @param keytab   the key table
    /// @param cursor   receives the beginning
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5KtStartSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor) = 0;

    /// krb5_kt_next_entry(). Reads the next entry; the caller frees its contents with
    /// krb5_free_keytab_entry_contents(), for which there is no operation here.
    /// @param context  the library context
    /// @param keytab   the key table
    /// @param entry    receives the entry
    /// @param cursor   where the reading stands
    /// @return 0; KRB5_KT_END behind the last entry; or an error of libkrb5
    virtual krb5_error_code
    krb5KtNextEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry, krb5_kt_cursor* cursor) = 0;

    /// krb5_kt_end_seq_get(). Ends to read the entries.
    /// @param context  the library context
    /// @param keytab   the key table
    /// @param cursor   where the reading stands
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5KtEndSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor) = 0;

    /// krb5_copy_principal(). A copy; the caller gives it to `krb5FreePrincipal`.
    /// @param context    the library context
    /// @param principal  the principal
    /// @param copy       receives the copy
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code
    krb5CopyPrincipal(krb5_context context, krb5_const_principal principal, krb5_principal* copy) = 0;

    /// krb5_cc_close(). Closes a handle; the cache stays.
    /// @param context  the library context
    /// @param cache    the handle
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5CcClose(krb5_context context, krb5_ccache cache) = 0;

    /// krb5_kt_close(). Closes a handle; the key table stays.
    /// @param context  the library context
    /// @param keytab   the handle
    /// @return 0, or an error of libkrb5
    virtual krb5_error_code krb5KtClose(krb5_context context, krb5_keytab keytab) = 0;

    /// krb5_free_context().
    /// @param context  the context, with all that belongs to it alone
    virtual void krb5FreeContext(krb5_context context) = 0;

    /// krb5_free_principal().
    /// @param context    the library context
    /// @param principal  the principal
    virtual void krb5FreePrincipal(krb5_context context, krb5_principal principal) = 0;

    /// krb5_free_cred_contents().
    /// @param context  the library context
    /// @param creds    whose contents; the record itself stays
    virtual void krb5FreeCredContents(krb5_context context, krb5_creds* creds) = 0;

    /// krb5_free_creds().
    /// @param context  the library context
    /// @param creds    the credentials and their record
    virtual void krb5FreeCreds(krb5_context context, krb5_creds* creds) = 0;

    /// krb5_free_data_contents().
    /// @param context  the library context
    /// @param data     whose bytes; the record itself stays, with a null pointer
    virtual void krb5FreeDataContents(krb5_context context, krb5_data* data) = 0;

    /// krb5_free_data().
    /// @param context  the library context
    /// @param data     the bytes and their record
    virtual void krb5FreeData(krb5_context context, krb5_data* data) = 0;

    /// krb5_free_keyblock_contents().
    /// @param context  the library context
    /// @param key      whose bytes, which are wiped; the record itself stays
    virtual void krb5FreeKeyblockContents(krb5_context context, krb5_keyblock* key) = 0;

    /// krb5_free_keyblock().
    /// @param context  the library context
    /// @param key      the key and its record
    virtual void krb5FreeKeyblock(krb5_context context, krb5_keyblock* key) = 0;
};

} // namespace TAV
