#include "elasticPool.h"

#include <algorithm>

namespace CameraSim {

ElasticPool::ElasticPool(int maxThreads, int idleExitMs)
    : m_maxThreads(std::max(1, maxThreads))
    , m_idleExitMs(std::max(1, idleExitMs))
{ }

ElasticPool::~ElasticPool()
{
    shutdown();
}

void ElasticPool::enqueue(std::function<void()> fn)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shutdown)
        return;
    m_tasks.push_back(std::move(fn));
    // Threads that exited on idle left their handles behind; reap them here so
    // the vector does not grow over a long run.
    for (const auto& id : m_finished) {
        auto it = std::find_if(
            m_threads.begin(), m_threads.end(), [&id](const std::thread& t) { return t.get_id() == id; });
        if (it != m_threads.end()) {
            it->join();
            m_threads.erase(it);
        }
    }
    m_finished.clear();
    // An idle thread counts as idle until it runs, so it may already be promised to a
    // task queued just before: only as many tasks as idle threads can wait for one.
    if (m_tasks.size() <= size_t(m_idle)) {
        m_wake.notify_one();
    } else if (m_alive < m_maxThreads) {
        ++m_alive;
        m_threads.emplace_back([this] { work(); });
    }
}

void ElasticPool::shutdown()
{
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_shutdown = true;
        threads.swap(m_threads);
        m_finished.clear();
    }
    m_wake.notify_all();
    for (auto& t : threads)
        t.join();
}

int ElasticPool::threadCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_alive;
}

void ElasticPool::work()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        if (m_tasks.empty()) {
            if (m_shutdown)
                break;
            ++m_idle;
            const bool woke = m_wake.wait_for(lock, std::chrono::milliseconds(m_idleExitMs),
                [this] { return m_shutdown || !m_tasks.empty(); });
            --m_idle;
            if (!woke) {
                // Idle too long: leave, unless shutdown already owns our handle.
                if (!m_shutdown)
                    m_finished.push_back(std::this_thread::get_id());
                break;
            }
            continue;
        }
        auto task = std::move(m_tasks.front());
        m_tasks.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
    --m_alive;
}

} // namespace CameraSim
