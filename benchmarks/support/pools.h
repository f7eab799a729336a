#pragma once

// Before Qt, whose keywords are macros.
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>

#include <tarvo/threads/ckthreadpool.h>

#include <QRunnable>
#include <QThreadPool>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <atomic>
#include <cstddef>
#include <latch>
#include <memory>
#include <new>
#include <semaphore>
#include <thread>
#include <utility>

// Thread pools with as many workers as there are processors. What they run is a callable, as a task of the kind that
// the library wants: with all of them that is one object on the heap with one virtual or indirect call.
//
// The operations are the same for all:
// - Submit(body): lets a worker call `body`; may be called from any thread.
// - Run(body): submits, and waits until the call has ended. For one thread at a time.
// - WaitForAll(countdown): waits until all tasks, which share `countdown`, have run.
// The destructors end the workers, so that none disturbs what is measured next.

inline int workerCount()
{
    return static_cast<int>(std::thread::hardware_concurrency());
}

/// What tasks without any work of their own call.
class alignas(64) Countdown
{
public:
    void Start(std::size_t tasks) { m_left.store(tasks, std::memory_order_relaxed); }

    void Count()
    {
        if (m_left.fetch_sub(1, std::memory_order_acq_rel) == 1)
            m_over.release();
    }

    /// Waits until each task has counted. Once for each start.
    void Wait() { m_over.acquire(); }

private:
    std::atomic<std::size_t> m_left{0};
    alignas(64) std::binary_semaphore m_over{0};
};

/// How a submitter learns that its task has ended, where the library has nothing for that.
class TaskEnd
{
public:
    template <class Body>
    auto SignalAfter(Body body)
    {
        return [this, body = std::move(body)]
        {
            body();
            m_ended.release();
        };
    }

    void Wait() { m_ended.acquire(); }

private:
    std::binary_semaphore m_ended{0};
};

class TarvoPool
{
public:
    ~TarvoPool() { m_pool.ShutdownAndWait(withoutLimit); }

    template <class Body>
    void Submit(Body body)
    {
        m_pool.AddTask(new Task<Body>(std::move(body)), CkThreadPool::eTaskPriorityNormal);
    }

    template <class Body>
    void Run(Body body)
    {
        const CkSmartPointer<CkTask> task(new Task<Body>(std::move(body)));
        m_pool.AddTask(task, CkThreadPool::eTaskPriorityNormal);
        task->WaitUntilTerminate(withoutLimit).GetValue();
    }

    void WaitForAll(Countdown& countdown)
    {
        m_pool.WaitUntilIdle(withoutLimit);
        countdown.Wait();
    }

private:
    static constexpr unsigned int withoutLimit = 0xFFFFFFFF;

    template <class Body>
    class Task final : public CkTask
    {
    public:
        explicit Task(Body body) : m_body(std::move(body)) {}

    protected:
        CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
        {
            m_body();
            return true;
        }

    private:
        Body m_body;
    };

    CkThreadPool& m_pool = CkThreadPool::GetInstance();
};

/// What the other pools have in common: they take callables, and tell nobody when one has run or all have. Even where
/// one can wait for all, that would end the workers.
template <class Pool>
class CallablePool
{
public:
    template <class Body>
    void Run(Body body)
    {
        static_cast<Pool*>(this)->Submit(m_end.SignalAfter(std::move(body)));
        m_end.Wait();
    }

    void WaitForAll(Countdown& countdown) { countdown.Wait(); }

private:
    TaskEnd m_end;
};

class QtPool : public CallablePool<QtPool>
{
public:
    QtPool()
    {
        m_pool.setMaxThreadCount(workerCount());
        m_pool.setExpiryTimeout(-1);
    }

    template <class Body>
    void Submit(Body body)
    {
        m_pool.start(new Task<Body>(std::move(body)));
    }

private:
    template <class Body>
    class Task final : public QRunnable
    {
    public:
        explicit Task(Body body) : m_body(std::move(body)) {}
        void run() override { m_body(); }

    private:
        Body m_body;
    };

    QThreadPool m_pool;
};

class AsioPool : public CallablePool<AsioPool>
{
public:
    ~AsioPool() { m_pool.join(); }

    template <class Body>
    void Submit(Body body)
    {
        boost::asio::post(m_pool, std::move(body));
    }

private:
    boost::asio::thread_pool m_pool{static_cast<std::size_t>(workerCount())};
};

class TbbPool : public CallablePool<TbbPool>
{
public:
    ~TbbPool()
    {
        m_arena.terminate();
        oneapi::tbb::finalize(m_scheduler, std::nothrow);
    }

    template <class Body>
    void Submit(Body body)
    {
        m_arena.enqueue(std::move(body));
    }

private:
    // By itself it counts the thread that submits as a worker, which that is not: it does not enter the arena.
    oneapi::tbb::global_control m_limit{oneapi::tbb::global_control::max_allowed_parallelism,
                                        static_cast<std::size_t>(workerCount()) + 1};
    oneapi::tbb::task_scheduler_handle m_scheduler{oneapi::tbb::attach()};
    oneapi::tbb::task_arena m_arena{workerCount(), 0};
};

/// Sees to it that all workers of a new pool are there: each of them meets the others.
template <class Pool>
void startWorkers(Pool& pool)
{
    const auto meeting = std::make_shared<std::latch>(workerCount() + 1);
    for (int worker = 0; worker < workerCount(); ++worker)
        pool.Submit([meeting] { meeting->arrive_and_wait(); });
    meeting->arrive_and_wait();
}
