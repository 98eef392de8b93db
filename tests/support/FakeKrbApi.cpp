#include "support/FakeKrbApi.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace TAV::test
{
namespace
{

std::string textOf(const char* text)
{
    return text == nullptr ? "null" : text;
}

std::string textOf(const krb5_data& data)
{
    return data.data == nullptr ? "null" : std::string(data.data, data.length);
}

std::string textOf(const krb5_keyblock& key)
{
    return key.contents == nullptr ? "null" : std::string(reinterpret_cast<const char*>(key.contents), key.length);
}

std::string joined(std::initializer_list<std::string> parts)
{
    std::string text;
    const char* separator = "";
    for (const std::string& part : parts)
        text += std::exchange(separator, ", ") + part;
    return text;
}

/// Keys and credentials: what the library keeps on purpose.
bool isKeptOnPurpose(const std::string& kind)
{
    return kind == "key" || kind == "credentials";
}

} // namespace

void FakeKrbApi::failCall(
    const std::string& operation, unsigned int nth, krb5_error_code error, Lasting lasting, Output output)
{
    m_faults[operation] = {nth, error, lasting, output};
}

void FakeKrbApi::failAnyCall(unsigned int nth, krb5_error_code error, Lasting lasting, Output output)
{
    failCall("", nth, error, lasting, output);
}

void FakeKrbApi::succeed()
{
    m_faults.clear();
    m_hasFailed = false;
}

std::vector<std::string> FakeKrbApi::takeCalls()
{
    return std::exchange(m_calls, {});
}

std::vector<std::string> FakeKrbApi::problems() const
{
    std::vector<std::string> problems = m_misuses;
    for (const auto& token : m_tokens)
    {
        if (!token->isReleased && !isKeptOnPurpose(token->kind))
            problems.push_back(token->name() + " not released");
    }
    return problems;
}

std::vector<std::string> FakeKrbApi::kept() const
{
    std::vector<std::string> names;
    for (const auto& token : m_tokens)
    {
        if (!token->isReleased && isKeptOnPurpose(token->kind))
            names.push_back(token->name());
    }
    return names;
}

/// Counts a call; true for the one that is to fail, and for those behind it if the fault lasts.
bool FakeKrbApi::isDue(Fault& fault)
{
    if (fault.callsLeft == 0)
        return false;
    const bool due = fault.callsLeft == 1;
    if (!due || fault.lasting == Lasting::Once)
        --fault.callsLeft;
    return due;
}

std::optional<FakeKrbApi::Fault>
FakeKrbApi::enter(const std::string& operation, const std::string& arguments, bool canFail)
{
    const std::string call = operation + "(" + arguments + ")";
    m_calls.push_back(call);
    if (onCall)
        onCall(call);
    std::optional<Fault> failure;
    for (auto& [name, fault] : m_faults)
    {
        if ((name == operation || (name.empty() && canFail)) && isDue(fault))
            failure = fault;
    }
    m_hasFailed = m_hasFailed || failure;
    return failure;
}

template <typename Fill>
krb5_error_code FakeKrbApi::call(const std::string& operation, const std::string& arguments, Fill fill)
{
    const auto failure = enter(operation, arguments);
    if (!failure || failure->output == Output::Filled)
        fill();
    return failure ? failure->error : 0;
}

FakeKrbApi::Token& FakeKrbApi::make(const std::string& kind, const std::string& description)
{
    const auto isAlike = [&](const auto& token) { return token->kind == kind; };
    auto token = std::make_unique<Token>();
    token->kind = kind;
    token->number = 1 + static_cast<std::size_t>(std::count_if(m_tokens.begin(), m_tokens.end(), isAlike));
    token->text = description.empty() ? token->name() : token->name() + " of " + description;
    return *m_tokens.emplace_back(std::move(token));
}

krb5_principal FakeKrbApi::makePrincipal(const std::string& name)
{
    Token& token = make("principal");
    token.text = name;
    return &token.principal;
}

FakeKrbApi::Token* FakeKrbApi::find(const void* address)
{
    const auto found =
        std::find_if(m_tokens.begin(),
                     m_tokens.end(),
                     [&](const auto& token) { return token.get() == address || token->text.data() == address; });
    return found == m_tokens.end() ? nullptr : found->get();
}

std::string FakeKrbApi::use(const char* kind, const void* address)
{
    if (address == nullptr)
        return "null";
    const Token* token = find(address);
    if (token == nullptr || token->kind != kind)
    {
        m_misuses.push_back(std::string("unknown ") + kind + " used");
        return std::string("unknown ") + kind;
    }
    if (token->isReleased)
        m_misuses.push_back("released " + token->name() + " used");
    return token->name();
}

void FakeKrbApi::release(const char* kind, const void* address)
{
    Token* token = find(address);
    if (token != nullptr && token->kind == kind)
        token->isReleased = true;
}

void FakeKrbApi::releaseContents(krb5_data& data)
{
    // What was not handed out is the caller's own, a password for one.
    if (find(data.data) == nullptr)
        std::free(data.data);
    else
        use("salt", data.data);
    release("salt", data.data);
    data.data = nullptr;
}

void FakeKrbApi::releaseContents(krb5_keyblock& key)
{
    use("key", key.contents);
    release("key", key.contents);
    key.contents = nullptr;
}

void FakeKrbApi::releaseContents(krb5_creds& creds)
{
    use("credentials", creds.ticket.data);
    release("credentials", creds.ticket.data);
    creds = {};
}

krb5_error_code FakeKrbApi::krb5InitContext(krb5_context* context)
{
    return call("krb5InitContext", "", [&] { *context = reinterpret_cast<krb5_context>(&make("context")); });
}

krb5_error_code FakeKrbApi::krb5ParseName(krb5_context context, const char* name, krb5_principal* principal)
{
    const std::string arguments = joined({use("context", context), textOf(name)});
    return call("krb5ParseName", arguments, [&] { *principal = makePrincipal(textOf(name)); });
}

krb5_error_code FakeKrbApi::krb5UnparseName(krb5_context context, krb5_const_principal principal, char** name)
{
    const std::string arguments = joined({use("context", context), use("principal", principal)});
    Token* named = find(principal);
    return call("krb5UnparseName", arguments, [&] { *name = named == nullptr ? nullptr : named->text.data(); });
}

krb5_error_code FakeKrbApi::krb5StringToEnctype(char* name, krb5_enctype* type)
{
    return call("krb5StringToEnctype", textOf(name), [&] { *type = enctype; });
}

krb5_error_code FakeKrbApi::krb5Timeofday(krb5_context context, krb5_timestamp* time)
{
    return call("krb5Timeofday", use("context", context), [&] { *time = now; });
}

krb5_error_code FakeKrbApi::krb5Principal2salt(krb5_context context, krb5_const_principal principal, krb5_data* salt)
{
    const std::string arguments = joined({use("context", context), use("principal", principal)});
    const Token* salted = find(principal);
    return call("krb5Principal2salt",
                arguments,
                [&]
                {
                    std::string& text = make("salt", salted == nullptr ? "nobody" : salted->text).text;
                    *salt = {KV5M_DATA, static_cast<unsigned int>(text.size()), text.data()};
                });
}

krb5_error_code FakeKrbApi::krb5cStringToKey(
    krb5_context context, krb5_enctype type, const krb5_data* string, const krb5_data* salt, krb5_keyblock* key)
{
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

krb5_error_code FakeKrbApi::krb5KtResolve(krb5_context context, const char* name, krb5_keytab* keytab)
{
    const std::string arguments = joined({use("context", context), textOf(name)});
    return call("krb5KtResolve", arguments, [&] { *keytab = reinterpret_cast<krb5_keytab>(&make("keytab")); });
}

krb5_error_code FakeKrbApi::krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry)
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

krb5_error_code FakeKrbApi::krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache)
{
    const std::string arguments = joined({use("context", context), textOf(name)});
    return call("krb5CcResolve", arguments, [&] { *cache = reinterpret_cast<krb5_ccache>(&make("cache")); });
}

krb5_error_code FakeKrbApi::krb5GetInitCredsKeytab(krb5_context context,
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

krb5_error_code FakeKrbApi::krb5KtStartSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor)
{
    const std::string arguments = joined({use("context", context), use("keytab", keytab)});
    return call("krb5KtStartSeqGet", arguments, [&] { *cursor = &make("cursor"); });
}

krb5_error_code FakeKrbApi::krb5KtNextEntry(krb5_context context,
                                            krb5_keytab keytab,
                                            krb5_keytab_entry* /*entry*/,
                                            krb5_kt_cursor* cursor)
{
    const std::string arguments = joined({use("context", context), use("keytab", keytab), use("cursor", *cursor)});
    const auto error = call("krb5KtNextEntry", arguments, [] {});
    return error != 0 ? error : KRB5_KT_END; // no key table has entries
}

krb5_error_code FakeKrbApi::krb5KtEndSeqGet(krb5_context context, krb5_keytab keytab, krb5_kt_cursor* cursor)
{
    const std::string arguments = joined({use("context", context), use("keytab", keytab), use("cursor", *cursor)});
    release("cursor", *cursor);
    return call("krb5KtEndSeqGet", arguments, [] {});
}

krb5_error_code
FakeKrbApi::krb5CopyPrincipal(krb5_context context, krb5_const_principal principal, krb5_principal* copy)
{
    const std::string arguments = joined({use("context", context), use("principal", principal)});
    const Token* original = find(principal);
    return call("krb5CopyPrincipal",
                arguments,
                [&] { *copy = makePrincipal(original == nullptr ? "nobody" : original->text); });
}

krb5_error_code FakeKrbApi::krb5CcClose(krb5_context context, krb5_ccache cache)
{
    const std::string arguments = joined({use("context", context), use("cache", cache)});
    release("cache", cache);
    return call("krb5CcClose", arguments, [] {});
}

krb5_error_code FakeKrbApi::krb5KtClose(krb5_context context, krb5_keytab keytab)
{
    const std::string arguments = joined({use("context", context), use("keytab", keytab)});
    release("keytab", keytab);
    return call("krb5KtClose", arguments, [] {});
}

void FakeKrbApi::krb5FreeContext(krb5_context context)
{
    enter("krb5FreeContext", use("context", context), false);
    release("context", context);
}

void FakeKrbApi::krb5FreePrincipal(krb5_context context, krb5_principal principal)
{
    enter("krb5FreePrincipal", joined({use("context", context), use("principal", principal)}), false);
    release("principal", principal);
}

void FakeKrbApi::krb5FreeCredContents(krb5_context context, krb5_creds* creds)
{
    enter("krb5FreeCredContents", joined({use("context", context), textOf(creds->ticket)}), false);
    releaseContents(*creds);
}

void FakeKrbApi::krb5FreeCreds(krb5_context context, krb5_creds* creds)
{
    enter("krb5FreeCreds", joined({use("context", context), textOf(creds->ticket)}), false);
    releaseContents(*creds);
    std::free(creds);
}

void FakeKrbApi::krb5FreeDataContents(krb5_context context, krb5_data* data)
{
    enter("krb5FreeDataContents", joined({use("context", context), textOf(*data)}), false);
    releaseContents(*data);
}

void FakeKrbApi::krb5FreeData(krb5_context context, krb5_data* data)
{
    enter("krb5FreeData", joined({use("context", context), textOf(*data)}), false);
    releaseContents(*data);
    std::free(data);
}

void FakeKrbApi::krb5FreeKeyblockContents(krb5_context context, krb5_keyblock* key)
{
    enter("krb5FreeKeyblockContents", joined({use("context", context), textOf(*key)}), false);
    releaseContents(*key);
}

void FakeKrbApi::krb5FreeKeyblock(krb5_context context, krb5_keyblock* key)
{
    enter("krb5FreeKeyblock", joined({use("context", context), textOf(*key)}), false);
    releaseContents(*key);
    std::free(key);
}

} // namespace TAV::test
