#ifndef CAMERASIM_ELASTICPOOL_H
#define CAMERASIM_ELASTICPOOL_H

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace CameraSim {

// A task queue for one HTTP server that starts worker threads only when work
// arrives and lets them exit when idle, so that hundreds of mostly idle
// cameras in one process cost one listening thread each, not a whole pool.
class ElasticPool : public httplib::TaskQueue
{
public:
    ElasticPool(int maxThreads, int idleExitMs);
    ~ElasticPool() override;

    void enqueue(std::function<void()> fn) override;
    void shutdown() override;

    int threadCount() const;

private:
    void work();

    const int m_maxThreads;
    const int m_idleExitMs;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_tasks;
    std::vector<std::thread> m_threads;
    std::vector<std::thread::id> m_finished;
    int m_alive = 0;
    int m_idle = 0;
    bool m_shutdown = false;
};

} // namespace CameraSim

#endif // CAMERASIM_ELASTICPOOL_H
