#include "endpoint_scan/Scanner.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>

#include "endpoint_scan/Examiner.h"
#include "endpoint_scan/Walker.h"

namespace endpointscan
{
namespace
{

constexpr std::chrono::milliseconds kProgressInterval{100};
constexpr const char* kNotReached = "not reached: the scan was interrupted";

/// Threads that take files off one list until it is empty.
class Pool
{
public:
    Pool(const ScanSettings& settings, Verdicts& verdicts, std::vector<Finding*> work)
        : m_settings(settings), m_verdicts(verdicts), m_work(std::move(work))
    {
        const std::size_t count = std::min<std::size_t>(std::max(1U, settings.threads), m_work.size());
        m_verdicts.prepare(count);
        for (std::size_t asker = 0; asker < count; ++asker)
            addThread(asker);
    }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() { join(); }

    /// Reports progress until all threads have ended.
    void wait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_idle.wait_for(lock, kProgressInterval, [this] { return m_busy == 0; }))
            m_settings.onProgress(m_done, m_work.size());
        lock.unlock();
        join();
        m_settings.onProgress(m_done, m_work.size());
        if (m_failure != nullptr)
            std::rethrow_exception(m_failure);
    }

private:
    void changeBusy(int difference)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_busy += difference;
        m_idle.notify_all();
    }

    void addThread(std::size_t asker)
    {
        changeBusy(1);
        try
        {
            m_threads.emplace_back([this, asker] { run(asker); });
        }
        catch (const std::system_error&)
        {
            changeBusy(-1);
            if (m_threads.empty())
                throw;
        }
    }

    void run(std::size_t asker)
    {
        std::exception_ptr failure;
        try
        {
            Examiner examiner(m_settings.root, m_verdicts, asker);
            work(examiner);
        }
        catch (...)
        {
            failure = std::current_exception();
            m_next = m_work.size(); // nothing more for the others either
        }
        if (failure != nullptr)
            keep(failure);
        changeBusy(-1);
    }

    void keep(const std::exception_ptr& failure)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_failure = failure;
    }

    void work(Examiner& examiner)
    {
        for (std::size_t index = m_next++; index < m_work.size() && !m_settings.isCancelled(); index = m_next++)
        {
            examiner.examine(*m_work[index]);
            ++m_done;
        }
    }

    void join()
    {
        for (std::thread& thread : m_threads)
            thread.join();
        m_threads.clear();
    }

    const ScanSettings& m_settings;
    Verdicts& m_verdicts;
    std::vector<Finding*> m_work;
    std::atomic<std::size_t> m_next{0};
    std::atomic<std::size_t> m_done{0};
    std::mutex m_mutex;
    std::condition_variable m_idle;
    int m_busy = 0;
    std::exception_ptr m_failure;
    std::vector<std::thread> m_threads;
};

} // namespace

std::vector<Finding> scan(const ScanSettings& settings, Verdicts& verdicts)
{
    std::vector<Finding> findings = walk(settings.root, settings.excluded, settings.isCancelled);
    std::vector<Finding*> work;
    for (Finding& finding : findings)
    {
        if (isToBeExamined(finding))
            work.push_back(&finding);
    }
    Pool(settings, verdicts, work).wait();
    for (Finding* finding : work)
    {
        if (isToBeExamined(*finding))
            finding->reason = kNotReached;
    }
    return findings;
}

} // namespace endpointscan
