// The two files as they lie on the disk. None of this needs a KDC: a renewal that finds none leaves its keytab.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>

#include "KerberosScene.h"

namespace TAV::test
{
namespace
{

namespace fs = std::filesystem;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char* kNoCredentials = "Kerberos initialization failed.";
constexpr const char* kNoKdc = R"([libdefaults]
  default_realm = TEST.EXAMPLE
  dns_lookup_kdc = false
  dns_lookup_realm = false
)";

struct Entry
{
    std::string principal;
    krb5_timestamp timestamp = 0;
    krb5_kvno version = 0;
    krb5_enctype enctype = 0;
    std::vector<unsigned char> key;
};

/// What libkrb5 reads in a keytab.
class KeytabReader
{
public:
    explicit KeytabReader(const std::string& path)
    {
        EXPECT_EQ(m_api.krb5InitContext(&m_context), 0);
        EXPECT_EQ(m_api.krb5KtResolve(m_context, ("FILE:" + path).c_str(), &m_keytab), 0);
    }
    KeytabReader(const KeytabReader&) = delete;
    KeytabReader& operator=(const KeytabReader&) = delete;
    ~KeytabReader()
    {
        m_api.krb5KtClose(m_context, m_keytab);
        m_api.krb5FreeContext(m_context);
    }

    std::vector<Entry> entries()
    {
        std::vector<Entry> found;
        krb5_kt_cursor cursor = nullptr;
        EXPECT_EQ(m_api.krb5KtStartSeqGet(m_context, m_keytab, &cursor), 0);
        krb5_keytab_entry entry = {};
        krb5_error_code result = 0;
        while ((result = m_api.krb5KtNextEntry(m_context, m_keytab, &entry, &cursor)) == 0)
            found.push_back(taken(entry));
        EXPECT_EQ(result, KRB5_KT_END);
        EXPECT_EQ(m_api.krb5KtEndSeqGet(m_context, m_keytab, &cursor), 0);
        return found;
    }

private:
    Entry taken(krb5_keytab_entry& entry)
    {
        char* name = nullptr;
        EXPECT_EQ(m_api.krb5UnparseName(m_context, entry.principal, &name), 0);
        const krb5_keyblock& key = entry.key;
        Entry copy{name, entry.timestamp, entry.vno, key.enctype, {key.contents, key.contents + key.length}};
        krb5_free_unparsed_name(m_context, name);
        krb5_free_keytab_entry_contents(m_context, &entry);
        return copy;
    }

    KrbAPIWrapper m_api;
    krb5_context m_context = nullptr;
    krb5_keytab m_keytab = nullptr;
};

std::vector<Entry> entriesOf(const KerberosScene& scene)
{
    return KeytabReader(scene.keytabFile()).entries();
}

mode_t modeOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

class KeytabFileTest : public testing::Test
{
protected:
    TemporaryDirectory m_directory;
    const ClientConfig m_config{m_directory.write("krb5.conf", kNoKdc)};
};

/// What the key is made of: MD4 over the password in UTF-16, whoever's it is.
struct PasswordAndKey
{
    const char* name;
    std::string password;
    std::vector<unsigned char> key;

    friend std::ostream& operator<<(std::ostream& out, const PasswordAndKey& row) { return out << row.name; }
};

class KeytabKeyTest : public KeytabFileTest, public testing::WithParamInterface<PasswordAndKey>
{
};

TEST_P(KeytabKeyTest, KeytabHoldsOneEntryWithTheKeyOfThePassword)
{
    KerberosScene scene;
    const std::time_t before = std::time(nullptr);
    scene.renew(kUser, GetParam().password);
    const std::time_t after = std::time(nullptr);

    const std::vector<Entry> entries = entriesOf(scene);

    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].principal, kUser);
    EXPECT_EQ(entries[0].version, 2U);
    EXPECT_EQ(entries[0].enctype, 23);
    EXPECT_EQ(entries[0].key, GetParam().key);
    EXPECT_GE(entries[0].timestamp, before);
    EXPECT_LE(entries[0].timestamp, after);
}

INSTANTIATE_TEST_SUITE_P(
    Passwords,
    KeytabKeyTest,
    testing::Values(
        PasswordAndKey{
            "Letters",
            "userpw",
            {0x2e, 0x24, 0xf9, 0x7b, 0xff, 0x26, 0xb2, 0x45, 0x88, 0x87, 0xa9, 0xb1, 0x6a, 0x3c, 0x2c, 0x39}},
        PasswordAndKey{
            "OtherThanAscii",
            "p\xc3\xa4\xc3\x9fw\xc3\xb6rd\xe2\x82\xac",
            {0x11, 0x87, 0x27, 0x72, 0xa4, 0xb0, 0x62, 0x6d, 0xf0, 0x51, 0x18, 0xc4, 0xd0, 0xf9, 0x9d, 0x5d}},
        PasswordAndKey{
            "Empty",
            "",
            {0x31, 0xd6, 0xcf, 0xe0, 0xd1, 0x6a, 0xe9, 0x31, 0xb7, 0x3c, 0x59, 0xd7, 0xe0, 0xc0, 0x89, 0xc0}}),
    [](const testing::TestParamInfo<PasswordAndKey>& row) { return row.param.name; });

class KeytabModeTest : public KeytabFileTest, public testing::WithParamInterface<mode_t>
{
};

TEST_P(KeytabModeTest, OnlyTheOwnerMayReadTheKeytab)
{
    KerberosScene scene;
    const mode_t usual = ::umask(GetParam());
    scene.renew();
    ::umask(usual);

    EXPECT_EQ(modeOf(scene.keytabFile()), 0600U);
}

INSTANTIATE_TEST_SUITE_P(Umasks,
                         KeytabModeTest,
                         testing::Values(0000, 0022, 0077),
                         [](const testing::TestParamInfo<mode_t>& mask)
                         {
                             std::ostringstream digits;
                             digits << std::oct << std::setfill('0') << std::setw(3) << mask.param;
                             return digits.str();
                         });

TEST_F(KeytabFileTest, FileThatOthersMayReadIsReplaced)
{
    KerberosScene scene;
    std::ofstream(scene.keytabFile()) << "not a keytab";
    ASSERT_EQ(::chmod(scene.keytabFile().c_str(), 0644), 0);

    const Renewal renewal = scene.renew();

    EXPECT_THAT(renewal.log, ElementsAreArray(noCacheToRemove() + failureLine(kNoCredentials)));
    EXPECT_EQ(modeOf(scene.keytabFile()), 0600U);
    EXPECT_EQ(entriesOf(scene).size(), 1U);
}

TEST_F(KeytabFileTest, RenewalsDoNotPileUpEntries)
{
    KerberosScene scene;
    scene.renew("first@TEST.EXAMPLE");
    scene.renew("second@TEST.EXAMPLE");

    const std::vector<Entry> entries = entriesOf(scene);

    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].principal, "second@TEST.EXAMPLE");
}

TEST_F(KeytabFileTest, LinkIsReplacedAndNotFollowed)
{
    KerberosScene scene;
    std::ofstream(scene.file("precious")) << "precious";
    fs::create_symlink(scene.file("precious"), scene.keytabFile());

    scene.renew();

    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(scene.keytabFile())));
    EXPECT_EQ(readFile(scene.file("precious")), "precious");
}

TEST_F(KeytabFileTest, EmptyDirectoryInItsPlaceIsRemoved)
{
    KerberosScene scene;
    fs::create_directory(scene.keytabFile());

    const Renewal renewal = scene.renew();

    EXPECT_THAT(renewal.log, ElementsAreArray(noCacheToRemove() + failureLine(kNoCredentials)));
    EXPECT_EQ(entriesOf(scene).size(), 1U);
}

TEST_F(KeytabFileTest, CacheIsRemovedByRenewalAndNotMadeAgain)
{
    KerberosScene scene;
    std::ofstream(scene.cacheFile()) << "an old cache";

    const Renewal renewal = scene.renew();

    EXPECT_THAT(renewal.log, ElementsAreArray(noKeytabToRemove() + failureLine(kNoCredentials)));
    EXPECT_EQ(scene.files(), std::vector<std::string>{"keytab"});
}

TEST_F(KeytabFileTest, NeitherFileOutlivesTheHandler)
{
    KerberosScene scene;
    scene.renew();
    std::ofstream(scene.cacheFile()) << "a cache";

    EXPECT_THAT(scene.end(), IsEmpty());
    EXPECT_THAT(scene.files(), IsEmpty());
}

TEST_F(KeytabFileTest, FilesThatWereNeverMadeAreMissedAtTheEnd)
{
    KerberosScene scene;

    EXPECT_THAT(
        scene.end(),
        testing::ElementsAre(
            failureLine("Either kerberos credentials cache file not found or could not be deleted during shutdown"),
            failureLine("Either kerberos keytab file not found or could not be deleted during shutdown")));
}

} // namespace
} // namespace TAV::test
