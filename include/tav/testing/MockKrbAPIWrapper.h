#pragma once

#include <gmock/gmock.h>

#include "tav/IkrbAPIWrapper.h"

namespace TAV::test
{

/// The Kerberos calls as a test expects them, by GoogleMock. `FakeKrbAPIWrapper` hands out objects, sees to it that
/// they are released, and needs no GoogleMock; a `KrbHandler` is tested more easily with that one.
///
///     auto calls = std::make_shared<::testing::NiceMock<TAV::test::MockKrbAPIWrapper>>();
///     EXPECT_CALL(*calls, krb5InitContext).WillOnce(Return(KRB5_CONFIG_CANTOPEN));
///     EXPECT_CALL(*calls, krb5ParseName).Times(0);
///
///     EXPECT_FALSE(TAV::KrbHandler(logger, system, cache, keytab, calls).renewTicket());
///
/// What is not expected gives 0, success, and leaves the outputs alone.
///
/// The program that uses it links GTest::gmock itself.
class MockKrbAPIWrapper : public IkrbAPIWrapper
{
public:
    MOCK_METHOD(krb5_error_code, krb5InitContext, (krb5_context * context), (override));
    MOCK_METHOD(krb5_error_code,
                krb5ParseName,
                (krb5_context context, const char* name, krb5_principal* principal),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5UnparseName,
                (krb5_context context, krb5_const_principal principal, char** name),
                (override));
    MOCK_METHOD(krb5_error_code, krb5StringToEnctype, (char* name, krb5_enctype* enctype), (override));
    MOCK_METHOD(krb5_error_code, krb5Timeofday, (krb5_context context, krb5_timestamp* now), (override));
    MOCK_METHOD(krb5_error_code,
                krb5Principal2salt,
                (krb5_context context, krb5_const_principal principal, krb5_data* salt),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5cStringToKey,
                (krb5_context context,
                 krb5_enctype enctype,
                 const krb5_data* string,
                 const krb5_data* salt,
                 krb5_keyblock* key),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5KtResolve,
                (krb5_context context, const char* name, krb5_keytab* keytab),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5KtAddEntry,
                (krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5CcResolve,
                (krb5_context context, const char* name, krb5_ccache* cache),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5GetInitCredsKeytab,
                (krb5_context context,
                 krb5_creds* creds,
                 krb5_principal client,
                 krb5_keytab keytab,
                 krb5_deltat startTime,
                 const char* service,
                 krb5_get_init_creds_opt* options),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5KtStartSeqGet,
                (krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5KtNextEntry,
                (krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry, krb5_kt_cursor* cursor),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5KtEndSeqGet,
                (krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor),
                (override));
    MOCK_METHOD(krb5_error_code,
                krb5CopyPrincipal,
                (krb5_context context, krb5_const_principal principal, krb5_principal* copy),
                (override));
    MOCK_METHOD(krb5_error_code, krb5CcClose, (krb5_context context, krb5_ccache cache), (override));
    MOCK_METHOD(krb5_error_code, krb5KtClose, (krb5_context context, krb5_keytab keytab), (override));
    MOCK_METHOD(void, krb5FreeContext, (krb5_context context), (override));
    MOCK_METHOD(void, krb5FreePrincipal, (krb5_context context, krb5_principal principal), (override));
    MOCK_METHOD(void, krb5FreeCredContents, (krb5_context context, krb5_creds* creds), (override));
    MOCK_METHOD(void, krb5FreeCreds, (krb5_context context, krb5_creds* creds), (override));
    MOCK_METHOD(void, krb5FreeDataContents, (krb5_context context, krb5_data* data), (override));
    MOCK_METHOD(void, krb5FreeData, (krb5_context context, krb5_data* data), (override));
    MOCK_METHOD(void, krb5FreeKeyblockContents, (krb5_context context, krb5_keyblock* key), (override));
    MOCK_METHOD(void, krb5FreeKeyblock, (krb5_context context, krb5_keyblock* key), (override));
};

} // namespace TAV::test
