#include <functional>
#include <new>
#include <stdexcept>

#include "CurlFixture.h"

namespace TAV
{
namespace
{

using namespace test;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<LogLine>;

enum class Stage
{
    Nothing,
    Constructed,
    Configured,
    Open, ///< session 1
};

/// A client at some stage, with all that its operations need. Each transfer brings a body.
struct Scene
{
    explicit Scene(Stage stage, ILogger* other = nullptr)
    {
        api->onTransfer = [](std::string& target) { target += "body"; };
        api->times = {{CURLINFO_APPCONNECT_TIME, 0.05}, {CURLINFO_TOTAL_TIME, 0.06}};
        if (stage != Stage::Nothing)
            client = std::make_unique<CurlWrapper>(logger, api);
        if (stage == Stage::Configured || stage == Stage::Open)
            client->configureOptions(sampleConfig(), 1);
        if (stage == Stage::Open)
            client->initSession(1);
        logger.next = other;
        api->takeCalls();
    }

    void construct() { client = std::make_unique<CurlWrapper>(logger, api); }

    std::string send(long status)
    {
        api->numbers[CURLINFO_RESPONSE_CODE] = status;
        TAVHTTPHeader header = sampleHeader();
        return client->sendNetworkRequest(header, "payload", response, 1, stats) ? "true" : "false";
    }

    /// What a caller holds: response, total and TLS time.
    std::string outputs() const
    {
        return response + " " + std::to_string(stats.totalTimeMs) + " " + std::to_string(stats.tlsConnectTimeMs);
    }

    /// Keeps the lines, and hands them on if told so.
    struct Logger : RecordingLogger
    {
        void log(int level, std::string message) override
        {
            if (next != nullptr)
                next->log(level, message);
            RecordingLogger::log(level, message);
        }
        void log(int level, std::string component, const std::string& message) override
        {
            if (next != nullptr)
                next->log(level, component, message);
            RecordingLogger::log(level, component, message);
        }
        ILogger* next = nullptr;
    };

    Logger logger;
    std::shared_ptr<FakeCurlAPIUtility> api = std::make_shared<FakeCurlAPIUtility>();
    std::unique_ptr<CurlWrapper> client;
    std::string response = "before:";
    LumoStats stats{1, 2, 3, 4};
};

/// What comes of an operation.
struct Outcome
{
    std::string result; ///< "true", "false", "nothing", or what is thrown
    Lines lines = {};
    std::string outputs = "before: 3 4";
    bool listIsLeft = false;
};

struct Operation
{
    const char* name;
    Stage stage;
    std::string (*run)(Scene&);
    Outcome success;
    std::vector<Outcome> (*failures)(Lasting); ///< for each call that can fail, in order
    bool isOpenAfterSuccess;
    bool isOpenAfterFailure;

    friend std::ostream& operator<<(std::ostream& out, const Operation& operation) { return out << operation.name; }
};

std::vector<Outcome> none(Lasting /*unused*/)
{
    return {};
}

std::vector<Outcome> constructionFailures(Lasting /*unused*/)
{
    return {{"1: cURL global intialization failure", {line(2, "Initialization failed with error message: 27")}}};
}

Outcome refused(const char* group, const char* sentence)
{
    return {std::string("1: cURL configuration failed while setting ") + group + " config.",
            {line(2, sentence + std::string("text of 27"))}};
}

std::vector<Outcome> proxyFailures(Lasting /*unused*/)
{
    return {refused("proxy", "Failed to set proxy authentication option with error message: "),
            refused("proxy", "Failed to set http proxy tunneling option with error message: "),
            refused("proxy", "Failed to set proxy authentication URL option with error message: "),
            refused("proxy", "Failed to set credentials for proxy configuration with error message: ")};
}

std::vector<Outcome> openingFailures(Lasting lasting)
{
    std::vector<Outcome> all{
        {"1: Failed to initialize curl handle"},
        {"1: Failed to set callback function with error: text of 27"},
        refused("common", "Failed to set cURL timeout with error message: "),
        refused("common", "Failed to set cURL request type with error message: "),
        refused("common", "Failed to set cURL URL with error message: "),
        refused("SSL", "Failed to set CA certificate with error message: "),
        refused("SSL", "Failed to set SSL peer verification option with error message: "),
        refused("SSL", "Failed to set SSL host verification option with error message: "),
        refused("SSL", "Failed to set SSL session-id caching option with error message: "),
        refused("SSL", "Failed to set TLS 1.2: "),
    };
    const auto proxy = proxyFailures(lasting);
    all.insert(all.end(), proxy.begin(), proxy.end());
    return all;
}

constexpr const char* kNotAppended = "1: Failed to append data to curl slist";
constexpr const char* kUnreadable = "1: Parsing of cURL response code failed.";

Lines threeLines(const std::string& transfer)
{
    return {line(6, "Failed to connect to Lumo server: " + transfer),
            line(6, "Last HTTP response code received from Lumo server is: 404"),
            line(6, "Last HTTP response message received from Lumo server is: Not Found")};
}

/// Up to the transfer alike for any answer.
std::vector<Outcome> requestFailures()
{
    const std::string before = "before: 3 4";
    return {{kNotAppended},
            {kNotAppended, {}, before, true},
            {kNotAppended, {}, before, true},
            {kNotAppended, {}, before, true},
            {kNotAppended, {}, before, true},
            {"1: cURL HTTP header creation failed", {}, before, true},
            {"1: cURL payload size setting failed", {}, before, true},
            {"1: cURL payload setting failed", {}, before, true},
            {"1: cURL response string setting failed", {}, before, true}};
}

std::vector<Outcome> successFailures(Lasting lasting)
{
    std::vector<Outcome> all = requestFailures();
    // A failed transfer alone changes nothing: the status decides.
    all.push_back(lasting == Lasting::Once ? Outcome{"true", {}, "before:body 60 50"}
                                           : Outcome{kUnreadable, {}, "before:body 3 4"});
    all.push_back({kUnreadable, {}, "before:body 3 4"});
    all.push_back({kUnreadable, {}, "before:body 3 4"});
    all.push_back({kUnreadable, {}, "before:body 3 50"});
    return all;
}

std::vector<Outcome> refusalFailures(Lasting lasting)
{
    std::vector<Outcome> all = requestFailures();
    all.push_back(lasting == Lasting::Once ? Outcome{"false", threeLines("text of 27"), "before:body 3 4"}
                                           : Outcome{kUnreadable, {}, "before:body 3 4"});
    all.push_back({kUnreadable, {}, "before:body 3 4"});
    return all;
}

std::string construct(Scene& scene)
{
    return thrownBy([&] { scene.construct(); });
}

std::string configure(Scene& scene)
{
    return thrownBy([&] { scene.client->configureOptions(otherConfig(), 1); });
}

std::string openSession(Scene& scene)
{
    return thrownBy([&] { scene.client->initSession(1); });
}

std::string closeSession(Scene& scene)
{
    return scene.client->deInitSession(1) ? "true" : "false";
}

template <long status>
std::string send(Scene& scene)
{
    std::string result;
    const std::string thrown = thrownBy([&] { result = scene.send(status); });
    return thrown == "nothing" ? result : thrown;
}

std::string destroy(Scene& scene)
{
    scene.client.reset();
    return "nothing";
}

const Outcome kNothing{"nothing"};

const Operation kOperations[] = {
    {"Construction", Stage::Nothing, &construct, kNothing, &constructionFailures, false, false},
    {"FirstConfiguration", Stage::Constructed, &configure, kNothing, &none, false, false},
    {"LaterConfiguration", Stage::Open, &configure, kNothing, &proxyFailures, true, true},
    {"Opening", Stage::Configured, &openSession, kNothing, &openingFailures, true, false},
    {"OpeningAgain", Stage::Open, &openSession, kNothing, &openingFailures, true, true},
    {"Closing", Stage::Open, &closeSession, {"true"}, &none, false, false},
    {"Success", Stage::Open, &send<200>, {"true", {}, "before:body 60 50"}, &successFailures, true, true},
    {"Refusal",
     Stage::Open,
     &send<404>,
     {"false", threeLines("text of 0"), "before:body 3 4"},
     &refusalFailures,
     true,
     true},
    {"Destruction", Stage::Open, &destroy, kNothing, &none, false, false},
};

class CurlFailureSweepTest : public testing::TestWithParam<Operation>
{
protected:
    static void compare(Scene& scene, const std::string& result, const Outcome& expected)
    {
        EXPECT_EQ(result, expected.result);
        EXPECT_EQ(scene.logger.lines(), expected.lines);
        EXPECT_EQ(scene.outputs(), expected.outputs);
        EXPECT_EQ(scene.stats.attempts, 1);
        EXPECT_EQ(scene.stats.queueTimeMs, 2);
    }

    /// Ends the client: whether the session was open, and what stays in memory then.
    static void finish(Scene& scene, bool isOpen, const Texts& left)
    {
        EXPECT_TRUE(isFree(configurationLock()));
        scene.api->succeed();
        scene.api->onCall = nullptr;
        scene.logger.next = nullptr;
        EXPECT_EQ(scene.client != nullptr && scene.client->deInitSession(1), isOpen);
        scene.client.reset();
        EXPECT_EQ(scene.api->problems(), left);
    }

    static void sweep(Lasting lasting)
    {
        const Operation& operation = GetParam();
        const std::vector<Outcome> failures = operation.failures(lasting);
        for (unsigned int nth = 1;; ++nth)
        {
            SCOPED_TRACE("call " + std::to_string(nth) + " fails");
            Scene scene(operation.stage);
            scene.api->failAnyCall(nth, CURLE_OUT_OF_MEMORY, lasting);
            const std::string result = operation.run(scene);
            if (!scene.api->hasFailed())
            {
                compare(scene, result, operation.success);
                finish(scene, operation.isOpenAfterSuccess, {});
                EXPECT_EQ(nth, failures.size() + 1) << "as many calls can fail as are listed";
                return;
            }
            ASSERT_LE(nth, failures.size());
            const Outcome& expected = failures[nth - 1];
            compare(scene, result, expected);
            finish(scene, operation.isOpenAfterFailure, expected.listIsLeft ? Texts{"list 1 not released"} : Texts{});
        }
    }
};

TEST_P(CurlFailureSweepTest, EachCallThatFailsOnceHasItsOneOutcome)
{
    sweep(Lasting::Once);
}

TEST_P(CurlFailureSweepTest, EachCallThatFailsFromThenOnHasItsOneOutcome)
{
    sweep(Lasting::FromThenOn);
}

/// Not an exception of the standard library, so that only catching everything could swallow it.
struct Interruption
{
};

/// Whether an interruption reaches the caller.
bool isInterrupted(const Operation& operation, Scene& scene)
{
    try
    {
        operation.run(scene);
        return false;
    }
    catch (const Interruption&)
    {
        return true;
    }
}

/// The calls of an operation in which option setting fails at `failing`, 0 for none, without those that release: an
/// exception cannot leave a destructor.
Texts callsThatMayThrow(const Operation& operation, unsigned int failing)
{
    Scene scene(operation.stage);
    scene.api->failAnyCall(failing, CURLE_OUT_OF_MEMORY);
    operation.run(scene);
    Texts calls;
    for (const std::string& call : scene.api->calls())
    {
        if (call.find("Cleanup") == std::string::npos)
            calls.push_back(call);
    }
    return calls;
}

TEST_P(CurlFailureSweepTest, ExceptionOfAnyCallReachesTheCaller)
{
    const Operation& operation = GetParam();
    for (unsigned int failing = 0; failing <= operation.failures(Lasting::Once).size(); ++failing)
    {
        const Texts calls = callsThatMayThrow(operation, failing);
        for (const std::string& doomed : calls)
        {
            SCOPED_TRACE(doomed);
            Scene scene(operation.stage);
            scene.api->failAnyCall(failing, CURLE_OUT_OF_MEMORY);
            scene.api->onCall = [&](const std::string& call)
            {
                if (call == doomed)
                    throw Interruption();
            };
            EXPECT_TRUE(isInterrupted(operation, scene));
            // What becomes of the list then is nobody's promise.
            const bool listIsLeft = scene.api->problems().size() > 1;
            finish(scene, operation.isOpenAfterFailure, listIsLeft ? Texts{"list 1 not released"} : Texts{});
        }
    }
}

/// Throws at one line.
class ThrowingLogger : public ILogger
{
public:
    explicit ThrowingLogger(std::string doomed) : m_doomed(std::move(doomed)) {}
    void log(int, std::string message) override { check(message); }
    void log(int, std::string, const std::string& message) override { check(message); }

private:
    void check(const std::string& message) const
    {
        if (message == m_doomed)
            throw Interruption();
    }

    std::string m_doomed;
};

TEST_P(CurlFailureSweepTest, ExceptionOfTheLoggerReachesTheCaller)
{
    const Operation& operation = GetParam();
    std::vector<Outcome> outcomes = operation.failures(Lasting::Once);
    outcomes.insert(outcomes.begin(), operation.success);
    for (unsigned int failing = 0; failing < outcomes.size(); ++failing)
    {
        for (const LogLine& doomed : outcomes[failing].lines)
        {
            SCOPED_TRACE(doomed.message);
            ThrowingLogger thrower(doomed.message);
            Scene scene(operation.stage, &thrower);
            scene.api->failAnyCall(failing, CURLE_OUT_OF_MEMORY);
            EXPECT_TRUE(isInterrupted(operation, scene));
            finish(scene, operation.isOpenAfterFailure, {});
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Operations,
                         CurlFailureSweepTest,
                         testing::ValuesIn(kOperations),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(UnknownSessionTest, ExceptionOfTheLoggerReachesTheCaller)
{
    ThrowingLogger closing("cURL session id 1 not found for deinit.");
    Scene first(Stage::Configured, &closing);
    EXPECT_THROW(first.client->deInitSession(1), Interruption);
    ThrowingLogger sending("cURL session id 1 not found to perform query.");
    Scene second(Stage::Configured, &sending);
    EXPECT_THROW(second.send(200), Interruption);
}

#if !defined(TAV_NO_ALLOCATION_HOOK)

thread_local unsigned int allocationsLeft = 0;

void failTheLastOne(std::size_t /*unused*/)
{
    if (--allocationsLeft > 0)
        return;
    onAllocation = nullptr;
    throw std::bad_alloc();
}

/// Runs it with the nth allocation failing; whether one failed.
bool runsOutOfMemory(unsigned int nth, const std::function<void()>& run)
{
    allocationsLeft = nth;
    onAllocation = &failTheLastOne;
    try
    {
        run();
    }
    catch (const std::bad_alloc&)
    {
        return true;
    }
    onAllocation = nullptr;
    return false;
}

// Above all the one between the making of a handle and its owner.
TEST(NoMemoryTest, AnyAllocationThatFailsInOpeningKeepsTheSessionFromOpening)
{
    unsigned int nth = 1;
    for (;; ++nth)
    {
        SCOPED_TRACE("allocation " + std::to_string(nth) + " fails");
        Scene scene(Stage::Configured);
        const bool failed = runsOutOfMemory(nth, [&] { scene.client->initSession(1); });
        EXPECT_TRUE(isFree(configurationLock()));
        EXPECT_EQ(scene.client->deInitSession(1), !failed);
        EXPECT_THAT(scene.api->problems(), IsEmpty());
        if (!failed)
            break;
    }
    EXPECT_GT(nth, 14U) << "at least one for each call";
}

#endif

} // namespace
} // namespace TAV
