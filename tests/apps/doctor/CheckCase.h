#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>

#include "FakeHost.h"
#include "tavctl/doctor/Checks.h"
#include "tavctl/doctor/Report.h"

namespace TAV::test
{

/// A host, a question, and what a check must find there.
struct CheckCase
{
    const char* name;
    tavctl::doctor::Look look;
    std::function<void(FakeHost&, tavctl::doctor::Questions&)> arrange;
    tavctl::doctor::State state;
    std::string text;
    std::string advice = ""; ///< a part of it; empty if there must be none
};

inline void PrintTo(const CheckCase& c, std::ostream* out)
{
    *out << c.name;
}

inline std::string nameOfCase(const testing::TestParamInfo<CheckCase>& info)
{
    return info.param.name;
}

/// Leaves the host as it should be, and asks nothing.
inline void nothing(FakeHost& /*host*/, tavctl::doctor::Questions& /*questions*/) {}

inline void expectFinding(const CheckCase& c)
{
    FakeHost host;
    tavctl::doctor::Questions questions;
    c.arrange(host, questions);
    const std::optional<tavctl::doctor::Finding> finding = c.look(host, questions);

    ASSERT_TRUE(finding.has_value());
    EXPECT_EQ(tavctl::doctor::nameOf(finding->state), tavctl::doctor::nameOf(c.state));
    EXPECT_EQ(finding->text, c.text);
    std::string advice;
    for (const std::string& line : finding->advice)
        advice += line + "\n";
    EXPECT_NE(advice.find(c.advice), std::string::npos) << advice;
    EXPECT_EQ(advice.empty(), c.advice.empty()) << advice;
}

} // namespace TAV::test
