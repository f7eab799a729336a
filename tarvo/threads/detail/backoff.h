#pragma once

#include <tarvo/platform/kernel/processor.h>

#include <algorithm>

namespace tarvo::detail
{
/// Lets a thread wait longer before each attempt to enter a lock that it has found taken.
///
/// Workers and submitters that take the pool's lock from each other for each task move all that it guards between
/// processors each time. A worker that backs off finds many tasks instead, which a submitter has added undisturbed.
///
/// Bound: all attempts together take at most about 0.1 milliseconds; after that the caller waits for the lock itself.
/// Threads: one at a time.
class BackOff
{
public:
    /// Attempts `tryEnter` again and again; whether one of them returned true.
    template <class TryEnter>
    bool Enter(TryEnter tryEnter) noexcept
    {
        if (tryEnter())
        {
            m_pauses = std::max(m_pauses / 2, fewestPauses);
            return true;
        }
        for (unsigned int waited = 0; waited < 2 * mostPauses;)
        {
            waited += m_pauses;
            for (unsigned int i = 0; i < m_pauses; ++i)
                kernel::spinPause();
            m_pauses = std::min(2 * m_pauses, mostPauses);
            if (tryEnter())
                return true;
        }
        return false;
    }

private:
    static constexpr unsigned int fewestPauses = 64; ///< About a microsecond.
    static constexpr unsigned int mostPauses = 4096; ///< As long as it takes to wake a thread.

    unsigned int m_pauses = fewestPauses;
};
} // namespace tarvo::detail
