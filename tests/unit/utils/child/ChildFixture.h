#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>

#include "DirectCalls.h"
#include "tav/TAVUtils.h"
#include "tav/testing/ImaginarySystem.h"

namespace TAV::test
{

using KeepMap = std::map<int, bool>;
using Events = std::vector<std::string>;

/// Not an exception of the standard library, so that only catching everything could swallow it.
struct Interruption
{
    std::string event;
};

/// Notes its lines among the other events.
class NotingLogger : public ILogger
{
public:
    explicit NotingLogger(Events& events) : m_events(events) {}

    std::string interruptedAt; ///< the event at which it throws, if any

    void log(int level, std::string message) override { add(level, "no component", message); }
    void log(int level, std::string component, const std::string& message) override { add(level, component, message); }

private:
    void add(int level, const std::string& component, const std::string& message)
    {
        m_events.push_back("log " + std::to_string(level) + " " + component + ": " + message);
        if (m_events.back() == interruptedAt)
            throw Interruption{interruptedAt};
    }

    Events& m_events;
};

/// Runs a command operation as the forked child sees it, without a process: fork answers 0, and every later call,
/// through the system-call object or direct, is one more event in one list.
class ChildFixture : public ::testing::Test
{
protected:
    ChildFixture()
    {
        m_system->pid = 0;
        m_system->pipeFds = {4, 6};
        m_system->onCall = [this](const std::string& call) { m_calls.events.push_back(call); };
        m_system->onWaitpid = [](pid_t, int*, int, int& err) { return err = ECHILD, -1; };
    }

    bool execute(const KeepMap* keep)
    {
        return watched([&] { return m_utils.executeSystemCommand(m_command, keep); });
    }

    bool capture(const KeepMap* keep)
    {
        return watched([&] { return m_utils.readSystemCommandOutput(m_command, keep, m_outPipe.data()); });
    }

    /// The events after fork, up to the program's start and with it.
    Events inChild() const
    {
        const Events& all = m_calls.events;
        const auto first = std::find(all.begin(), all.end(), "fork()");
        return {first == all.end() ? first : first + 1, afterExecv()};
    }

    /// The last `count` events up to the program's start.
    Events lastInChild(std::size_t count) const
    {
        const Events child = inChild();
        return {child.end() - static_cast<long>(std::min(count, child.size())), child.end()};
    }

    /// The events of a child whose program could not be started.
    Events goingOn() const { return {afterExecv(), m_calls.events.end()}; }

    /// Every number that a direct call closed, the last `others` calls left out.
    std::set<int> closedNumbers(std::size_t others) const
    {
        std::set<int> numbers;
        for (std::size_t i = 0; i + others < m_calls.closedRuns.size(); ++i)
        {
            for (unsigned int fd = m_calls.closedRuns[i].first; fd <= m_calls.closedRuns[i].second; ++fd)
                numbers.insert(static_cast<int>(fd));
        }
        return numbers;
    }

    /// All 256 maps over the descriptors 0 to 7, with `false` for what a map does not keep.
    static std::vector<KeepMap> allMaps()
    {
        std::vector<KeepMap> maps(256);
        for (unsigned int bits = 0; bits < maps.size(); ++bits)
        {
            for (int fd = 0; fd < 8; ++fd)
                maps[bits][fd] = ((bits >> fd) & 1U) != 0;
        }
        return maps;
    }

    std::shared_ptr<ImaginarySystem> m_system = std::make_shared<ImaginarySystem>();
    DirectCalls m_calls;
    NotingLogger m_logger{m_calls.events};
    TAVUtils m_utils{m_system, m_logger, std::make_shared<kernelVersion>(kernelVersion{5, 10, 0})};
    std::array<int, 2> m_outPipe{3, 5};
    std::vector<std::string> m_command{"/bin/tool", "-a", "two words"};

private:
    template <typename Operation>
    bool watched(Operation operation)
    {
        m_calls.forget();
        try
        {
            m_calls.arm();
            const bool result = operation();
            m_calls.disarm();
            return result;
        }
        catch (...)
        {
            m_calls.disarm();
            throw;
        }
    }

    Events::const_iterator afterExecv() const
    {
        const auto isExecv = [](const std::string& event) { return event.rfind("::execv(", 0) == 0; };
        const auto execv = std::find_if(m_calls.events.begin(), m_calls.events.end(), isExecv);
        return execv == m_calls.events.end() ? execv : execv + 1;
    }
};

/// A list of events with further ones behind it.
inline Events operator+(Events list, const Events& more)
{
    list.insert(list.end(), more.begin(), more.end());
    return list;
}

} // namespace TAV::test
