// Each operation of the call layer is one call of libkrb5. This program's own definitions of these functions stand
// before the real ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tav/KrbAPIWrapper.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;

/// A function of libkrb5 with the arguments that it got, as numbers.
struct Call
{
    std::string function;
    std::vector<long> arguments;

    friend bool operator==(const Call& a, const Call& b)
    {
        return a.function == b.function && a.arguments == b.arguments;
    }
    friend std::ostream& operator<<(std::ostream& out, const Call& call)
    {
        return out << call.function << testing::PrintToString(call.arguments);
    }
};

std::vector<Call> made;
krb5_error_code answer = 0;

template <typename Type>
long numberOf(Type* address)
{
    return static_cast<long>(reinterpret_cast<std::intptr_t>(address));
}

long numberOf(krb5_int32 number)
{
    return number;
}

template <typename... Arguments>
krb5_error_code note(const char* function, Arguments... arguments)
{
    made.push_back({function, {numberOf(arguments)...}});
    return answer;
}

} // namespace
} // namespace TAV::test

using TAV::test::note;

extern "C"
{

    krb5_error_code krb5_init_context(krb5_context* context)
    {
        return note("krb5_init_context", context);
    }
    krb5_error_code krb5_parse_name(krb5_context context, const char* name, krb5_principal* principal)
    {
        return note("krb5_parse_name", context, name, principal);
    }
    krb5_error_code krb5_unparse_name(krb5_context context, krb5_const_principal principal, char** name)
    {
        return note("krb5_unparse_name", context, principal, name);
    }
    krb5_error_code krb5_string_to_enctype(char* name, krb5_enctype* enctype)
    {
        return note("krb5_string_to_enctype", name, enctype);
    }
    krb5_error_code krb5_timeofday(krb5_context context, krb5_timestamp* now)
    {
        return note("krb5_timeofday", context, now);
    }
    krb5_error_code krb5_principal2salt(krb5_context context, krb5_const_principal principal, krb5_data* salt)
    {
        return note("krb5_principal2salt", context, principal, salt);
    }
    krb5_error_code krb5_c_string_to_key(
        krb5_context context, krb5_enctype enctype, const krb5_data* string, const krb5_data* salt, krb5_keyblock* key)
    {
        return note("krb5_c_string_to_key", context, enctype, string, salt, key);
    }
    krb5_error_code krb5_kt_resolve(krb5_context context, const char* name, krb5_keytab* keytab)
    {
        return note("krb5_kt_resolve", context, name, keytab);
    }
    krb5_error_code krb5_kt_add_entry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry)
    {
        return note("krb5_kt_add_entry", context, keytab, entry);
    }
    krb5_error_code krb5_cc_resolve(krb5_context context, const char* name, krb5_ccache* cache)
    {
        return note("krb5_cc_resolve", context, name, cache);
    }
    krb5_error_code krb5_get_init_creds_keytab(krb5_context context,
                                               krb5_creds* creds,
                                               krb5_principal client,
                                               krb5_keytab keytab,
                                               krb5_deltat startTime,
                                               const char* service,
                                               krb5_get_init_creds_opt* options)
    {
        return note("krb5_get_init_creds_keytab", context, creds, client, keytab, startTime, service, options);
    }
    krb5_error_code krb5_kt_start_seq_get(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor)
    {
        return note("krb5_kt_start_seq_get", context, keytab, cursor);
    }
    krb5_error_code
    krb5_kt_next_entry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry, krb5_kt_cursor* cursor)
    {
        return note("krb5_kt_next_entry", context, keytab, entry, cursor);
    }
    krb5_error_code krb5_kt_end_seq_get(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor)
    {
        return note("krb5_kt_end_seq_get", context, keytab, cursor);
    }
    krb5_error_code krb5_copy_principal(krb5_context context, krb5_const_principal principal, krb5_principal* copy)
    {
        return note("krb5_copy_principal", context, principal, copy);
    }
    krb5_error_code krb5_cc_close(krb5_context context, krb5_ccache cache)
    {
        return note("krb5_cc_close", context, cache);
    }
    krb5_error_code krb5_kt_close(krb5_context context, krb5_keytab keytab)
    {
        return note("krb5_kt_close", context, keytab);
    }
    void krb5_free_context(krb5_context context)
    {
        note("krb5_free_context", context);
    }
    void krb5_free_principal(krb5_context context, krb5_principal principal)
    {
        note("krb5_free_principal", context, principal);
    }
    void krb5_free_cred_contents(krb5_context context, krb5_creds* creds)
    {
        note("krb5_free_cred_contents", context, creds);
    }
    void krb5_free_creds(krb5_context context, krb5_creds* creds)
    {
        note("krb5_free_creds", context, creds);
    }
    void krb5_free_data_contents(krb5_context context, krb5_data* data)
    {
        note("krb5_free_data_contents", context, data);
    }
    void krb5_free_data(krb5_context context, krb5_data* data)
    {
        note("krb5_free_data", context, data);
    }
    void krb5_free_keyblock_contents(krb5_context context, krb5_keyblock* key)
    {
        note("krb5_free_keyblock_contents", context, key);
    }
    void krb5_free_keyblock(krb5_context context, krb5_keyblock* key)
    {
        note("krb5_free_keyblock", context, key);
    }

} // extern "C"

namespace TAV::test
{
namespace
{

/// An argument that is nothing but its number: 1 for the first, 2 for the second ...
template <long number>
struct Argument
{
    template <typename Type>
    operator Type*() const // NOLINT(google-explicit-constructor): stands for whatever is asked for
    {
        return reinterpret_cast<Type*>(number);
    }
    operator krb5_int32() const { return static_cast<krb5_int32>(number); } // NOLINT(google-explicit-constructor)
};
constexpr Argument<1> a1;
constexpr Argument<2> a2;
constexpr Argument<3> a3;
constexpr Argument<4> a4;
constexpr Argument<5> a5;
constexpr Argument<6> a6;
constexpr Argument<7> a7;

using Api = IkrbAPIWrapper;

struct Operation
{
    const char* function; ///< the one of libkrb5 that it stands for
    std::size_t arguments;
    std::function<krb5_error_code(Api&)> call;
    bool hasResult = true;

    friend std::ostream& operator<<(std::ostream& out, const Operation& operation) { return out << operation.function; }
};

/// An operation without a result.
Operation release(const char* function, std::size_t arguments, const std::function<void(Api&)>& call)
{
    return {function, arguments, [call](Api& api) { return call(api), 0; }, false};
}

const std::vector<Operation> kOperations{
    {"krb5_init_context", 1, [](Api& api) { return api.krb5InitContext(a1); }},
    {"krb5_parse_name", 3, [](Api& api) { return api.krb5ParseName(a1, a2, a3); }},
    {"krb5_unparse_name", 3, [](Api& api) { return api.krb5UnparseName(a1, a2, a3); }},
    {"krb5_string_to_enctype", 2, [](Api& api) { return api.krb5StringToEnctype(a1, a2); }},
    {"krb5_timeofday", 2, [](Api& api) { return api.krb5Timeofday(a1, a2); }},
    {"krb5_principal2salt", 3, [](Api& api) { return api.krb5Principal2salt(a1, a2, a3); }},
    {"krb5_c_string_to_key", 5, [](Api& api) { return api.krb5cStringToKey(a1, a2, a3, a4, a5); }},
    {"krb5_kt_resolve", 3, [](Api& api) { return api.krb5KtResolve(a1, a2, a3); }},
    {"krb5_kt_add_entry", 3, [](Api& api) { return api.krb5KtAddEntry(a1, a2, a3); }},
    {"krb5_cc_resolve", 3, [](Api& api) { return api.krb5CcResolve(a1, a2, a3); }},
    {"krb5_get_init_creds_keytab", 7, [](Api& api) { return api.krb5GetInitCredsKeytab(a1, a2, a3, a4, a5, a6, a7); }},
    {"krb5_kt_start_seq_get", 3, [](Api& api) { return api.krb5KtStartSeqGet(a1, a2, a3); }},
    {"krb5_kt_next_entry", 4, [](Api& api) { return api.krb5KtNextEntry(a1, a2, a3, a4); }},
    {"krb5_kt_end_seq_get", 3, [](Api& api) { return api.krb5KtEndSeqGet(a1, a2, a3); }},
    {"krb5_copy_principal", 3, [](Api& api) { return api.krb5CopyPrincipal(a1, a2, a3); }},
    {"krb5_cc_close", 2, [](Api& api) { return api.krb5CcClose(a1, a2); }},
    {"krb5_kt_close", 2, [](Api& api) { return api.krb5KtClose(a1, a2); }},
    release("krb5_free_context", 1, [](Api& api) { api.krb5FreeContext(a1); }),
    release("krb5_free_principal", 2, [](Api& api) { api.krb5FreePrincipal(a1, a2); }),
    release("krb5_free_cred_contents", 2, [](Api& api) { api.krb5FreeCredContents(a1, a2); }),
    release("krb5_free_creds", 2, [](Api& api) { api.krb5FreeCreds(a1, a2); }),
    release("krb5_free_data_contents", 2, [](Api& api) { api.krb5FreeDataContents(a1, a2); }),
    release("krb5_free_data", 2, [](Api& api) { api.krb5FreeData(a1, a2); }),
    release("krb5_free_keyblock_contents", 2, [](Api& api) { api.krb5FreeKeyblockContents(a1, a2); }),
    release("krb5_free_keyblock", 2, [](Api& api) { api.krb5FreeKeyblock(a1, a2); }),
};

class KrbCallsTest : public testing::TestWithParam<Operation>
{
protected:
    KrbCallsTest()
    {
        made.clear();
        answer = 0;
    }

    KrbAPIWrapper api;
};

TEST_P(KrbCallsTest, IsOneCallWithTheSameArguments)
{
    GetParam().call(api);
    const std::vector<long> all{1, 2, 3, 4, 5, 6, 7};
    const auto end = all.begin() + static_cast<std::ptrdiff_t>(GetParam().arguments);
    EXPECT_THAT(made, ElementsAre(Call{GetParam().function, {all.begin(), end}}));
}

TEST_P(KrbCallsTest, HandsTheResultBackUnchanged)
{
    for (const krb5_error_code result : {0, 1, -1, ENOMEM, static_cast<int>(KRB5KDC_ERR_PREAUTH_FAILED)})
    {
        answer = result;
        EXPECT_EQ(GetParam().call(api), GetParam().hasResult ? result : 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Operations,
                         KrbCallsTest,
                         testing::ValuesIn(kOperations),
                         [](const auto& operation) { return std::string(operation.param.function); });

TEST(KrbCallsLayerTest, MakesNoCallOfItsOwn)
{
    made.clear();
    {
        const KrbAPIWrapper api;
    }
    EXPECT_THAT(made, testing::IsEmpty());
}

} // namespace
} // namespace TAV::test
