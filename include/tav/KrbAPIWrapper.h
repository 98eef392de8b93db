#pragma once

#include "tav/IkrbAPIWrapper.h"

namespace TAV
{

/// `IkrbAPIWrapper` over libkrb5 itself. It has no state.
class TAV_EXPORT KrbAPIWrapper : public IkrbAPIWrapper
{
public:
    KrbAPIWrapper() = default;
    KrbAPIWrapper(const KrbAPIWrapper&) = delete;
    KrbAPIWrapper& operator=(const KrbAPIWrapper&) = delete;
    ~KrbAPIWrapper() override;

    krb5_error_code krb5InitContext(krb5_context* context) override;
    krb5_error_code krb5ParseName(krb5_context context, const char* name, krb5_principal* principal) override;
    krb5_error_code krb5UnparseName(krb5_context context, krb5_const_principal principal, char** name) override;
    krb5_error_code krb5StringToEnctype(char* name, krb5_enctype* enctype) override;
    krb5_error_code krb5Timeofday(krb5_context context, krb5_timestamp* now) override;
    krb5_error_code krb5Principal2salt(krb5_context context, krb5_const_principal principal, krb5_data* salt) override;
    krb5_error_code krb5cStringToKey(krb5_context context,
                                     krb5_enctype enctype,
                                     const krb5_data* string,
                                     const krb5_data* salt,
                                     krb5_keyblock* key) override;
    krb5_error_code krb5KtResolve(krb5_context context, const char* name, krb5_keytab* keytab) override;
    krb5_error_code krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry) override;
    krb5_error_code krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache) override;
    krb5_error_code krb5GetInitCredsKeytab(krb5_context context,
                                           krb5_creds* creds,
                                           krb5_principal client,
                                           krb5_keytab keytab,
                                           krb5_deltat startTime,
                                           const char* service,
                                           krb5_get_init_creds_opt* options) override;
    krb5_error_code krb5KtStartSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor) override;
    krb5_error_code krb5KtNextEntry(krb5_context context,
                                    krb5_keytab keytab,
                                    krb5_keytab_entry* entry,
                                    krb5_kt_cursor* cursor) override;
    krb5_error_code krb5KtEndSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor) override;
    krb5_error_code
    krb5CopyPrincipal(krb5_context context, krb5_const_principal principal, krb5_principal* copy) override;
    krb5_error_code krb5CcClose(krb5_context context, krb5_ccache cache) override;
    krb5_error_code krb5KtClose(krb5_context context, krb5_keytab keytab) override;
    void krb5FreeContext(krb5_context context) override;
    void krb5FreePrincipal(krb5_context context, krb5_principal principal) override;
    void krb5FreeCredContents(krb5_context context, krb5_creds* creds) override;
    void krb5FreeCreds(krb5_context context, krb5_creds* creds) override;
    void krb5FreeDataContents(krb5_context context, krb5_data* data) override;
    void krb5FreeData(krb5_context context, krb5_data* data) override;
    void krb5FreeKeyblockContents(krb5_context context, krb5_keyblock* key) override;
    void krb5FreeKeyblock(krb5_context context, krb5_keyblock* key) override;
};

} // namespace TAV
