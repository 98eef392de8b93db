// What a renewal makes of each state of KDC, account, configuration and files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "KdcStates.h"
#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"

namespace TAV::test
{
namespace
{

using std::chrono::steady_clock;
using testing::ElementsAreArray;

/// What ends at once is not expected to take longer even on a loaded machine; what waits for an answer takes longer
/// even on an idle one.
constexpr std::chrono::seconds kAtOnce{10};

/// A renewal under given circumstances.
class ArrangedRenewal
{
public:
    explicit ArrangedRenewal(const KdcState& state)
        : m_circumstances(arranged(state)), m_kdc(m_circumstances.kdc),
          m_scene(m_circumstances.cacheName, m_circumstances.keytabName)
    {
        m_kdc.addUser("user", kPassword, m_circumstances.accountOptions);
        if (m_circumstances.change)
            m_circumstances.change(m_kdc);
        if (m_circumstances.prepare)
            m_circumstances.prepare(m_scene);
    }

    /// What libkrb5 is to read.
    std::string configFile() const
    {
        const std::string& text = m_circumstances.configText;
        return text.empty() ? m_kdc.clientConfig() : m_directory.write("own.conf", text);
    }

    /// For the whole process.
    ClientConfig useConfig() const { return ClientConfig(configFile(), m_circumstances.defaults); }

    void run()
    {
        const auto begin = steady_clock::now();
        m_renewal = m_scene.renew(m_circumstances.user, m_circumstances.password);
        m_duration = steady_clock::now() - begin;
    }

    const Renewal& result() const { return m_renewal; }
    steady_clock::duration duration() const { return m_duration; }
    std::vector<std::string> files() const { return m_scene.files(); }

private:
    static Circumstances arranged(const KdcState& state)
    {
        Circumstances circumstances;
        state.arrange(circumstances);
        return circumstances;
    }

    Circumstances m_circumstances;
    TemporaryDirectory m_directory;
    Kdc m_kdc;
    KerberosScene m_scene;
    Renewal m_renewal;
    steady_clock::duration m_duration{};
};

std::vector<std::string> filesOf(const KdcState& state)
{
    const std::string name = state.files;
    return name.empty() ? std::vector<std::string>{} : std::vector<std::string>{name};
}

void expectOutcome(const KdcState& state, const ArrangedRenewal& renewal)
{
    EXPECT_EQ(renewal.result().renewed, state.reason == nullptr);
    EXPECT_EQ(renewal.result().error, state.error);
    EXPECT_THAT(renewal.result().log, ElementsAreArray(expectedLog(state)));
    EXPECT_EQ(renewal.files(), filesOf(state));
}

class KdcStateTest : public testing::TestWithParam<KdcState>
{
protected:
    void SetUp() override
    {
        if (!Kdc::missing().empty())
            GTEST_SKIP() << Kdc::missing();
    }
};

TEST_P(KdcStateTest, RenewalEndsAsOnThePage)
{
    ArrangedRenewal renewal(GetParam());
    const ClientConfig config = renewal.useConfig();

    renewal.run();

    expectOutcome(GetParam(), renewal);
    EXPECT_LT(renewal.duration(), kAtOnce);
}

INSTANTIATE_TEST_SUITE_P(Kdc,
                         KdcStateTest,
                         testing::ValuesIn(promptStates()),
                         [](const testing::TestParamInfo<KdcState>& state) { return state.param.name; });

/// Together, because each takes its time.
TEST(KdcSilenceTest, RenewalGivesUpAfterTheTimeOnThePage)
{
    if (!Kdc::missing().empty())
        GTEST_SKIP() << Kdc::missing();
    std::vector<std::unique_ptr<ArrangedRenewal>> renewals;
    std::string configs;
    for (const KdcState& state : silentStates())
    {
        renewals.push_back(std::make_unique<ArrangedRenewal>(state));
        configs += renewals.back()->configFile() + ":";
    }
    const ClientConfig config(configs);

    std::vector<std::thread> threads;
    for (const auto& renewal : renewals)
        threads.emplace_back([&renewal] { renewal->run(); });
    for (std::thread& thread : threads)
        thread.join();

    for (std::size_t i = 0; i < renewals.size(); ++i)
    {
        const KdcState& state = silentStates()[i];
        SCOPED_TRACE(state.state);
        expectOutcome(state, *renewals[i]);
        EXPECT_GT(renewals[i]->duration(), std::chrono::seconds(state.seconds - 1));
        EXPECT_LT(renewals[i]->duration(), std::chrono::seconds(state.seconds) + kAtOnce);
    }
}

TEST(KdcReturnTest, RenewalFailsWhileTheKdcIsGoneAndSucceedsWhenItIsBack)
{
    if (!Kdc::missing().empty())
        GTEST_SKIP() << Kdc::missing();
    Kdc kdc;
    kdc.addUser("user", kPassword);
    const ClientConfig config(kdc.clientConfig());
    KerberosScene scene;
    ASSERT_TRUE(scene.renew().renewed);

    for (const KdcState& state : laterStates())
    {
        SCOPED_TRACE(state.state);
        if (state.reason == nullptr)
            kdc.start();
        else
            kdc.stop();

        const Renewal renewal = scene.renewAgain();

        EXPECT_EQ(renewal.renewed, state.reason == nullptr);
        EXPECT_EQ(renewal.error, state.error);
        EXPECT_THAT(renewal.log, ElementsAreArray(noCacheToRemove() + lastLine(state)));
        EXPECT_EQ(scene.files(), filesOf(state));
    }
}

TEST(KdcAccountTest, Rc4KeyComesWithTheNextPasswordIfAskedFor)
{
    if (!Kdc::missing().empty())
        GTEST_SKIP() << Kdc::missing();
    Kdc kdc;
    const ClientConfig config(kdc.clientConfig());
    KerberosScene scene;
    kdc.administer({"addprinc", "-clearpolicy", "-pw", kPassword, "user"});
    EXPECT_EQ(scene.renew().error, KRB5_KT_NOTFOUND);

    kdc.administer(
        {"change_password", "-e", "aes256-cts-hmac-sha1-96:normal,arcfour-hmac:normal", "-pw", "newpw", "user"});

    EXPECT_TRUE(scene.renew(kUser, "newpw").renewed);
}

/// In a process without any network, so that nobody is asked.
TEST(KdcConfigTest, RenewalWithoutConfigDoesNotFindTheRealm)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&notes]
        {
            if (::unshare(::getuid() == 0 ? CLONE_NEWNET : CLONE_NEWUSER | CLONE_NEWNET) != 0)
            {
                notes.add("skip");
                return;
            }
            KerberosScene scene;
            ::setenv("KRB5_CONFIG", scene.file("missing.conf").c_str(), 1);
            const auto begin = steady_clock::now();
            const Renewal renewal = scene.renew();
            notes.add(renewal.renewed ? "true" : "false");
            notes.add(std::to_string(renewal.error));
            for (const LogLine& line : renewal.log)
                notes.add(testing::PrintToString(line));
            for (const std::string& name : scene.files())
                notes.add(name);
            notes.add(steady_clock::now() - begin < kAtOnce ? "at once" : "late");
        });
    ASSERT_EQ(process.wait(), 0);
    if (notes.lines() == std::vector<std::string>{"skip"})
        GTEST_SKIP() << "no network namespace can be made here";

    const KdcState& state = unconfiguredState();
    std::vector<std::string> expected{"false", std::to_string(state.error)};
    for (const LogLine& line : expectedLog(state))
        expected.push_back(testing::PrintToString(line));
    expected.insert(expected.end(), {state.files, "at once"});
    EXPECT_EQ(notes.lines(), expected);
}

TEST(KdcPageTest, TableHoldsEveryStateAndNothingElse)
{
    std::string table = "| state | result | last log line (level: text) | files left | time | pinned by |\n"
                        "|---|---|---|---|---|---|\n";
    for (const KdcState& state : promptStates())
        table += pageRow(state, std::string("KdcStateTest.RenewalEndsAsOnThePage/") + state.name);
    table += pageRow(unconfiguredState(), "KdcConfigTest.RenewalWithoutConfigDoesNotFindTheRealm");
    for (const KdcState& state : silentStates())
        table += pageRow(state, "KdcSilenceTest.RenewalGivesUpAfterTheTimeOnThePage");
    for (const KdcState& state : laterStates())
        table += pageRow(state, "KdcReturnTest.RenewalFailsWhileTheKdcIsGoneAndSucceedsWhenItIsBack");

    const std::string page = readFile(TAV_SOURCE_DIR "/docs/kerberos.md");
    const std::string begin = "<!-- KDC states -->\n";
    const std::size_t at = page.find(begin) + begin.size();
    EXPECT_EQ(page.substr(at, page.find("<!-- KDC states: end -->") - at), table);
}

} // namespace
} // namespace TAV::test
