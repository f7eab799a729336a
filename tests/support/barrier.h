#pragma once

#include <condition_variable>
#include <mutex>

/// Lets a number of threads go on when all of them have arrived, again and again. Not std::barrier: that of MinGW's
/// libstdc++ 12 loses wake-ups.
class Barrier
{
public:
    explicit Barrier(int count) : m_count(count) {}

    void Arrive()
    {
        std::unique_lock guard(m_mutex);
        if (++m_arrived == m_count)
        {
            m_arrived = 0;
            ++m_phase;
            m_condition.notify_all();
            return;
        }
        m_condition.wait(guard, [this, phase = m_phase] { return phase != m_phase; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    const int m_count;
    int m_arrived = 0;
    int m_phase = 0;
};
