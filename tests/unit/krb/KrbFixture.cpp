#include "KrbFixture.h"

#include <cstdlib>
#include <utility>

namespace TAV::test
{

TAVProxyConfig sampleConfig()
{
    return {true, true, "first", "second", {"one", "two"}, true, "user@LAB.TEST", "secret"};
}

Texts fieldsOf(const TAVProxyConfig& config)
{
    Texts fields{config.proxyFlag1 ? "true" : "false",
                 config.proxyFlag2 ? "true" : "false",
                 config.proxyText1,
                 config.proxyText2,
                 config.proxyFlag3 ? "true" : "false",
                 config.userPrincipal,
                 config.password};
    return fields + config.proxyList;
}

Texts operator+(Texts first, const Texts& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

krb5_error_code WatchingApi::krb5cStringToKey(
    krb5_context context, krb5_enctype type, const krb5_data* string, const krb5_data* salt, krb5_keyblock* key)
{
    passwordBuffer.assign(string->data, 8192);
    const auto error = FakeKrbAPIWrapper::krb5cStringToKey(context, type, string, salt, key);
    derivedKey = *key;
    if (takesThePassword)
        std::free(std::exchange(const_cast<krb5_data*>(string)->data, nullptr));
    return error;
}

krb5_error_code WatchingApi::krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry)
{
    entries.push_back(entry);
    addedEntry = *entry;
    return FakeKrbAPIWrapper::krb5KtAddEntry(context, keytab, entry);
}

krb5_error_code WatchingApi::krb5GetInitCredsKeytab(krb5_context context,
                                                    krb5_creds* creds,
                                                    krb5_principal client,
                                                    krb5_keytab keytab,
                                                    krb5_deltat startTime,
                                                    const char* service,
                                                    krb5_get_init_creds_opt* options)
{
    credsBefore.emplace_back(reinterpret_cast<const char*>(creds), sizeof(*creds));
    credsAt.push_back(creds);
    const auto error =
        FakeKrbAPIWrapper::krb5GetInitCredsKeytab(context, creds, client, keytab, startTime, service, options);
    creds->client = client;
    creds->keyblock.length = 16;
    creds->times.endtime = 1700003600;
    creds->ticket_flags = -1;
    return error;
}

namespace
{

// An explicit instantiation may name private members; the friend that it defines carries the pointer out.
template <typename Tag, typename Tag::Type member>
struct Reach
{
    friend typename Tag::Type reach(Tag /*unused*/) { return member; }
};

struct StoredConfig
{
    using Type = TAVProxyConfig KrbHandler::*;
    friend Type reach(StoredConfig);
};
template struct Reach<StoredConfig, &KrbHandler::m_proxyConfig>;

struct PasswordData
{
    using Type = krb5_data KrbHandler::*;
    friend Type reach(PasswordData);
};
template struct Reach<PasswordData, &KrbHandler::m_passwordData>;

struct Credentials
{
    using Type = krb5_creds KrbHandler::*;
    friend Type reach(Credentials);
};
template struct Reach<Credentials, &KrbHandler::m_creds>;

std::string inContext(int number)
{
    return "(context " + std::to_string(number);
}

} // namespace

const TAVProxyConfig& storedConfig(const KrbHandler& handler)
{
    return handler.*reach(StoredConfig{});
}

const krb5_data& passwordData(const KrbHandler& handler)
{
    return handler.*reach(PasswordData{});
}

const krb5_creds& credentials(const KrbHandler& handler)
{
    return handler.*reach(Credentials{});
}

KrbFixture::KrbFixture()
{
    system->onSetenv = [](const char*, const char*, int, int&) { return 0; };
    handler = newHandler();
}

void KrbFixture::TearDown()
{
    api->onCall = nullptr; // what it refers to may be gone
    handler.reset();
    EXPECT_EQ(api->problems(), deliberatelyLeft);
}

std::unique_ptr<KrbHandler> KrbFixture::newHandler()
{
    return std::make_unique<KrbHandler>(logger, system, cachePath, keytabPath, api);
}

std::vector<LogLine> KrbFixture::newLines()
{
    const std::vector<LogLine> all = logger.lines();
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(m_linesSeen);
    m_linesSeen = all.size();
    return {first, all.end()};
}

Texts KrbFixture::stepCalls(int number) const
{
    const std::string context = inContext(number);
    const std::string n = std::to_string(number);
    return {"krb5ParseName" + context + ", user@LAB.TEST)",
            "krb5StringToEnctype(arcfour-hmac-md5)",
            "krb5Timeofday" + context + ")",
            "krb5Principal2salt" + context + ", principal " + n + ")",
            "krb5cStringToKey" + context + ", 23, secret, salt " + n + " of user@LAB.TEST)",
            "krb5FreeDataContents" + context + ", secret)",
            "krb5KtResolve" + context + ", WRFILE:" + keytabPath + ")",
            "krb5KtAddEntry" + context + ", keytab " + n + ", principal " + n + ", 1700000000, 2, 23, key " + n +
                " of type 23)",
            "krb5CcResolve" + context + ", " + cachePath + ")",
            "krb5GetInitCredsKeytab" + context + ", principal " + n + ", keytab " + n + ", 0, null, null)"};
}

Texts KrbFixture::freeingCalls(int number) const
{
    const std::string context = inContext(number);
    const std::string n = std::to_string(number);
    return {"krb5FreePrincipal" + context + ", principal " + n + ")",
            "krb5FreeDataContents" + context + ", salt " + n + " of user@LAB.TEST)",
            "krb5CcClose" + context + ", cache " + n + ")",
            "krb5KtClose" + context + ", keytab " + n + ")",
            "krb5FreeContext" + context + ")"};
}

Texts KrbFixture::renewalCalls(int number) const
{
    return Texts{"krb5InitContext()"} + stepCalls(number) + freeingCalls(number);
}

} // namespace TAV::test
