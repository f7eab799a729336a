// Cancel by declining: what runs comes to its end, what has not started never does.

#include <tarvo/tarvo.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>

struct Job
{
    std::atomic<bool> cancelled{false};
    std::atomic<int> started{0};
};

class Step : public CkTask
{
public:
    explicit Step(Job& job) noexcept : m_job(job) {}

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        ++m_job.started;
        while (!m_job.cancelled)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return false;
    }

    bool doNotRun() const override { return m_job.cancelled; }

private:
    Job& m_job;
};

int main()
{
    constexpr int steps = 10'000;
    Job job;
    const CkThreadPoolShutdown shutdown;
    CkThreadPool& pool = CkThreadPool::GetInstance();
    for (int i = 0; i < steps; ++i)
        pool.AddTask(new Step(job), CkThreadPool::eTaskPriorityNormal);

    job.cancelled = true;
    if (pool.WaitUntilIdle(60'000) && job.started < steps)
        std::cout << "the pool is idle, and not all steps have run\n";
    if (!pool.AddTask(new Step(job), CkThreadPool::eTaskPriorityNormal))
        std::cout << "one more is declined at once\n";
}

// Prints:
//   the pool is idle, and not all steps have run
//   one more is declined at once
