#include "tav/MagicUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "LibmagicDouble.h"
#include "tav/FMXException.h"

namespace TAV
{
namespace
{

using test::LibmagicDouble;
using testing::ElementsAre;
using testing::IsEmpty;

template <typename Call>
std::optional<FMXException> exceptionOf(const Call& call)
{
    try
    {
        call();
    }
    catch (const FMXException& exception)
    {
        return exception;
    }
    return std::nullopt;
}

class MagicUtilsTest : public testing::Test
{
protected:
    LibmagicDouble libmagic;
    MagicUtils magic;
};

TEST_F(MagicUtilsTest, ConstructionCallsNothing)
{
    EXPECT_THAT(libmagic.calls, IsEmpty());
}

TEST_F(MagicUtilsTest, OpenAsksForTheMimeTypeAlone)
{
    EXPECT_FALSE(exceptionOf([&] { magic.magicOpen(); }));
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)"));
}

TEST_F(MagicUtilsTest, OpenThrowsCodeOneWhenNoInstanceCanBeMade)
{
    libmagic.openAnswer = nullptr;
    const auto exception = exceptionOf([&] { magic.magicOpen(); });
    ASSERT_TRUE(exception);
    EXPECT_EQ(exception->code, 1);
    EXPECT_EQ(exception->message, "Failed to create magic instance");
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)"));
}

TEST_F(MagicUtilsTest, HandleStaysNullAfterAFailedOpen)
{
    libmagic.openAnswer = nullptr;
    EXPECT_THROW(magic.magicOpen(), FMXException);
    magic.magicClose();
    magic.magicFile("x");
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "file(null)"));
}

TEST_F(MagicUtilsTest, OpenAfterAFailedOpenWorks)
{
    libmagic.openAnswer = nullptr;
    EXPECT_THROW(magic.magicOpen(), FMXException);
    libmagic.openAnswer = libmagic.handle(1);
    magic.magicOpen();
    magic.magicClose();
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "open(16)", "close(handle 1)"));
}

TEST_F(MagicUtilsTest, LoadPassesHandleAndPath)
{
    magic.magicOpen();
    const char* path = "/some/database";
    EXPECT_FALSE(exceptionOf([&] { magic.magicLoad(path); }));
    EXPECT_EQ(libmagic.path, path);
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "load(handle 0)"));
}

TEST_F(MagicUtilsTest, LoadPassesTheNullPathOfTheDefaultDatabase)
{
    magic.magicOpen();
    libmagic.path = "something";
    magic.magicLoad(nullptr);
    EXPECT_EQ(libmagic.path, nullptr);
}

TEST_F(MagicUtilsTest, LoadThrowsCodeThreeWithLibmagicsText)
{
    magic.magicOpen();
    libmagic.loadAnswer = -1;
    const auto exception = exceptionOf([&] { magic.magicLoad("/bad"); });
    ASSERT_TRUE(exception);
    EXPECT_EQ(exception->code, 3);
    EXPECT_EQ(exception->message, "the text of the error");
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "load(handle 0)", "error(handle 0)"));
}

TEST_F(MagicUtilsTest, LoadThrowsCodeThreeWithoutATextToo)
{
    magic.magicOpen();
    libmagic.loadAnswer = -1;
    libmagic.errorAnswer = nullptr;
    const auto exception = exceptionOf([&] { magic.magicLoad("/bad"); });
    ASSERT_TRUE(exception);
    EXPECT_EQ(exception->code, 3);
    EXPECT_EQ(exception->message, "");
}

TEST_F(MagicUtilsTest, OnlyMinusOneIsAFailedLoad)
{
    magic.magicOpen();
    for (const int answer : {0, 1, -2})
    {
        libmagic.loadAnswer = answer;
        EXPECT_FALSE(exceptionOf([&] { magic.magicLoad("/database"); })) << answer;
    }
}

TEST_F(MagicUtilsTest, InstanceStaysUsableAfterAFailedLoad)
{
    magic.magicOpen();
    libmagic.loadAnswer = -1;
    EXPECT_THROW(magic.magicLoad("/bad"), FMXException);
    libmagic.loadAnswer = 0;
    EXPECT_FALSE(exceptionOf([&] { magic.magicLoad("/good"); }));
    magic.magicClose();
    EXPECT_THAT(libmagic.calls,
                ElementsAre("open(16)", "load(handle 0)", "error(handle 0)", "load(handle 0)", "close(handle 0)"));
}

TEST_F(MagicUtilsTest, FileReturnsLibmagicsPointerUnchanged)
{
    magic.magicOpen();
    const char* path = "/some/file";
    libmagic.queryAnswer = "text/plain";
    EXPECT_EQ(magic.magicFile(path), libmagic.queryAnswer);
    EXPECT_EQ(libmagic.path, path);
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "file(handle 0)"));
}

TEST_F(MagicUtilsTest, DescriptorReturnsLibmagicsPointerUnchanged)
{
    magic.magicOpen();
    libmagic.queryAnswer = "image/png";
    EXPECT_EQ(magic.magicDescriptor(17), libmagic.queryAnswer);
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "descriptor(handle 0, 17)"));
}

TEST_F(MagicUtilsTest, FailedQueriesReturnNullAndAskForNoError)
{
    magic.magicOpen();
    EXPECT_EQ(magic.magicFile("/missing"), nullptr);
    EXPECT_EQ(magic.magicDescriptor(-1), nullptr);
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "file(handle 0)", "descriptor(handle 0, -1)"));
}

TEST_F(MagicUtilsTest, QueriesBeforeOpenPassTheNullHandle)
{
    EXPECT_EQ(magic.magicFile(nullptr), nullptr);
    EXPECT_EQ(magic.magicDescriptor(0), nullptr);
    EXPECT_THAT(libmagic.calls, ElementsAre("file(null)", "descriptor(null, 0)"));
}

TEST_F(MagicUtilsTest, LoadBeforeOpenPassesTheNullHandle)
{
    libmagic.loadAnswer = -1;
    EXPECT_THROW(magic.magicLoad(nullptr), FMXException);
    EXPECT_THAT(libmagic.calls, ElementsAre("load(null)", "error(null)"));
}

TEST_F(MagicUtilsTest, CloseOfANeverOpenedObjectDoesNothing)
{
    magic.magicClose();
    EXPECT_THAT(libmagic.calls, IsEmpty());
}

TEST_F(MagicUtilsTest, CloseKeepsTheStaleHandle)
{
    magic.magicOpen();
    magic.magicClose();
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "close(handle 0)"));
    // Only possible because the stand-in releases nothing: with libmagic these calls would touch freed memory.
    magic.magicFile("x");
    magic.magicClose();
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "close(handle 0)", "file(handle 0)", "close(handle 0)"));
}

TEST_F(MagicUtilsTest, OpenAfterCloseTakesTheNewHandle)
{
    magic.magicOpen();
    magic.magicClose();
    libmagic.openAnswer = libmagic.handle(1);
    magic.magicOpen();
    magic.magicClose();
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "close(handle 0)", "open(16)", "close(handle 1)"));
}

TEST_F(MagicUtilsTest, SecondOpenLosesTheFirstInstance)
{
    magic.magicOpen();
    libmagic.openAnswer = libmagic.handle(1);
    magic.magicOpen();
    magic.magicClose();
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)", "open(16)", "close(handle 1)"));
}

TEST_F(MagicUtilsTest, DestructorDoesNotCloseTheInstance)
{
    std::unique_ptr<IMagic> owned = std::make_unique<MagicUtils>();
    owned->magicOpen();
    owned.reset();
    EXPECT_THAT(libmagic.calls, ElementsAre("open(16)"));
}

TEST(MagicFlagTest, MimeTypeFlagIsSixteen)
{
    EXPECT_EQ(MAGIC_MIME_TYPE, 16);
}

} // namespace
} // namespace TAV
