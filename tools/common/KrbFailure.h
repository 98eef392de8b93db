#pragma once

#include <krb5/krb5.h>

#include <string>

#include "tav/KrbAPIWrapper.h"

namespace programs
{

/// Why a renewal failed, for people.
struct KrbFailure
{
    krb5_error_code error = 0;
    std::string cause;  ///< "wrong password"
    std::string advice; ///< what to do about it, in a sentence
};

/// What an error of libkrb5, or of the system in a call to it, means to somebody who wants a ticket.
/// @param text  libkrb5's own words, for an error that has no better ones here
KrbFailure krbFailure(krb5_error_code error, const std::string& text);

/// libkrb5, with a memory for the first error in it: the handler's log tells at which step a renewal failed, not why.
class NotingKrbApi : public TAV::KrbAPIWrapper
{
public:
    /// Forgets the error of an earlier renewal.
    void forget();

    /// The first error since then, explained.
    KrbFailure failure() const;

    krb5_error_code krb5InitContext(krb5_context* context) override;
    krb5_error_code krb5ParseName(krb5_context context, const char* name, krb5_principal* principal) override;
    krb5_error_code krb5KtResolve(krb5_context context, const char* name, krb5_keytab* keytab) override;
    krb5_error_code krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry) override;
    krb5_error_code krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache) override;
    krb5_error_code krb5cStringToKey(krb5_context context,
                                     krb5_enctype enctype,
                                     const krb5_data* string,
                                     const krb5_data* salt,
                                     krb5_keyblock* key) override;
    krb5_error_code krb5GetInitCredsKeytab(krb5_context context,
                                           krb5_creds* creds,
                                           krb5_principal client,
                                           krb5_keytab keytab,
                                           krb5_deltat startTime,
                                           const char* service,
                                           krb5_get_init_creds_opt* options) override;

private:
    krb5_error_code noted(krb5_context context, krb5_error_code error);

    krb5_error_code m_error = 0;
    std::string m_text;
};

} // namespace programs
