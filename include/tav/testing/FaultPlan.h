#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace TAV::test
{

/// How long a planned failure lasts.
enum class Lasting
{
    Once,       ///< that call alone
    FromThenOn, ///< that call and all later ones
};

/// Which calls of fakes fail, and with what error. Every fake asks its plan at each call.
///
///     auto plan = std::make_shared<TAV::test::FaultPlan>();
///     auto system = std::make_shared<TAV::test::FakeTAVSystemUtils>(plan);
///     auto api = std::make_shared<TAV::test::FakeCurlAPIUtility>(plan);
///     plan->failCall("setenv", 2, ENOMEM);                 // the second call from now on, that one only
///     plan->failCall("curlEasyPerform", 1, CURLE_SSL_CONNECT_ERROR, TAV::test::Lasting::FromThenOn);
///
/// A fake that is made without a plan has one of its own, and offers the same operations itself. Fakes that are made
/// with the same plan are counted together, so one sweep reaches each call of several layers:
///
///     for (unsigned int nth = 1;; ++nth)
///     {
///         auto plan = std::make_shared<TAV::test::FaultPlan>();
///         plan->failAnyCall(nth, EIO);
///         ... what is tested, with fakes of that plan ...
///         if (!plan->hasFailed())
///             break; // it makes no more than nth - 1 calls
///         ... what must hold whenever a call fails ...
///     }
///
/// **Threads.** May be used from any number of them at a time.
class FaultPlan
{
public:
    /// Makes a call of an operation fail. Plans add up: a second one for the same operation leaves the first as it is.
    /// Where two are due at one call, the error is that of the one planned last.
    /// @param operation  its name as in the interface, "pipe"; a name that no fake has never fails: see `pending`
    /// @param nth        which call, from 1 for the next one
    /// @param error      what it fails with: errno, CURLcode, krb5_error_code or the code of an FMXException, whichever
    ///                   the operation has; nothing where it only tells false
    /// @param lasting    whether later calls fail, too
    void failCall(const std::string& operation, unsigned int nth, int error = 1, Lasting lasting = Lasting::Once)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_faults.push_back({operation, nth, error, lasting});
    }

    /// The same for call number `nth` of all that can fail. What has no failure in the interface, a release for one,
    /// does not count.
    void failAnyCall(unsigned int nth, int error = 1, Lasting lasting = Lasting::Once)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_faults.push_back({std::nullopt, nth, error, lasting});
    }

    /// Forgets the plans, and that any of them took place.
    void succeed()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_faults.clear();
        m_hasFailed = false;
    }

    /// Whether a planned failure took place.
    bool hasFailed() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_hasFailed;
    }

    /// The operations whose planned failure did not take place by now, in the order of planning; "any" for
    /// `failAnyCall`. A test that ends with one of them has not tested what it meant to.
    std::vector<std::string> pending() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::string> operations;
        for (const Fault& fault : m_faults)
        {
            if (!fault.tookPlace)
                operations.push_back(fault.operation.value_or("any"));
        }
        return operations;
    }

    /// For fakes: counts a call and tells the error that it is to fail with.
    /// @param operation  its name as in the interface
    /// @param canFail    whether `failAnyCall` concerns it
    std::optional<int> count(const std::string& operation, bool canFail = true)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::optional<int> error;
        for (Fault& fault : m_faults)
        {
            const bool isMeant = fault.operation ? *fault.operation == operation : canFail;
            if (isMeant && fault.isDue())
                error = fault.error;
        }
        m_hasFailed = m_hasFailed || error;
        return error;
    }

    /// For fakes that fork: the child finds the plan's lock free.
    /// @param fork  forks
    /// @return what `fork` returns, in both processes
    template <typename Fork>
    auto forked(Fork fork)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return fork();
    }

private:
    struct Fault
    {
        /// Counts a call; true for the one that is to fail, and for those behind it if the fault lasts.
        bool isDue()
        {
            if (callsLeft == 0)
                return false;
            const bool due = callsLeft == 1;
            if (!due || lasting == Lasting::Once)
                --callsLeft;
            tookPlace = tookPlace || due;
            return due;
        }

        std::optional<std::string> operation; ///< none for all that can fail
        unsigned int callsLeft = 0;
        int error = 0;
        Lasting lasting = Lasting::Once;
        bool tookPlace = false;
    };

    mutable std::mutex m_mutex;
    std::vector<Fault> m_faults;
    bool m_hasFailed = false;
};

} // namespace TAV::test
