// In the child of a fork the pool of the parent is closed: every operation says so at once, whatever its time-out and
// whichever lock another thread of the parent held, and the child can exit.

#include <tarvo/tarvo.h>
#include <tarvo/threads/detail/threadpoolstate.h>

#include <support/expect.h>
#include <support/fork.h>

#include <atomic>
#include <functional>
#include <thread>

struct CkThreadPoolPeer
{
    static CkCriticalSection& Lock(CkThreadPool& pool) { return pool.m_state->lock; }
};

namespace
{
class Work : public CkTask
{
public:
    explicit Work(std::function<void()> run = {}) : m_run(std::move(run)) {}

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        if (m_run)
            m_run();
        return true;
    }

private:
    const std::function<void()> m_run;
};

CkThreadPool& pool()
{
    return CkThreadPool::GetInstance();
}

/// The number of operations that do not say that the pool is closed.
int usePool()
{
    int wrong = 0;
    wrong += pool().AddTask(new Work, CkThreadPool::eTaskPriorityNormal) ? 1 : 0;
    wrong += pool().Submit(new Work, CkThreadPool::eTaskPriorityNormal) != CkThreadPool::eSubmitClosed ? 1 : 0;
    wrong += pool().WaitUntilIdle(INFINITE) ? 1 : 0;
    wrong += pool().ShutdownAndWait(2000) ? 1 : 0;
    wrong += pool().Shutdown(INFINITE) != CkThreadPool::eShutdownInChild ? 1 : 0;
    wrong += pool().TrimWorkers(0) ? 1 : 0;
    return wrong;
}

/// Forks while another thread holds the pool's lock and a task runs.
void forkUnderLock()
{
    CkEvent held;
    CkEvent release;
    std::thread holder(
        [&]
        {
            const CkCriticalSectionAuto guard(CkThreadPoolPeer::Lock(pool()));
            held.Set();
            release.Wait(INFINITE);
        });
    held.Wait(INFINITE);
    expect(runInForkedChild(usePool) == 0, "the pool is closed in the child of a fork");
    release.Set();
    holder.join();
}

/// The child exits on the thread of a worker.
void forkInTask()
{
    std::atomic<int> exitCode{-2};
    const CkSmartPointer<CkTask> task(new Work([&] { exitCode = runInForkedChild(usePool); }));
    expect(pool().AddTask(task, CkThreadPool::eTaskPriorityNormal), "the pool of the parent takes tasks");
    task->WaitUntilTerminate(INFINITE).GetValue();
    expect(exitCode == 0, "the pool is closed in the child that a task has made");
}
} // namespace

int main()
{
    const CkThreadPoolShutdown shutdown;
    // A child that was made before the pool has one of its own.
    const int before = runInForkedChild(
        []
        {
            const CkThreadPoolShutdown ownShutdown;
            const CkSmartPointer<CkTask> task(new Work);
            const bool added = pool().AddTask(task, CkThreadPool::eTaskPriorityNormal);
            return added && task->WaitUntilTerminate(INFINITE).GetValue() ? 0 : 1;
        });
    expect(before == 0, "the child of a process without a pool can make one");
    CkEvent gate;
    expect(pool().AddTask(new Work([&] { gate.Wait(INFINITE); }), CkThreadPool::eTaskPriorityNormal),
           "a task is added");
    forkUnderLock();
    forkInTask();
    gate.Set();
    return failures != 0 ? 1 : 0;
}
