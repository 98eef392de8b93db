#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tav/IkrbAPIWrapper.h"
#include "tav/testing/Fake.h"

namespace TAV::test
{

/// A Kerberos call layer that a test steers; libkrb5's functions are never called. Each operation notes its call and
/// fails if the test planned so; otherwise it succeeds, with something new that it hands out.
///
///     auto api = std::make_shared<FakeKrbAPIWrapper>();
///     api->failCall("krb5ParseName", 2, KRB5_PARSE_MALFORMED);       // the second name is refused, others are not
///     TAV::KrbHandler handler(logger, system, cachePath, keytabPath, api);
///     ...
///     EXPECT_THAT(api->calls(), ElementsAre("krb5InitContext()", "krb5ParseName(context 1, user@REALM)", ...));
///     EXPECT_THAT(api->problems(), IsEmpty());                       // everything was released, once
///     EXPECT_THAT(api->kept(), ElementsAre("key 1", "credentials 1"));
///
/// **Failures.** A planned failure is the result of the operation. Its output stays as it was, or is made all the same:
/// see `outputOfFailures`. What releases something and has a result (`krb5CcClose`, `krb5KtClose`, `krb5KtEndSeqGet`)
/// releases it even if it fails. What has no result cannot fail.
///
/// **What is handed out** is numbered from 1, each kind by itself, in the order in which it was made: context,
/// principal, salt, key, keytab, cache, credentials, cursor. No address is given twice. Contents are texts that tell
/// what they are of: the salt's bytes are "salt 1 of user@REALM", the key's "key 1 of type 23", the ticket's
/// "credentials 1"; the rest of such a structure stays as it was. A name that `krb5UnparseName` gave belongs to the
/// fake; every key table is read as empty, whatever was added.
///
/// **In the text of a call** stand all arguments: tokens by kind and number, texts, passwords, salts, keys and tickets
/// byte for byte, numbers in decimal, null as "null".
/// "krb5KtAddEntry(context 1, keytab 1, principal 1, 1700000000, 2, 23, key 1 of type 23)": the time, the version and
/// the kind of key of the entry come before its key.
///
/// **Threads.** Operations may be called from any thread. What a test sets it sets while no other thread calls.
class FakeKrbAPIWrapper : public IkrbAPIWrapper, public Fake
{
public:
    using Fake::Fake;

    /// What a failing call makes of its output.
    enum class Output
    {
        Untouched, ///< it is as it was
        Filled,    ///< as if it had succeeded, as some versions of libkrb5 do; what is made then must be released
    };

    Output outputOfFailures = Output::Untouched; ///< of each planned failure from now on
    krb5_enctype enctype = ENCTYPE_ARCFOUR_HMAC; ///< what each name of an encryption type is taken for
    krb5_timestamp now = 1700000000;             ///< what `krb5Timeofday` tells, in seconds since 1970

    /// What is wrong by now, empty if nothing is. First the misuses, in order:
    ///
    /// - "released principal 1 used": a call named what was released already, be it to release it again, or added an
    ///   entry to a key table whose key was released;
    /// - "unknown cache used": a call named as a cache what this object did not hand out, or not as a cache. Null is
    ///   none; nor are data that the caller allocated himself, with malloc(3), a password for one: they are freed.
    ///
    /// Then what is not released, in the order in which it was made, but for keys and credentials: "salt 1 not
    /// released".
    std::vector<std::string> problems() const;

    /// The keys and credentials that are not released: "key 1", "credentials 1". `KrbHandler` leaves those of each
    /// renewal to the end of the process, so this is no problem of its user's.
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
    using Guard = std::lock_guard<std::mutex>;

    /// Something that was handed out. Handles point to the token itself, contents to its text. Only `isReleased`
    /// changes.
    struct Token
    {
        krb5_principal_data principal{}; ///< first, for a principal is more than a handle
        std::string kind;
        std::size_t number = 0;
        std::string text;
        bool isReleased = false;

        std::string name() const { return kind + " " + std::to_string(number); }
        /// Keys and credentials: what the library's handler keeps on purpose.
        bool isKeptOnPurpose() const { return kind == "key" || kind == "credentials"; }
    };

    /// One whole call; `fill` makes its output.
    template <typename Fill>
    krb5_error_code call(const std::string& operation, const std::string& arguments, Fill fill);

    static std::string textOf(const char* text) { return text == nullptr ? "null" : text; }
    static std::string textOf(const krb5_data& data);
    static std::string textOf(const krb5_keyblock& key);
    /// The text of a principal.
    std::string nameOf(krb5_const_principal principal) const;

    /// A token whose contents tell what it is, and what it is of.
    Token& make(const std::string& kind, const std::string& of = "");
    krb5_principal makePrincipal(const std::string& name);
    /// Numbers a new token; the lock is held.
    Token& add(const std::string& kind);
    Token* find(const void* address) const;
    /// The name of what a call uses. One that was not handed out, or is released already, is a problem.
    std::string use(const char* kind, const void* address);
    void release(const char* kind, const void* address);
    void releaseContents(krb5_data& data);
    void releaseContents(krb5_keyblock& key);
    void releaseContents(krb5_creds& creds);

    mutable std::mutex m_mutex;
    std::vector<std::string> m_misuses;
    std::vector<std::unique_ptr<Token>> m_tokens;
};

inline std::vector<std::string> FakeKrbAPIWrapper::problems() const
{
    const Guard guard(m_mutex);
    std::vector<std::string> problems = m_misuses;
    for (const auto& token : m_tokens)
    {
        if (!token->isReleased && !token->isKeptOnPurpose())
            problems.push_back(token->name() + " not released");
    }
    return problems;
}

inline std::vector<std::string> FakeKrbAPIWrapper::kept() const
{
    const Guard guard(m_mutex);
    std::vector<std::string> names;
    for (const auto& token : m_tokens)
    {
        if (!token->isReleased && token->isKeptOnPurpose())
            names.push_back(token->name());
    }
    return names;
}

inline krb5_error_code FakeKrbAPIWrapper::krb5InitContext(krb5_context* context)
{
    return call("krb5InitContext", "", [&] { *context = reinterpret_cast<krb5_context>(&make("context")); });
}

inline krb5_error_code
FakeKrbAPIWrapper::krb5ParseName(krb5_context context, const char* name, krb5_principal* principal)
{
    const std::string arguments = joined({use("context", context), textOf(name)});
    return call("krb5ParseName", arguments, [&] { *principal = makePrincipal(textOf(name)); });
}

inline krb5_error_code
FakeKrbAPIWrapper::krb5UnparseName(krb5_context context, krb5_const_principal principal, char** name)
{
    const std::string arguments = joined({use("context", context), use("principal", principal)});
    Token* named = find(principal);
    return call("krb5UnparseName", arguments, [&] { *name = named == nullptr ? nullptr : named->text.data(); });
}

inline krb5_error_code FakeKrbAPIWrapper::krb5StringToEnctype(char* name, krb5_enctype* type)
{
    return call("krb5StringToEnctype", textOf(name), [&] { *type = enctype; });
}

inline krb5_error_code FakeKrbAPIWrapper::krb5Timeofday(krb5_context context, krb5_timestamp* time)
{
    return call("krb5Timeofday", use("context", context), [&] { *time = now; });
}

inline krb5_error_code
FakeKrbAPIWrapper::krb5Principal2salt(krb5_context context, krb5_const_principal principal, krb5_data* salt)
{
    const std::string arguments = joined({use("context", context), use("principal", principal)});
    return call("krb5Principal2salt",
                arguments,
                [&]
                {
                    std::string& text = make("salt", nameOf(principal)).text;
                    *salt = {KV5M_DATA, static_cast<unsigned int>(text.size()), text.data()};
                });
}

inline krb5_error_code FakeKrbAPIWrapper::krb5cStringToKey(
    krb5_context context, krb5_enctype type, const krb5_data* string, const krb5_data* salt, krb5_keyblock* key)
{
    if (find(salt->data) != nullptr) // else it is the caller's own
        use("salt", salt->data);
    const std::string arguments =
        joined({use("context", context), std::to_string(type), textOf(*string), textOf(*salt)});
    return call("krb5cStringToKey",
                arguments,
                [&]
                {
                    std::string& text = make("key", "type " + std::to_string(type)).text;
                    *key = {KV5M_KEYBLOCK,
                            type,
                            static_cast<unsigned int>(text.size()),
                            reinterpret_cast<krb5_octet*>(text.data())};
                });
}

inline krb5_error_code FakeKrbAPIWrapper::krb5KtResolve(krb5_context context, const char* name, krb5_keytab* keytab)
{
    const std::string arguments = joined({use("context", context), textOf(name)});
    return call("krb5KtResolve", arguments, [&] { *keytab = reinterpret_cast<krb5_keytab>(&make("keytab")); });
}

inline krb5_error_code
FakeKrbAPIWrapper::krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry)
{
    use("key", entry->key.contents);
    return call("krb5KtAddEntry",
                joined({use("context", context),
                        use("keytab", keytab),
                        use("principal", entry->principal),
                        std::to_string(entry->timestamp),
                        std::to_string(entry->vno),
                        std::to_string(entry->key.enctype),
                        textOf(entry->key)}),
                [] {});
}

inline krb5_error_code FakeKrbAPIWrapper::krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache)
{
    const std::string arguments = joined({use("context", context), textOf(name)});
    return call("krb5CcResolve", arguments, [&] { *cache = reinterpret_cast<krb5_ccache>(&make("cache")); });
}

inline krb5_error_code FakeKrbAPIWrapper::krb5GetInitCredsKeytab(krb5_context context,
                                                                 krb5_creds* creds,
                                                                 krb5_principal client,
                                                                 krb5_keytab keytab,
                                                                 krb5_deltat startTime,
                                                                 const char* service,
                                                                 krb5_get_init_creds_opt* options)
{
    return call("krb5GetInitCredsKeytab",
                joined({use("context", context),
                        use("principal", client),
                        use("keytab", keytab),
                        std::to_string(startTime),
                        textOf(service),
                        options == nullptr ? "null" : "options"}),
                [&]
                {
                    std::string& text = make("credentials").text;
                    creds->ticket = {KV5M_DATA, static_cast<unsigned int>(text.size()), text.data()};
                });
}

inline krb5_error_code
FakeKrbAPIWrapper::krb5KtStartSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor)
{
    const std::string arguments = joined({use("context", context), use("keytab", keytab)});
    return call("krb5KtStartSeqGet", arguments, [&] { *cursor = &make("cursor"); });
}

inline krb5_error_code FakeKrbAPIWrapper::krb5KtNextEntry(krb5_context context,
                                                          krb5_keytab keytab,
                                                          krb5_keytab_entry* /*entry*/,
                                                          krb5_kt_cursor* cursor)
{
    const std::string arguments = joined({use("context", context), use("keytab", keytab), use("cursor", *cursor)});
    const auto error = call("krb5KtNextEntry", arguments, [] {});
    return error != 0 ? error : KRB5_KT_END; // no key table has entries
}

inline krb5_error_code
FakeKrbAPIWrapper::krb5KtEndSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor)
{
    const std::string arguments = joined({use("context", context), use("keytab", keytab), use("cursor", *cursor)});
    release("cursor", *cursor);
    return call("krb5KtEndSeqGet", arguments, [] {});
}

inline krb5_error_code
FakeKrbAPIWrapper::krb5CopyPrincipal(krb5_context context, krb5_const_principal principal, krb5_principal* copy)
{
    const std::string arguments = joined({use("context", context), use("principal", principal)});
    return call("krb5CopyPrincipal", arguments, [&] { *copy = makePrincipal(nameOf(principal)); });
}

inline krb5_error_code FakeKrbAPIWrapper::krb5CcClose(krb5_context context, krb5_ccache cache)
{
    const std::string arguments = joined({use("context", context), use("cache", cache)});
    release("cache", cache);
    return call("krb5CcClose", arguments, [] {});
}

inline krb5_error_code FakeKrbAPIWrapper::krb5KtClose(krb5_context context, krb5_keytab keytab)
{
    const std::string arguments = joined({use("context", context), use("keytab", keytab)});
    release("keytab", keytab);
    return call("krb5KtClose", arguments, [] {});
}

inline void FakeKrbAPIWrapper::krb5FreeContext(krb5_context context)
{
    enter("krb5FreeContext", use("context", context), false);
    release("context", context);
}

inline void FakeKrbAPIWrapper::krb5FreePrincipal(krb5_context context, krb5_principal principal)
{
    enter("krb5FreePrincipal", joined({use("context", context), use("principal", principal)}), false);
    release("principal", principal);
}

inline void FakeKrbAPIWrapper::krb5FreeCredContents(krb5_context context, krb5_creds* creds)
{
    enter("krb5FreeCredContents", joined({use("context", context), textOf(creds->ticket)}), false);
    releaseContents(*creds);
}

inline void FakeKrbAPIWrapper::krb5FreeCreds(krb5_context context, krb5_creds* creds)
{
    enter("krb5FreeCreds", joined({use("context", context), textOf(creds->ticket)}), false);
    releaseContents(*creds);
    std::free(creds);
}

inline void FakeKrbAPIWrapper::krb5FreeDataContents(krb5_context context, krb5_data* data)
{
    enter("krb5FreeDataContents", joined({use("context", context), textOf(*data)}), false);
    releaseContents(*data);
}

inline void FakeKrbAPIWrapper::krb5FreeData(krb5_context context, krb5_data* data)
{
    enter("krb5FreeData", joined({use("context", context), textOf(*data)}), false);
    releaseContents(*data);
    std::free(data);
}

inline void FakeKrbAPIWrapper::krb5FreeKeyblockContents(krb5_context context, krb5_keyblock* key)
{
    enter("krb5FreeKeyblockContents", joined({use("context", context), textOf(*key)}), false);
    releaseContents(*key);
}

inline void FakeKrbAPIWrapper::krb5FreeKeyblock(krb5_context context, krb5_keyblock* key)
{
    enter("krb5FreeKeyblock", joined({use("context", context), textOf(*key)}), false);
    releaseContents(*key);
    std::free(key);
}

template <typename Fill>
krb5_error_code FakeKrbAPIWrapper::call(const std::string& operation, const std::string& arguments, Fill fill)
{
    const auto failure = enter(operation, arguments);
    if (!failure || outputOfFailures == Output::Filled)
        fill();
    return failure.value_or(0);
}

inline std::string FakeKrbAPIWrapper::textOf(const krb5_data& data)
{
    return data.data == nullptr ? "null" : std::string(data.data, data.length);
}

inline std::string FakeKrbAPIWrapper::textOf(const krb5_keyblock& key)
{
    return key.contents == nullptr ? "null" : std::string(reinterpret_cast<const char*>(key.contents), key.length);
}

inline std::string FakeKrbAPIWrapper::nameOf(krb5_const_principal principal) const
{
    const Token* token = find(principal);
    return token == nullptr ? "nobody" : token->text;
}

inline FakeKrbAPIWrapper::Token& FakeKrbAPIWrapper::make(const std::string& kind, const std::string& of)
{
    const Guard guard(m_mutex);
    Token& token = add(kind);
    token.text = of.empty() ? token.name() : token.name() + " of " + of;
    return token;
}

inline krb5_principal FakeKrbAPIWrapper::makePrincipal(const std::string& name)
{
    const Guard guard(m_mutex);
    Token& token = add("principal");
    token.text = name;
    return &token.principal;
}

inline FakeKrbAPIWrapper::Token& FakeKrbAPIWrapper::add(const std::string& kind)
{
    const auto isAlike = [&](const auto& token) { return token->kind == kind; };
    auto token = std::make_unique<Token>();
    token->kind = kind;
    token->number = 1 + static_cast<std::size_t>(std::count_if(m_tokens.begin(), m_tokens.end(), isAlike));
    return *m_tokens.emplace_back(std::move(token));
}

inline FakeKrbAPIWrapper::Token* FakeKrbAPIWrapper::find(const void* address) const
{
    const Guard guard(m_mutex);
    const auto isIt = [&](const auto& token) { return token.get() == address || token->text.data() == address; };
    const auto found = std::find_if(m_tokens.begin(), m_tokens.end(), isIt);
    return found == m_tokens.end() ? nullptr : found->get();
}

inline std::string FakeKrbAPIWrapper::use(const char* kind, const void* address)
{
    if (address == nullptr)
        return "null";
    const Token* token = find(address);
    const Guard guard(m_mutex);
    if (token == nullptr || token->kind != kind)
    {
        m_misuses.push_back(std::string("unknown ") + kind + " used");
        return std::string("unknown ") + kind;
    }
    if (token->isReleased)
        m_misuses.push_back("released " + token->name() + " used");
    return token->name();
}

inline void FakeKrbAPIWrapper::release(const char* kind, const void* address)
{
    Token* token = find(address);
    const Guard guard(m_mutex);
    if (token != nullptr && token->kind == kind)
        token->isReleased = true;
}

inline void FakeKrbAPIWrapper::releaseContents(krb5_data& data)
{
    // What was not handed out is the caller's own, a password for one.
    if (find(data.data) == nullptr)
        std::free(data.data);
    else
        use("salt", data.data);
    release("salt", data.data);
    data.data = nullptr;
}

inline void FakeKrbAPIWrapper::releaseContents(krb5_keyblock& key)
{
    use("key", key.contents);
    release("key", key.contents);
    key.contents = nullptr;
}

inline void FakeKrbAPIWrapper::releaseContents(krb5_creds& creds)
{
    use("credentials", creds.ticket.data);
    release("credentials", creds.ticket.data);
    creds = {};
}

} // namespace TAV::test
