#include "tav/FMXException.h"

#include <gtest/gtest.h>

#include <exception>
#include <type_traits>

namespace TAV
{
namespace
{

TEST(FMXExceptionTest, HoldsCodeAndMessageInThatOrder)
{
    const FMXException exception(3, "reason");
    EXPECT_EQ(exception.code, 3);
    EXPECT_EQ(exception.message, "reason");
    EXPECT_LT(static_cast<const void*>(&exception.code), static_cast<const void*>(&exception.message));
    EXPECT_EQ(static_cast<const void*>(&exception), static_cast<const void*>(&exception.code));
}

TEST(FMXExceptionTest, IsAPlainClass)
{
    static_assert(!std::is_polymorphic_v<FMXException>);
    static_assert(!std::is_base_of_v<std::exception, FMXException>);
    static_assert(std::is_same_v<decltype(FMXException::code), int>);
    EXPECT_THROW(
        {
            try
            {
                throw FMXException(1, "not for std::exception handlers");
            }
            catch (const std::exception&)
            {
            }
        },
        FMXException);
}

} // namespace
} // namespace TAV
