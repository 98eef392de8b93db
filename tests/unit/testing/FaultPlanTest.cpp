// The plan of failures, and what each fake has by being one.
#include "tav/testing/FaultPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tav/testing/Fake.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// What so many calls of an operation get: an error, or 0.
std::vector<int> results(FaultPlan& plan, const std::string& operation, int calls)
{
    std::vector<int> all;
    for (int i = 0; i < calls; ++i)
        all.push_back(plan.count(operation).value_or(0));
    return all;
}

TEST(FaultPlanTest, NothingFailsWithoutAPlan)
{
    FaultPlan plan;
    EXPECT_THAT(results(plan, "open", 3), ElementsAre(0, 0, 0));
    EXPECT_FALSE(plan.hasFailed());
    EXPECT_THAT(plan.pending(), IsEmpty());
}

TEST(FaultPlanTest, TheNthCallFailsOnce)
{
    FaultPlan plan;
    plan.failCall("open", 2, 5);
    EXPECT_THAT(results(plan, "open", 4), ElementsAre(0, 5, 0, 0));
}

TEST(FaultPlanTest, TheNthCallFailsFromThenOn)
{
    FaultPlan plan;
    plan.failCall("open", 2, 5, Lasting::FromThenOn);
    EXPECT_THAT(results(plan, "open", 4), ElementsAre(0, 5, 5, 5));
}

TEST(FaultPlanTest, TheErrorIsOneIfNoneIsGiven)
{
    FaultPlan plan;
    plan.failCall("open", 1);
    plan.failAnyCall(2);
    EXPECT_THAT(results(plan, "open", 3), ElementsAre(1, 1, 0));
}

TEST(FaultPlanTest, CountsFromTheNextCallOn)
{
    FaultPlan plan;
    results(plan, "open", 3);
    plan.failCall("open", 2, 5);
    EXPECT_THAT(results(plan, "open", 3), ElementsAre(0, 5, 0));
    plan.failAnyCall(1, 6);
    EXPECT_THAT(results(plan, "open", 2), ElementsAre(6, 0));
}

TEST(FaultPlanTest, OtherOperationsNeitherCountNorFail)
{
    FaultPlan plan;
    plan.failCall("open", 2, 5);
    EXPECT_THAT(results(plan, "close", 3), ElementsAre(0, 0, 0));
    EXPECT_THAT(results(plan, "openOutputFile", 3), ElementsAre(0, 0, 0));
    EXPECT_THAT(results(plan, "open", 2), ElementsAre(0, 5));
}

TEST(FaultPlanTest, PlansForOneOperationAddUp)
{
    FaultPlan plan;
    plan.failCall("open", 1, 5);
    plan.failCall("open", 3, 6);
    plan.failCall("open", 4, 7, Lasting::FromThenOn);
    EXPECT_THAT(results(plan, "open", 6), ElementsAre(5, 0, 6, 7, 7, 7));
}

TEST(FaultPlanTest, OfTwoThatAreDueTheLaterPlanTellsTheError)
{
    FaultPlan plan;
    plan.failCall("open", 1, 5, Lasting::FromThenOn);
    plan.failAnyCall(2, 6);
    EXPECT_THAT(results(plan, "open", 3), ElementsAre(5, 6, 5));
    EXPECT_THAT(plan.pending(), IsEmpty());
}

TEST(FaultPlanTest, AnyCallIsCountedOverAllOperations)
{
    FaultPlan plan;
    plan.failAnyCall(3, 5);
    EXPECT_EQ(plan.count("open"), std::nullopt);
    EXPECT_EQ(plan.count("read"), std::nullopt);
    EXPECT_EQ(plan.count("close"), 5);
    EXPECT_EQ(plan.count("close"), std::nullopt);
}

TEST(FaultPlanTest, WhatCannotFailDoesNotCount)
{
    FaultPlan plan;
    plan.failAnyCall(2, 5, Lasting::FromThenOn);
    EXPECT_EQ(plan.count("open"), std::nullopt);
    EXPECT_EQ(plan.count("release", false), std::nullopt);
    EXPECT_EQ(plan.count("release", false), std::nullopt);
    EXPECT_EQ(plan.count("open"), 5);
    EXPECT_EQ(plan.count("release", false), std::nullopt);
    EXPECT_EQ(plan.count("open"), 5);
}

TEST(FaultPlanTest, ANameThatNoFakeHasNeverFails)
{
    FaultPlan plan;
    plan.failCall("opne", 1, 5);
    plan.failCall("", 1, 5);
    EXPECT_THAT(results(plan, "open", 2), ElementsAre(0, 0));
    EXPECT_FALSE(plan.hasFailed());
    EXPECT_THAT(plan.pending(), ElementsAre("opne", ""));
}

TEST(FaultPlanTest, PendingAreThePlansThatDidNotTakePlace)
{
    FaultPlan plan;
    plan.failCall("open", 2);
    plan.failAnyCall(4);
    plan.failCall("close", 1, 5, Lasting::FromThenOn);
    EXPECT_THAT(plan.pending(), ElementsAre("open", "any", "close"));
    results(plan, "open", 2);
    EXPECT_THAT(plan.pending(), ElementsAre("any", "close"));
    results(plan, "close", 1);
    EXPECT_THAT(plan.pending(), ElementsAre("any"));
    results(plan, "close", 1);
    EXPECT_THAT(plan.pending(), IsEmpty());
}

TEST(FaultPlanTest, SucceedForgetsThePlansAndThatTheyTookPlace)
{
    FaultPlan plan;
    plan.failCall("open", 1, 5, Lasting::FromThenOn);
    plan.failCall("close", 1, 5);
    plan.failAnyCall(3, 5);
    EXPECT_FALSE(plan.hasFailed());
    results(plan, "open", 1);
    EXPECT_TRUE(plan.hasFailed());
    plan.succeed();
    EXPECT_FALSE(plan.hasFailed());
    EXPECT_THAT(plan.pending(), IsEmpty());
    EXPECT_THAT(results(plan, "open", 3), ElementsAre(0, 0, 0));
    EXPECT_THAT(results(plan, "close", 1), ElementsAre(0));
}

TEST(FaultPlanTest, EachCallOfSeveralThreadsIsCountedOnce)
{
    FaultPlan plan;
    plan.failCall("open", 1000, 5);
    plan.failAnyCall(2000, 6);
    std::atomic<int> first{0};
    std::atomic<int> second{0};
    const auto call = [&]
    {
        for (int i = 0; i < 500; ++i)
        {
            const int error = plan.count("open").value_or(0);
            first += error == 5 ? 1 : 0;
            second += error == 6 ? 1 : 0;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(call);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1) << "the last call of all";
    EXPECT_THAT(plan.pending(), IsEmpty());
}

/// A fake of two operations.
class Door : public Fake
{
public:
    using Fake::Fake;

    bool open(const std::string& key, int turns)
    {
        lastError = enter("open", joined({key, std::to_string(turns)}));
        return !lastError;
    }
    void openWindow() { enter("openWindow", "", false); }

    std::optional<int> lastError;
};

TEST(FakeTest, NotesEachCallWithItsArguments)
{
    Door door;
    door.open("key", 2);
    door.openWindow();
    door.open("", 1);
    EXPECT_THAT(door.calls(), ElementsAre("open(key, 2)", "openWindow()", "open(, 1)"));
}

TEST(FakeTest, NotesCallsThatFail)
{
    Door door;
    door.failCall("open", 1, 13);
    EXPECT_FALSE(door.open("key", 2));
    EXPECT_EQ(door.lastError, 13);
    EXPECT_THAT(door.calls(), ElementsAre("open(key, 2)"));
}

TEST(FakeTest, TakingTheCallsForgetsThem)
{
    Door door;
    door.openWindow();
    EXPECT_THAT(door.takeCalls(), ElementsAre("openWindow()"));
    EXPECT_THAT(door.calls(), IsEmpty());
    EXPECT_EQ(door.countOf("openWindow"), 0U);
}

TEST(FakeTest, TakingTheCallsLeavesTheCountOfThePlan)
{
    Door door;
    door.failCall("open", 2);
    EXPECT_TRUE(door.open("key", 1));
    door.takeCalls();
    EXPECT_FALSE(door.open("key", 1));
}

TEST(FakeTest, CountsTheCallsOfOneOperation)
{
    Door door;
    door.open("open(", 1);
    door.openWindow();
    door.openWindow();
    EXPECT_EQ(door.countOf("open"), 1U) << "not those of a longer name";
    EXPECT_EQ(door.countOf("openWindow"), 2U);
    EXPECT_EQ(door.countOf("close"), 0U);
}

TEST(FakeTest, HasAPlanOfItsOwnUnlessGivenOne)
{
    Door first;
    Door second(nullptr);
    ASSERT_NE(first.plan(), nullptr);
    ASSERT_NE(second.plan(), nullptr);
    first.failCall("open", 1);
    EXPECT_TRUE(second.open("key", 1));
    EXPECT_FALSE(first.open("key", 1));
    EXPECT_TRUE(first.plan()->hasFailed());
    EXPECT_FALSE(second.hasFailed());
}

TEST(FakeTest, FakesOfOnePlanAreCountedTogether)
{
    const auto plan = std::make_shared<FaultPlan>();
    Door first(plan);
    Door second(plan);
    Door third(second.plan());
    plan->failAnyCall(3, 7);
    EXPECT_TRUE(first.open("key", 1));
    EXPECT_TRUE(second.open("key", 1));
    first.openWindow();
    EXPECT_FALSE(third.open("key", 1));
    EXPECT_EQ(third.lastError, 7);
    EXPECT_TRUE(first.hasFailed());
    EXPECT_EQ(first.calls().size(), 2U) << "each has its own calls";
}

TEST(FakeTest, SteersItsPlan)
{
    Door door;
    door.failAnyCall(1, 8, Lasting::FromThenOn);
    EXPECT_FALSE(door.open("key", 1));
    EXPECT_FALSE(door.open("key", 1));
    EXPECT_EQ(door.lastError, 8);
    EXPECT_TRUE(door.hasFailed());
    door.succeed();
    EXPECT_FALSE(door.hasFailed());
    EXPECT_TRUE(door.open("key", 1));
}

TEST(FakeTest, OnCallSeesTheNotedCallBeforeItFails)
{
    Door door;
    std::vector<std::string> seen;
    door.onCall = [&](const std::string& call)
    {
        seen.push_back(call);
        EXPECT_EQ(door.calls().back(), call) << "no lock is held";
        EXPECT_FALSE(door.hasFailed());
        door.failCall("open", 1, 9);
    };
    EXPECT_FALSE(door.open("key", 1)) << "planned a moment ago";
    EXPECT_EQ(door.lastError, 9);
    EXPECT_THAT(seen, ElementsAre("open(key, 1)"));
}

TEST(FakeTest, AnExceptionOfOnCallPassesAndTheCallDoesNotCount)
{
    Door door;
    door.failCall("open", 1);
    door.onCall = [](const std::string&) { throw std::runtime_error("stop"); };
    EXPECT_THROW(door.open("key", 1), std::runtime_error);
    EXPECT_THAT(door.calls(), ElementsAre("open(key, 1)"));
    door.onCall = nullptr;
    EXPECT_FALSE(door.open("key", 1));
}

TEST(FakeTest, SeveralThreadsMayCallAndLook)
{
    Door door;
    door.failAnyCall(1, 1, Lasting::FromThenOn);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int turn = 0; turn < 200; ++turn)
                    door.openWindow();
            });
    }
    while (door.countOf("openWindow") < 800)
        door.calls();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(door.calls(), std::vector<std::string>(800, "openWindow()"));
    EXPECT_FALSE(door.hasFailed());
}

/// What the sweep of the plan's description finds: how many calls can fail in all.
TEST(FakeTest, ASweepReachesEachCallOfSeveralFakes)
{
    std::vector<std::string> failed;
    for (unsigned int nth = 1;; ++nth)
    {
        const auto plan = std::make_shared<FaultPlan>();
        plan->failAnyCall(nth, 5);
        Door house(plan);
        Door garden(plan);
        const bool isInside = garden.open("gate", 1) && house.open("door", 2);
        EXPECT_EQ(isInside, !plan->hasFailed());
        if (!plan->hasFailed())
            break;
        failed.push_back((house.calls().empty() ? garden : house).calls().back());
    }
    EXPECT_THAT(failed, ElementsAre("open(gate, 1)", "open(door, 2)"));
}

} // namespace
} // namespace TAV::test
