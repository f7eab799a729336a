// Run tasks and wait for one, for all.

#include <tarvo/tarvo.h>

#include <iostream>

/// Adds up the numbers from 1 to `last`; fails when there are none.
class Sum : public CkTask
{
public:
    explicit Sum(int last) noexcept : m_last(last) {}

    __int64 result = 0; ///< For whoever has waited for the end of the task.

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        for (int i = 1; i <= m_last; ++i)
            result += i;
        return m_last >= 1;
    }

private:
    const int m_last;
};

int main()
{
    const CkThreadPoolShutdown shutdown;
    CkArrayManaged<CkSmartPointer<Sum>, 0> sums;
    CkArray<const CkEvent*, 0, CkArrayPolicyConstructDefault> ends;
    for (const int last : {1000, 0, 10})
    {
        const CkSmartPointer<Sum> sum(new Sum(last));
        if (!CkThreadPool::GetInstance().AddTask(sum, CkThreadPool::eTaskPriorityNormal))
            return 1;
        sums.AddTail(sum);
        ends.AddTail(&sum->GetTerminatedEvent());
    }

    if (sums[0]->WaitUntilTerminate(60'000))
        std::cout << "the first is " << sums[0]->result << '\n';
    if (CkEvent::WaitForMultipleEvents(ends, 60'000) == CkEvent::eWaitSignaled)
        for (const CkSmartPointer<Sum>& sum : sums)
            std::cout << (sum->IsSuccessful() ? "done: " : "failed: ") << sum->result << '\n';
}

// Prints:
//   the first is 500500
//   done: 500500
//   failed: 0
//   done: 55
