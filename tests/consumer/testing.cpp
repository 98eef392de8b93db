// A program outside the tree that tests its own code with the ready-made test doubles, and no test framework.
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "tav/FMXException.h"
#include "tav/TAVUtils.h"
#include "tav/testing/FakeCurlWrapper.h"
#include "tav/testing/FakeQelSSL.h"
#include "tav/testing/FakeTAVSystemUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace
{

bool expect(bool holds, const char* what)
{
    std::printf("%s: %s\n", holds ? "ok" : "FAILED", what);
    return holds;
}

/// What is tested: whether a file is known to be clean. Only a whole answer counts.
bool isClean(TAV::IQelSSL& ssl, TAV::ICurlWrapper& client, const std::string& path)
try
{
    std::string md5;
    std::string sha1;
    std::string sha256;
    if (!ssl.getChecksumValues(path, TAV::INPUT_FILE_PATH, md5, sha1, sha256))
        return false;
    TAV::TAVHTTPHeader header;
    TAV::LumoStats stats;
    std::string response;
    client.initSession(1);
    const bool answered = client.sendNetworkRequest(header, sha256, response, 1, stats);
    return client.deInitSession(1) && answered && response == "clean";
}
catch (const TAV::FMXException&)
{
    return false;
}

bool showsAFailureOfTheSystem()
{
    TAV::test::RecordingLogger logger;
    const auto system = std::make_shared<TAV::test::FakeTAVSystemUtils>();
    system->failCall("pipe", 1, EMFILE);
    TAV::TAVUtils utils(system, logger, std::make_shared<TAV::kernelVersion>());
    const bool ran = utils.executeSystemCommand({"/bin/true"}, nullptr);
    return expect(!ran && system->hasFailed() && system->countOf("fork") == 0, "a command without a pipe fails") &&
           expect(logger.lines().back().message == "Failed to create Pipe FD to execute system command",
                  "and is logged");
}

/// One call after the other fails, of both services, until none is left to fail.
bool sweeps()
{
    bool good = true;
    for (unsigned int nth = 1;; ++nth)
    {
        const auto plan = std::make_shared<TAV::test::FaultPlan>();
        TAV::test::FakeQelSSL ssl(plan);
        TAV::test::FakeCurlWrapper client(plan);
        client.configureOptions({}, 0);
        client.answer.body = "clean";
        ssl.checksums["/sample"] = {"", "", "ba78"};

        plan->failAnyCall(nth);
        const bool clean = isClean(ssl, client, "/sample");
        if (!plan->hasFailed())
            return expect(good && clean && nth == 5, "clean if no call fails, and if one of four fails, not");
        good = good && !clean;
    }
}

} // namespace

int main()
{
    const bool good = showsAFailureOfTheSystem();
    return sweeps() && good ? 0 : 1;
}
