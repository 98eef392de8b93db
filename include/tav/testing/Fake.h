#pragma once

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tav/testing/FaultPlan.h"

namespace TAV::test
{

/// What all fakes have in common: they note their calls, and fail those that a `FaultPlan` names.
///
/// Each operation of a fake, in this order: notes the call; runs `onCall`; fails if its plan says so; otherwise does
/// what the fake is for.
///
/// **Threads.** The operations of a fake may be called from any thread, as may those below. What a test sets
/// (`onCall`, answers) it sets while no other thread calls.
class Fake
{
public:
    /// @param plan  what fails; shared with other fakes, or null for a plan of its own
    explicit Fake(std::shared_ptr<FaultPlan> plan = nullptr)
        : m_plan(plan ? std::move(plan) : std::make_shared<FaultPlan>())
    {
    }

    Fake(const Fake&) = delete;
    Fake& operator=(const Fake&) = delete;

    /// The plan, to be steered or handed to a further fake.
    const std::shared_ptr<FaultPlan>& plan() const { return m_plan; }

    /// `FaultPlan::failCall` of the plan.
    void failCall(const std::string& operation, unsigned int nth, int error = 1, Lasting lasting = Lasting::Once)
    {
        m_plan->failCall(operation, nth, error, lasting);
    }
    /// `FaultPlan::failAnyCall` of the plan.
    void failAnyCall(unsigned int nth, int error = 1, Lasting lasting = Lasting::Once)
    {
        m_plan->failAnyCall(nth, error, lasting);
    }
    /// `FaultPlan::succeed` of the plan.
    void succeed() { m_plan->succeed(); }
    /// `FaultPlan::hasFailed` of the plan.
    bool hasFailed() const { return m_plan->hasFailed(); }

    /// When set, called with the text of each call just as it is noted, with no lock held. It may block, and it may
    /// throw.
    std::function<void(const std::string&)> onCall;

    /// What was called, in order, with the arguments that matter: "close(5)", "open(/dev/null, 2)".
    std::vector<std::string> calls() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }

    /// The same, and forgets them.
    std::vector<std::string> takeCalls()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_calls, {});
    }

    /// How many of the noted calls are of that operation.
    unsigned int countOf(const std::string& operation) const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const std::string begin = operation + "(";
        const auto isOfIt = [&](const std::string& call) { return call.compare(0, begin.size(), begin) == 0; };
        return static_cast<unsigned int>(std::count_if(m_calls.begin(), m_calls.end(), isOfIt));
    }

protected:
    ~Fake() = default;

    /// Notes a call and tells the error that it is to fail with.
    /// @param operation  its name as in the interface
    /// @param arguments  those that matter, as they are to stand in `calls`
    /// @param canFail    whether the interface has a failure for it
    std::optional<int> enter(const std::string& operation, const std::string& arguments, bool canFail = true)
    {
        note(operation, arguments);
        return m_plan->count(operation, canFail);
    }

    /// Notes a call that no plan concerns.
    void note(const std::string& operation, const std::string& arguments)
    {
        const std::string call = operation + "(" + arguments + ")";
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_calls.push_back(call);
        }
        if (onCall)
            onCall(call);
    }

    /// For an operation that forks: its child finds the locks of fake and plan free, whatever other threads do.
    /// @param fork  forks
    /// @return what `fork` returns, in both processes
    template <typename Fork>
    auto forked(Fork fork)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_plan->forked(fork);
    }

    /// Arguments as they stand in the text of a call.
    static std::string joined(std::initializer_list<std::string> parts)
    {
        std::string text;
        const char* separator = "";
        for (const std::string& part : parts)
            text += std::exchange(separator, ", ") + part;
        return text;
    }

private:
    std::shared_ptr<FaultPlan> m_plan;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_calls;
};

} // namespace TAV::test
