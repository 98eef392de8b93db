#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>

#include "LoadProcess.h"
#include "PrivateController.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{

/// The library on the kernel's own controller. Skips where that cannot be had.
class KernelCgroupTest : public ::testing::TestWithParam<Place>
{
protected:
    void SetUp() override
    {
        const std::string reason = PrivateController::whyUnavailable();
        if (!reason.empty())
            GTEST_SKIP() << reason;
        m_controller.emplace(GetParam());
    }

    bool limit(const std::set<int>& pids, unsigned short percent) { return m_utils.setCPULimit(pids, percent, ""); }

    /// What so many percent of this machine come to, by a count of the processors that is the test's own.
    static std::string quotaOf(unsigned int percent, unsigned int period = 100000)
    {
        std::ifstream file("/proc/cpuinfo");
        const auto count =
            std::count(std::istream_iterator<std::string>(file), std::istream_iterator<std::string>(), "processor");
        return std::to_string(static_cast<unsigned long>(count) * period * percent / 100);
    }

    std::vector<std::string> messages() const
    {
        std::vector<std::string> texts;
        for (const LogLine& line : m_logger.lines())
            texts.push_back(line.message);
        return texts;
    }

    std::optional<PrivateController> m_controller;
    RecordingLogger m_logger;
    TAVUtils m_utils{
        std::make_shared<TAVSystemUtils>(), m_logger, std::make_shared<kernelVersion>(kernelVersion{4, 19, 0})};
};

inline std::string placeName(const ::testing::TestParamInfo<Place>& info)
{
    switch (info.param)
    {
    case Place::First:
        return "FirstPlace";
    case Place::Second:
        return "SecondPlace";
    case Place::Both:
        return "BothPlaces";
    default:
        return "NoPlace";
    }
}

} // namespace TAV::test
