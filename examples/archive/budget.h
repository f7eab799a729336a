#pragma once

#include <tarvo/tarvo.h>

namespace archive
{
/// The memory that tasks may fill before somebody writes it out in the order of the tasks.
///
/// The task whose turn it is gets memory even where those behind it have used up all there is: otherwise it would wait
/// for them, and they for it. It may go beyond the budget by two pieces, one that is written and one that is filled.
///
/// Threads: any number at once. Takes its own lock and no other within it. Who has to wait sets an event, for the one
/// who writes and may be waiting as well.
/// Blocking: `Acquire`, until others have given enough back, its turn has come, or `Cancel` is called.
class Budget
{
public:
    Budget(unsigned __int64 size, CkEvent& exhausted) noexcept
        : m_free(static_cast<__int64>(size)), m_exhausted(exhausted)
    {
    }
    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;

    /// Takes `size` bytes for the task of that number; false after `Cancel`.
    bool Acquire(unsigned __int64 number, unsigned __int64 size);
    void Release(unsigned __int64 size);

    /// It is this task's turn, and that of none before it any more.
    void SetTurn(unsigned __int64 number);
    /// Whether somebody waits for memory.
    bool IsExhausted();

    /// Nobody waits any more.
    void Cancel();

private:
    struct Waiter
    {
        unsigned __int64 number;
        __int64 size;
        Waiter* next;
        CkEvent served{false};
    };

    bool mayHave(unsigned __int64 number, __int64 size) const noexcept;
    void serve();

    CkCriticalSection m_lock;
    __int64 m_free; ///< Below 0 by what the task whose turn it is has beyond the budget.
    CkEvent& m_exhausted;
    bool m_cancelled = false;
    unsigned __int64 m_turn = 0;
    Waiter* m_waiters = nullptr;
};
} // namespace archive
