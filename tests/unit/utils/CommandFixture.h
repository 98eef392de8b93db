#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tav/TAVUtils.h"
#include "tav/testing/ImaginarySystem.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{

using KeepMap = std::map<int, bool>;

/// A line of TAVUtils as its logger must get it.
inline LogLine line(int level, const std::string& message)
{
    return {level, "TAVUtils", message};
}

/// A utility object over an imaginary system.
class CommandFixture : public ::testing::Test
{
protected:
    /// A wait status of a normal exit.
    static constexpr int exited(int code) { return code << 8; }

    std::shared_ptr<ImaginarySystem> m_system = std::make_shared<ImaginarySystem>();
    RecordingLogger m_logger;
    TAVUtils m_utils{m_system, m_logger, std::make_shared<kernelVersion>(kernelVersion{5, 10, 0})};

    const std::vector<std::string> m_command{"/bin/tool", "-a", "two words"};
    const KeepMap m_withoutStderr{{1, true}};
};

} // namespace TAV::test
