// Recipe: a call layer under which a session trusts the authorities of its CA file, and nobody else.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>

#include "QueryScene.h"
#include "RawTlsServer.h"
#include "support/MachineCas.h"
#include "support/SacrificialProcess.h"
#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

//! [only given ca]
/// The calls into libcurl, without the directory of authorities that libcurl was built with: what is left is the CA
/// file of the configuration.
class OnlyGivenCa : public TAV::CurlAPIUtility
{
public:
    void* curlEasyInit() override
    {
        void* handle = CurlAPIUtility::curlEasyInit();
        curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr); // refused only where there is no such directory
        return handle;
    }
};
//! [only given ca]

using namespace TAV::test;

/// Whether a server of the test's authority is trusted with this file.
bool ask(const std::shared_ptr<TAV::ICurlAPIUtility>& api, const std::string& caFile)
{
    RawTlsServer server({afterRequest({send(answer("an answer"))})});
    RecordingLogger logger;
    TAV::CurlWrapper client(logger, api);
    client.configureOptions(configTowards(server.port(), caFile), 1);
    client.initSession(1);
    TAV::TAVHTTPHeader header;
    TAV::LumoStats stats;
    std::string response;
    return client.sendNetworkRequest(header, "a question", response, 1, stats);
}

const int kTrusted = W_EXITCODE(0, 0);
const int kRefused = W_EXITCODE(1, 0);

/// Asks a server whose authority the machine knows, with the file of another one.
/// @return how the process ended that asked: kTrusted or kRefused
template <typename Api>
std::optional<int> endWithAnotherFile()
{
    const TemporaryDirectory place;
    SacrificialProcess process(
        [&place]
        {
            giveMachineCas(TestAuthority::shared().caFile(), place);
            ::_exit(ask(std::make_shared<Api>(), TestAuthority::shared().otherCaFile()) ? 0 : 1);
        });
    return process.wait();
}

class OnlyGivenCaTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (const std::string obstacle = obstacleToMachineCas(); !obstacle.empty())
            GTEST_SKIP() << obstacle;
        TestAuthority::shared(); // made here, not in a process that is about to end
    }
};

TEST_F(OnlyGivenCaTest, RefusesAServerThatOnlyTheMachineTrusts)
{
    EXPECT_EQ(endWithAnotherFile<OnlyGivenCa>(), kRefused);
}

TEST_F(OnlyGivenCaTest, IsNeededBecauseTheFileAddsToTheMachinesAuthorities)
{
    EXPECT_EQ(endWithAnotherFile<TAV::CurlAPIUtility>(), kTrusted);
}

TEST_F(OnlyGivenCaTest, TrustsTheFile)
{
    EXPECT_TRUE(ask(std::make_shared<OnlyGivenCa>(), TestAuthority::shared().caFile()));
}

} // namespace
