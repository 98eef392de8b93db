// This program hides its own symbols, as daemons do. What the library throws must be caught by type all the same.
#include <exception>
#include <memory>
#include <string>

#include <gmock/gmock.h>

#include "support/RecordingLogger.h"
#include "tav/FMXException.h"
#include "tav/MagicUtils.h"
#include "tav/TAVUtils.h"

namespace TAV::test
{
namespace
{

/// Which handler takes what the constructor throws without a kernel version.
std::string handlerOfAMissingVersion()
{
    RecordingLogger logger;
    try
    {
        const TAVUtils utils(nullptr, logger, nullptr);
    }
    catch (const std::exception&)
    {
        return "std::exception";
    }
    catch (const FMXException& e)
    {
        return "FMXException " + std::to_string(e.code) + ": " + e.message;
    }
    catch (...)
    {
        return "unknown";
    }
    return "nothing thrown";
}

TEST(ExceptionBoundaryTest, IsCaughtByTypeAndNotAsStandardException)
{
    EXPECT_EQ(handlerOfAMissingVersion(), "FMXException 1: Kernel version information is null");
}

TEST(ExceptionBoundaryTest, EveryThrowIsOfTheSameType)
{
    MagicUtils magic;
    magic.magicOpen();
    EXPECT_THROW(magic.magicLoad("/nonexistent/database"), FMXException);
    magic.magicClose();
}

TEST(ExceptionBoundaryTest, OneOfOurOwnIsTheSameType)
{
    EXPECT_THROW(throw FMXException(3, "ours"), FMXException);
}

} // namespace
} // namespace TAV::test
