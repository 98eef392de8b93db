#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tav/IkrbAPIWrapper.h"

namespace TAV::test
{

/// A Kerberos call layer that a test steers; libkrb5 is never called. Each operation, in this order: notes the call;
/// runs `onCall`; fails if the test planned so; otherwise succeeds, with something new that it hands out.
///
///     FakeKrbApi api;
///     api.failCall("krb5ParseName", 2, KRB5_PARSE_MALFORMED);       // the second name is refused, others are not
///     ...
///     EXPECT_THAT(api.calls(), ElementsAre("krb5InitContext()", "krb5ParseName(context 1, user@REALM)", ...));
///     EXPECT_THAT(api.problems(), IsEmpty());                       // everything was released, once
///     EXPECT_THAT(api.kept(), ElementsAre("key 1", "credentials 1"));
///
/// What is handed out is numbered from 1, each kind by itself; no address is given twice. What cannot be told apart by
/// its text is: the salt is "salt 1 of user@REALM", the key "key 1 of type 23". One thread at a time.
class FakeKrbApi : public IkrbAPIWrapper
{
public:
    enum class Lasting
    {
        Once,
        FromThenOn,
    };
    /// What a failing call makes of its output.
    enum class Output
    {
        Untouched,
        Filled, ///< as if it had succeeded
    };

    /// Makes call number `nth` of an operation, from 1 for the next one, fail with `error`. One that releases something
    /// releases it all the same.
    void failCall(const std::string& operation,
                  unsigned int nth,
                  krb5_error_code error,
                  Lasting lasting = Lasting::Once,
                  Output output = Output::Untouched);
    /// The same for call number `nth` of all that can fail; for sweeps.
    void failAnyCall(unsigned int nth,
                     krb5_error_code error,
                     Lasting lasting = Lasting::Once,
                     Output output = Output::Untouched);
    /// Forgets the plans above.
    void succeed();
    /// Whether a planned failure took place.
    bool hasFailed() const { return m_hasFailed; }

    krb5_enctype enctype = ENCTYPE_ARCFOUR_HMAC; ///< what each name of an encryption type is taken for
    krb5_timestamp now = 1700000000;             ///< what `krb5Timeofday` tells

    /// When set, called with the text of each call just as it is noted. It may throw.
    std::function<void(const std::string&)> onCall;

    /// What was called, in order, with all arguments; texts, passwords, salts and keys are shown byte for byte:
    /// "krb5KtAddEntry(context 1, keytab 1, principal 1, 1700000000, 2, 23, key 1 of type 23)".
    const std::vector<std::string>& calls() const { return m_calls; }
    /// The same, and forgets them.
    std::vector<std::string> takeCalls();

    /// What is wrong by now, empty if nothing is: first each use of what was no longer there, in order; then what is
    /// not released, but for keys and credentials. "released principal 1 used", "salt 1 not released".
    std::vector<std::string> problems() const;
    /// The keys and credentials that are not released, which `KrbHandler` keeps on purpose: "key 1", "credentials 1".
    std::vector<std::string> kept() const;

    krb5_error_code krb5InitContext(krb5_context* context) override;
    krb5_error_code krb5ParseName(krb5_context context, const char* name, krb5_principal* principal) override;
    krb5_error_code krb5UnparseName(krb5_context context, krb5_const_principal principal, char** name) override;
    krb5_error_code krb5StringToEnctype(char* name, krb5_enctype* type) override;
    krb5_error_code krb5Timeofday(krb5_context context, krb5_timestamp* time) override;
    krb5_error_code krb5Principal2salt(krb5_context context, krb5_const_principal principal, krb5_data* salt) override;
    krb5_error_code krb5cStringToKey(krb5_context context,
                                     krb5_enctype type,
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

private:
    struct Fault
    {
        unsigned int callsLeft = 0; ///< until it is due
        krb5_error_code error = 0;
        Lasting lasting = Lasting::Once;
        Output output = Output::Untouched;
    };
    /// Something that was handed out. Handles point to the token itself, contents to its text.
    struct Token
    {
        krb5_principal_data principal{}; ///< first, for a principal is more than a handle
        std::string kind;
        std::size_t number = 0;
        std::string text;
        bool isReleased = false;

        std::string name() const { return kind + " " + std::to_string(number); }
    };

    /// Notes a call and tells how it is planned to fail.
    std::optional<Fault> enter(const std::string& operation, const std::string& arguments, bool canFail = true);
    static bool isDue(Fault& fault);
    /// One whole call; `fill` makes its output.
    template <typename Fill>
    krb5_error_code call(const std::string& operation, const std::string& arguments, Fill fill);

    Token& make(const std::string& kind, const std::string& description = "");
    krb5_principal makePrincipal(const std::string& name);
    Token* find(const void* address);
    /// The name of what a call uses. One that was not handed out, or is released already, is a problem.
    std::string use(const char* kind, const void* address);
    void release(const char* kind, const void* address);
    void releaseContents(krb5_data& data);
    void releaseContents(krb5_keyblock& key);
    void releaseContents(krb5_creds& creds);

    std::map<std::string, Fault> m_faults; ///< by operation; the empty name stands for all that can fail
    bool m_hasFailed = false;
    std::vector<std::string> m_calls;
    std::vector<std::string> m_misuses;
    std::vector<std::unique_ptr<Token>> m_tokens;
};

} // namespace TAV::test
