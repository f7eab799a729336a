// Guard the shutdown: however the scope is left, the tasks are done and the threads have ended.

#include <tarvo/tarvo.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>

class Save : public CkTask
{
public:
    explicit Save(std::atomic<int>& saved) noexcept : m_saved(saved) {}

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ++m_saved;
        return true;
    }

private:
    std::atomic<int>& m_saved;
};

int main()
{
    std::atomic<int> saved{0};
    try
    {
        // Behind what the tasks use, so that it goes first; in front of all that may raise.
        const CkThreadPoolShutdown shutdown;
        for (int i = 0; i < 100; ++i)
            CkThreadPool::GetInstance().AddTask(new Save(saved), CkThreadPool::eTaskPriorityNormal);
        throw CkException(CK_SOURCE_FILE, __LINE__);
    }
    catch (const CkException&)
    {
        std::cout << "an error, but " << saved << " of 100 documents are saved\n";
    }
}

// Prints:
//   an error, but 100 of 100 documents are saved
