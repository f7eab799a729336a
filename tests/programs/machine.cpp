// The machine's capabilities are asked for by many threads at once, in a process where nobody has before.

#include <tarvo/tarvo.h>

#include <support/barrier.h>
#include <support/expect.h>

#include <algorithm>
#include <thread>
#include <vector>

int main()
{
    constexpr int threadCount = 8;
    Barrier start(threadCount);
    std::vector<const CString*> answers(threadCount);
    std::vector<std::thread> threads;
    {
        // Whoever makes a singleton that sizes itself by the machine holds this, while others ask.
        const CkCriticalSectionAuto guard(GetCriticalSectionSingleton());
        for (const CString*& answer : answers)
        {
            threads.emplace_back(
                [&start, &answer]
                {
                    start.Arrive();
                    answer = &CkMachineCapabilities::GetCPUModelName();
                });
        }
        for (std::thread& thread : threads)
            thread.join();
    }
    expect(std::count(answers.begin(), answers.end(), answers[0]) == threadCount, "one record for all threads");
    expect(&CkMachineCapabilities::GetCPUModelName() == answers[0], "the same record later");
    expect(CkMachineCapabilities::GetCPUCount() >= 1, "a processor");
    return failures;
}
