// What the handler's constructor checks, sets and throws.
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "KrbFixture.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kKeytabNotSet = "1: Credentials cache filepath environment variable failed to set.";
constexpr const char* kCacheNotSet = "1: Keytab filepath environment variable failed to set.";

/// Makes handlers itself.
class KrbConstructionTest : public KrbFixture
{
protected:
    KrbConstructionTest()
    {
        handler.reset();
        newLines();
        system = std::make_shared<FakeTAVSystemUtils>();
        system->onSetenv = [](const char*, const char*, int, int&) { return 0; };
    }

    std::string thrown()
    {
        return thrownBy([&] { handler = newHandler(); });
    }

    std::string setKeytab() const { return "setenv(KRB5_CLIENT_KTNAME, " + keytabPath + ", 1)"; }
    std::string setCache() const { return "setenv(KRB5CCNAME, " + cachePath + ", 1)"; }
};

TEST_F(KrbConstructionTest, PublishesKeytabThenCacheOverwriting)
{
    EXPECT_EQ(thrown(), "nothing");
    EXPECT_THAT(system->calls(), ElementsAre(setKeytab(), setCache()));
}

TEST_F(KrbConstructionTest, MakesNoKerberosCallAndLogsNothing)
{
    handler = newHandler();
    EXPECT_THAT(api->calls(), IsEmpty());
    EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(KrbConstructionTest, TouchesNoFile)
{
    directory.write("cache", "old cache");
    handler = newHandler();
    EXPECT_EQ(readFile(cachePath), "old cache");
    EXPECT_FALSE(std::filesystem::exists(keytabPath));
}

TEST_F(KrbConstructionTest, RefusesAnEmptyCachePath)
{
    cachePath.clear();
    EXPECT_EQ(thrown(), "1: Cache file path not provided.");
    EXPECT_THAT(system->calls(), IsEmpty());
}

TEST_F(KrbConstructionTest, RefusesAnEmptyKeytabPath)
{
    keytabPath.clear();
    EXPECT_EQ(thrown(), "1: Keytab file path not provided.");
    EXPECT_THAT(system->calls(), IsEmpty());
}

TEST_F(KrbConstructionTest, LooksAtTheCachePathFirst)
{
    cachePath.clear();
    keytabPath.clear();
    EXPECT_EQ(thrown(), "1: Cache file path not provided.");
}

TEST_F(KrbConstructionTest, NamesTheCacheWhenTheKeytabCannotBeSet)
{
    system->failCall("setenv", 1, ENOMEM);
    EXPECT_EQ(thrown(), kKeytabNotSet);
    EXPECT_THAT(system->calls(), ElementsAre(setKeytab()));
}

TEST_F(KrbConstructionTest, NamesTheKeytabWhenTheCacheCannotBeSet)
{
    system->failCall("setenv", 2, ENOMEM);
    EXPECT_EQ(thrown(), kCacheNotSet);
    EXPECT_THAT(system->calls(), ElementsAre(setKeytab(), setCache()));
}

TEST_F(KrbConstructionTest, TakesEachResultButZeroForAFailure)
{
    for (const int result : {-1, 1, 2})
    {
        system->onSetenv = [&](const char* name, const char*, int, int&)
        { return name == std::string("KRB5_CLIENT_KTNAME") ? result : 0; };
        EXPECT_EQ(thrown(), kKeytabNotSet) << result;
        system->onSetenv = [&](const char* name, const char*, int, int&)
        { return name == std::string("KRB5CCNAME") ? result : 0; };
        EXPECT_EQ(thrown(), kCacheNotSet) << result;
    }
}

TEST_F(KrbConstructionTest, DoesNotReadTheError)
{
    system->onSetenv = [](const char*, const char*, int, int& err)
    {
        err = EINVAL;
        return 0;
    };
    EXPECT_EQ(thrown(), "nothing");
}

TEST_F(KrbConstructionTest, AFailureLeavesFilesAndLogAlone)
{
    directory.write("cache", "old cache");
    directory.write("keytab", "old keytab");
    system->failCall("setenv", 2, ENOMEM);
    EXPECT_EQ(thrown(), kCacheNotSet);
    EXPECT_EQ(readFile(cachePath), "old cache");
    EXPECT_EQ(readFile(keytabPath), "old keytab");
    EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(KrbConstructionTest, ChangesTheVariablesOfTheProcess)
{
    ::setenv("KRB5_CLIENT_KTNAME", "/other/keytab", 1);
    ::setenv("KRB5CCNAME", "/other/cache", 1);
    system->onSetenv = nullptr;
    handler = newHandler();
    EXPECT_EQ(std::getenv("KRB5_CLIENT_KTNAME"), keytabPath);
    EXPECT_EQ(std::getenv("KRB5CCNAME"), cachePath);

    handler.reset();
    EXPECT_EQ(std::getenv("KRB5_CLIENT_KTNAME"), keytabPath) << "the end leaves them";
    EXPECT_EQ(std::getenv("KRB5CCNAME"), cachePath);
    ::unsetenv("KRB5_CLIENT_KTNAME");
    ::unsetenv("KRB5CCNAME");
}

TEST_F(KrbConstructionTest, CopiesBothPaths)
{
    const Texts expected = renewalCalls();
    std::string cache = cachePath;
    std::string keytab = keytabPath;
    handler = std::make_unique<KrbHandler>(logger, system, cache, keytab, api);
    cache = "/elsewhere/cache";
    keytab = "/elsewhere/keytab";
    EXPECT_TRUE(handler->configKrbSession(config));
    EXPECT_EQ(api->calls(), expected);
}

TEST_F(KrbConstructionTest, DoesNotLookAtTheCallLayer)
{
    api->onCall = [](const std::string&) { FAIL() << "called"; };
    const KrbHandler withoutLayer(logger, system, cachePath, keytabPath, nullptr);
    EXPECT_THAT(system->calls(), ElementsAre(setKeytab(), setCache()));
}

TEST_F(KrbConstructionTest, LetsExceptionsOfTheSystemPass)
{
    for (const std::string variable : {"KRB5_CLIENT_KTNAME", "KRB5CCNAME"})
    {
        system->onSetenv = [&](const char* name, const char*, int, int&)
        { return name == variable ? throw std::length_error(variable) : 0; };
        EXPECT_THAT([&] { newHandler(); }, testing::ThrowsMessage<std::length_error>(variable));
    }
}

/// Tells when the last share of it goes.
template <typename Layer>
std::shared_ptr<Layer> toldOf(std::shared_ptr<Layer> layer, const std::string& name, Texts& released)
{
    return {layer.get(), [layer, name, &released](Layer*) { released.push_back(name); }};
}

TEST_F(KrbConstructionTest, AFailureReleasesTheLayersInReverseOrder)
{
    Texts released;
    system->failCall("setenv", 1, ENOMEM);
    // Shares that the caller has moved into the constructor's arguments end with the members.
    const auto construct = [&]
    { KrbHandler(logger, toldOf(system, "system", released), cachePath, keytabPath, toldOf(api, "api", released)); };
    EXPECT_EQ(thrownBy(construct), kKeytabNotSet);
    EXPECT_THAT(released, ElementsAre("system", "api"));
}

TEST_F(KrbConstructionTest, TheEndReleasesTheLayersInReverseOrder)
{
    Texts released;
    handler = std::make_unique<KrbHandler>(
        logger, toldOf(system, "system", released), cachePath, keytabPath, toldOf(api, "api", released));
    EXPECT_THAT(released, IsEmpty());
    handler.reset();
    EXPECT_THAT(released, ElementsAre("system", "api"));
}

} // namespace
} // namespace TAV::test
