#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/TemporaryDirectory.h"
#include "tav/FMXException.h"
#include "tav/KrbHandler.h"
#include "tav/testing/FakeKrbAPIWrapper.h"
#include "tav/testing/FakeTAVSystemUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{

using Texts = std::vector<std::string>;

/// A line of KrbHandler as its logger must get it.
inline LogLine line(int level, const std::string& message)
{
    return {level, "KrbHandler", message};
}

inline const LogLine kCacheNotRemoved =
    line(6, "Either kerberos credentials cache file not found or could not be deleted during kerberos ticket renewal.");
inline const LogLine kKeytabNotRemoved =
    line(6, "Either kerberos keytab file not found or could not be deleted during kerberos ticket renewal.");
inline const LogLine kRenewed = line(5, "Kerberos configuration was set successfully.");
inline const LogLine kCacheLeft =
    line(6, "Either kerberos credentials cache file not found or could not be deleted during shutdown");
inline const LogLine kKeytabLeft =
    line(6, "Either kerberos keytab file not found or could not be deleted during shutdown");

/// What an action throws, as "1: the text".
template <typename Action>
std::string thrownBy(Action action)
{
    try
    {
        action();
    }
    catch (const FMXException& exception)
    {
        return std::to_string(exception.code) + ": " + exception.message;
    }
    return "nothing";
}

/// A record whose fields all differ from each other and from their defaults.
TAVProxyConfig sampleConfig();
/// All fields in order, for comparing.
Texts fieldsOf(const TAVProxyConfig& config);

Texts operator+(Texts first, const Texts& second);

/// Lets a test look into the structures that the handler passes.
class WatchingApi : public FakeKrbAPIWrapper
{
public:
    krb5_error_code krb5cStringToKey(krb5_context context,
                                     krb5_enctype type,
                                     const krb5_data* string,
                                     const krb5_data* salt,
                                     krb5_keyblock* key) override;
    krb5_error_code krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry) override;
    krb5_error_code krb5GetInitCredsKeytab(krb5_context context,
                                           krb5_creds* creds,
                                           krb5_principal client,
                                           krb5_keytab keytab,
                                           krb5_deltat startTime,
                                           const char* service,
                                           krb5_get_init_creds_opt* options) override;

    std::string passwordBuffer; ///< all 8192 bytes of the last one
    krb5_keyblock derivedKey{};
    std::vector<krb5_keytab_entry*> entries;
    krb5_keytab_entry addedEntry{};
    std::vector<std::string> credsBefore;   ///< the bytes of the structure that is to be filled, each time
    std::vector<const krb5_creds*> credsAt; ///< and where it lies
    bool takesThePassword = false;          ///< whether a derivation leaves no buffer behind
};

// Private members, to see what has no other trace.
const TAVProxyConfig& storedConfig(const KrbHandler& handler);
const krb5_data& passwordData(const KrbHandler& handler);
const krb5_creds& credentials(const KrbHandler& handler);

/// A handler over a fake call layer, in a directory of its own; the process's environment is not touched. Behind each
/// test all that was handed out must be released, once.
class KrbFixture : public testing::Test
{
protected:
    KrbFixture();
    void TearDown() override;

    std::unique_ptr<KrbHandler> newHandler();
    /// The log lines since the last time.
    std::vector<LogLine> newLines();

    /// The calls of a successful renewal whose tokens bear this number: what the steps call, and what frees.
    Texts stepCalls(int number = 1) const;
    Texts freeingCalls(int number = 1) const;
    Texts renewalCalls(int number = 1) const;

    TemporaryDirectory directory;
    std::string cachePath = directory.file("cache");
    std::string keytabPath = directory.file("keytab");
    RecordingLogger logger;
    std::shared_ptr<FakeTAVSystemUtils> system = std::make_shared<FakeTAVSystemUtils>();
    std::shared_ptr<WatchingApi> api = std::make_shared<WatchingApi>();
    TAVProxyConfig config = sampleConfig();
    std::unique_ptr<KrbHandler> handler;
    Texts deliberatelyLeft; ///< "principal 1 not released"

private:
    std::size_t m_linesSeen = 0;
};

} // namespace TAV::test
