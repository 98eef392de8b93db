// What renewals leave behind: in memory the keytab entries, the keys and the credentials, and nothing else anywhere.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>

#include "KerberosScene.h"
#include "LiveBlocks.h"
#include "support/Kdc.h"
#include "tav/TAVSystemUtils.h"

namespace TAV::test
{
namespace
{

constexpr std::size_t kRounds = 200;
constexpr std::size_t kFewRounds = 40;
constexpr std::size_t kBlocksOfCreds = 11; // two principals, session key and ticket

class SilentLogger : public ILogger
{
public:
    void log(int, std::string) override {}
    void log(int, std::string, const std::string&) override {}
};

/// How many of each.
struct Kept
{
    std::size_t entries;
    std::size_t keys;
    std::size_t creds;
};

/// Takes note of all that is deliberately kept, so that it can be freed after all.
class KeepingKrbAPIWrapper : public KrbAPIWrapper
{
public:
    KeepingKrbAPIWrapper()
    {
        m_entries.reserve(kRounds);
        m_keys.reserve(kRounds);
        m_creds.reserve(kRounds);
    }

    krb5_error_code krb5cStringToKey(krb5_context context,
                                     krb5_enctype enctype,
                                     const krb5_data* string,
                                     const krb5_data* salt,
                                     krb5_keyblock* key) override
    {
        const krb5_error_code result = KrbAPIWrapper::krb5cStringToKey(context, enctype, string, salt, key);
        if (result == 0)
            m_keys.push_back(*key);
        return result;
    }

    krb5_error_code krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry) override
    {
        m_entries.push_back(entry);
        return KrbAPIWrapper::krb5KtAddEntry(context, keytab, entry);
    }

    krb5_error_code krb5GetInitCredsKeytab(krb5_context context,
                                           krb5_creds* creds,
                                           krb5_principal client,
                                           krb5_keytab keytab,
                                           krb5_deltat startTime,
                                           const char* service,
                                           krb5_get_init_creds_opt* options) override
    {
        const krb5_error_code result =
            KrbAPIWrapper::krb5GetInitCredsKeytab(context, creds, client, keytab, startTime, service, options);
        if (result == 0)
            m_creds.push_back(*creds);
        return result;
    }

    Kept kept() const { return {m_entries.size(), m_keys.size(), m_creds.size()}; }

    void freeAll()
    {
        for (krb5_keytab_entry* entry : m_entries)
            std::free(entry);
        for (krb5_keyblock& key : m_keys)
            krb5FreeKeyblockContents(nullptr, &key);
        for (krb5_creds& creds : m_creds)
            krb5FreeCredContents(nullptr, &creds);
        m_entries.clear();
        m_keys.clear();
        m_creds.clear();
    }

private:
    std::vector<krb5_keytab_entry*> m_entries;
    std::vector<krb5_keyblock> m_keys;
    std::vector<krb5_creds> m_creds;
};

std::ptrdiff_t openDescriptors()
{
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open));
}

/// What a renewal meets, and what it keeps.
struct KeptCase
{
    const char* name;
    const char* user;
    const char* password;
    std::string cacheName;
    std::string keytabName;
    bool kdcRuns;
    std::size_t rounds;
    std::size_t renewals; ///< of all
    std::size_t entries;  ///< kept by each round
    std::size_t keys;
    std::size_t creds;

    friend std::ostream& operator<<(std::ostream& out, const KeptCase& row) { return out << row.name; }
};

class KeptMemoryTest : public testing::TestWithParam<KeptCase>
{
protected:
    void SetUp() override
    {
        if (!Kdc::missing().empty())
            GTEST_SKIP() << Kdc::missing();
        m_kdc = std::make_unique<Kdc>();
        m_kdc->addUser("user", kPassword);
        if (!GetParam().kdcRuns)
            m_kdc->stop();
        m_config = std::make_unique<ClientConfig>(m_kdc->clientConfig());
    }

    std::unique_ptr<Kdc> m_kdc;
    std::unique_ptr<ClientConfig> m_config;
    const TemporaryDirectory m_directory;
    SilentLogger m_logger;
};

TEST_P(KeptMemoryTest, RenewalsKeepEntryKeyAndCredentialsAndNoDescriptor)
{
    const KeptCase& row = GetParam();
    const auto api = std::make_shared<KeepingKrbAPIWrapper>();
    std::string cache = row.cacheName.empty() ? m_directory.file("cache") : row.cacheName;
    std::string keytab = m_directory.file(row.keytabName);
    KrbHandler handler(m_logger, std::make_shared<TAVSystemUtils>(), cache, keytab, api);
    TAVProxyConfig account;
    account.userPrincipal = row.user;
    account.password = row.password;
    handler.configKrbSession(account); // what libkrb5 keeps for good, it makes at the first time
    api->freeAll();

    const std::ptrdiff_t descriptorsBefore = openDescriptors();
    const std::size_t before = liveBlocks();
    std::size_t renewals = 0;
    for (std::size_t round = 0; round < row.rounds; ++round)
        renewals += handler.renewTicket() ? 1U : 0U;
    const std::size_t after = liveBlocks();
    const Kept kept = api->kept();
    api->freeAll();
    const std::size_t freed = liveBlocks();

    EXPECT_EQ(openDescriptors(), descriptorsBefore);
    EXPECT_EQ(renewals, row.renewals);
    EXPECT_EQ(kept.entries, row.rounds * row.entries);
    EXPECT_EQ(kept.keys, row.rounds * row.keys);
    EXPECT_EQ(kept.creds, row.rounds * row.creds);
    EXPECT_EQ(freed, before);
    EXPECT_EQ(after - before, row.rounds * (row.entries + row.keys + row.creds * kBlocksOfCreds));
}

INSTANTIATE_TEST_SUITE_P(
    States,
    KeptMemoryTest,
    testing::Values(KeptCase{"Renewed", kUser, kPassword, "", "keytab", true, kRounds, kRounds, 1, 1, 1},
                    KeptCase{"WrongPassword", kUser, "wrong", "", "keytab", true, kFewRounds, 0, 1, 1, 0},
                    KeptCase{"KdcStopped", kUser, kPassword, "", "keytab", false, kFewRounds, 0, 1, 1, 0},
                    KeptCase{"CacheOfUnknownType", kUser, kPassword, "FOO:x", "keytab", true, kFewRounds, 0, 1, 1, 0},
                    KeptCase{
                        "KeytabDirectoryMissing", kUser, kPassword, "", "missing/keytab", true, kFewRounds, 0, 1, 1, 0},
                    KeptCase{"MalformedPrincipal", "a@b@c", kPassword, "", "keytab", true, kFewRounds, 0, 0, 0, 0}),
    [](const testing::TestParamInfo<KeptCase>& row) { return row.param.name; });

} // namespace
} // namespace TAV::test
