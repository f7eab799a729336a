#include <tarvo/core/ckexception.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <support/barrier.h>
#include <support/printers.h>
#include <support/reports.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <new>
#include <thread>
#include <vector>

struct CkCriticalSectionPeer
{
    CkCriticalSection& section;

    bool HasSemaphore() const { return section.m_semaphore.load() != nullptr; }
    LONG Waiters() const { return section.m_waiters.load() / CkCriticalSection::oneWaiter; }
    bool Lock(bool& acquired, unsigned int timeoutMs) { return section.lock(acquired, timeoutMs); }
    bool PerfLock(unsigned int timeoutMs) { return section.perfLock(GetCurrentThreadId(), timeoutMs); }
    bool PerfLockKernel(unsigned int timeoutMs) { return section.perfLockKernel(GetCurrentThreadId(), timeoutMs); }
    void SetSemaphore(HANDLE handle) { section.m_semaphore.store(handle); }
    void AddWaiter() { section.m_waiters += CkCriticalSection::oneWaiter; }
    void SetFree() { section.m_owner.store(0); }
};

namespace
{
/// Holds a section on a thread of its own until the end or `Release`.
class Holder
{
public:
    explicit Holder(CkCriticalSection& section)
        : m_thread(
              [this, &section]
              {
                  const CkCriticalSectionAuto guard(section);
                  m_barrier.Arrive();
                  m_barrier.Arrive();
              })
    {
        m_barrier.Arrive();
    }

    ~Holder()
    {
        if (m_thread.joinable())
            Release();
    }

    void Release()
    {
        m_barrier.Arrive();
        m_thread.join();
    }

private:
    Barrier m_barrier{2};
    std::thread m_thread;
};

template <class Action>
void onThreads(int count, Action action)
{
    Barrier start(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
    {
        threads.emplace_back(
            [&start, &action, i]
            {
                start.Arrive();
                action(i);
            });
    }
    for (std::thread& thread : threads)
        thread.join();
}

/// A handle that no wait and no release accepts. Not one that was closed: its number may be in use again.
const HANDLE badHandle = reinterpret_cast<HANDLE>(0x7FFFFFFCll);
} // namespace

TEST(CriticalSection, recursion_counts_up_and_down_and_makes_no_kernel_object)
{
    CkCriticalSection section;
    for (LONG depth = 1; depth <= 3; ++depth)
    {
        if (depth == 2)
        {
            EXPECT_TRUE(section.TryEnter());
        }
        else
            section.Enter();
        EXPECT_EQ(section.GetRecursionCount(), depth);
    }
    EXPECT_TRUE(section.IsLocking());
    EXPECT_TRUE(section.IsLocking(GetCurrentThreadId()));
    EXPECT_FALSE(section.IsLocking(GetCurrentThreadId() + 1));
    for (LONG depth = 2; depth >= 0; --depth)
    {
        section.Leave();
        EXPECT_EQ(section.GetRecursionCount(), depth);
    }
    EXPECT_FALSE(section.IsLocking());
    EXPECT_FALSE(CkCriticalSectionPeer{section}.HasSemaphore());
}

TEST(CriticalSection, a_section_of_another_thread_is_neither_tried_nor_locked)
{
    CkCriticalSection section;
    CkCriticalSectionPeer peer{section};
    const Holder holder(section);
    bool acquired = true;
    EXPECT_FALSE(section.TryEnter());
    EXPECT_FALSE(section.IsLocking());
    EXPECT_FALSE(peer.Lock(acquired, 0));
    EXPECT_FALSE(acquired);
    EXPECT_FALSE(peer.HasSemaphore());
    EXPECT_FALSE(peer.PerfLockKernel(0)) << "there is no semaphore to sleep on";
}

TEST(CriticalSection, lock_tells_an_acquired_section_from_one_held_before)
{
    CkCriticalSection section;
    CkCriticalSectionPeer peer{section};
    bool acquired = false;
    EXPECT_TRUE(peer.Lock(acquired, 0));
    EXPECT_TRUE(acquired);
    EXPECT_TRUE(peer.Lock(acquired, 0));
    EXPECT_FALSE(acquired);
    EXPECT_EQ(section.GetRecursionCount(), 0) << "the count is the caller's";
    peer.SetFree();
}

TEST(CriticalSection, timed_waits_end_not_before_their_time_and_leave_no_waiter)
{
    using namespace std::chrono;
    CkCriticalSection section(0);
    CkCriticalSectionPeer peer{section};
    Holder holder(section);
    for (const bool kernelOnly : {false, true})
    {
        const auto start = steady_clock::now();
        EXPECT_FALSE(kernelOnly ? peer.PerfLockKernel(30) : peer.PerfLock(30));
        // The tick counter moves in steps of up to 16 ms.
        EXPECT_GE(steady_clock::now() - start, milliseconds(14));
        EXPECT_TRUE(peer.HasSemaphore());
        EXPECT_EQ(peer.Waiters(), 0);
    }
    bool acquired = false;
    std::thread waiter(
        [&]
        {
            EXPECT_TRUE(peer.Lock(acquired, 60000));
            peer.SetFree();
        });
    while (peer.Waiters() == 0)
        std::this_thread::yield();
    holder.Release();
    waiter.join();
    EXPECT_TRUE(acquired);
    EXPECT_EQ(peer.Waiters(), 0);
}

TEST(CriticalSection, excludes_under_contention_and_loses_no_wake_up)
{
    struct Row
    {
        unsigned int spinCount;
        int threads;
        int rounds;
    };
    for (const Row& row : {Row{0, 4, 10000}, Row{4000, 4, 40000}, Row{1, 2, 20000}})
    {
        CkCriticalSection section(row.spinCount);
        std::array<int, 2> guarded{};
        onThreads(row.threads,
                  [&](int)
                  {
                      for (int i = 0; i < row.rounds; ++i)
                      {
                          const CkCriticalSectionAuto guard(section);
                          const CkCriticalSectionAuto inner(section);
                          ++guarded[0];
                          if (i % 64 == 0)
                              std::this_thread::yield();
                          ++guarded[1];
                      }
                  });
        EXPECT_EQ(guarded[0], row.threads * row.rounds);
        EXPECT_EQ(guarded[1], row.threads * row.rounds);
        EXPECT_EQ(CkCriticalSectionPeer{section}.Waiters(), 0);
        EXPECT_TRUE(section.TryEnter());
        section.Leave();
    }
}

TEST(CriticalSection, waiters_that_give_up_take_nobodys_wake_up_along)
{
    CkCriticalSection section(0);
    CkCriticalSectionPeer peer{section};
    int guarded = 0;
    int expected = 0;
    std::atomic<int> acquiredByTimed{0};
    constexpr int rounds = 3000;
    onThreads(4,
              [&](int index)
              {
                  for (int i = 0; i < rounds; ++i)
                  {
                      bool acquired = false;
                      if (index % 2 == 0)
                      {
                          const CkCriticalSectionAuto guard(section);
                          ++guarded;
                      }
                      else if (peer.Lock(acquired, 1))
                      {
                          ++guarded;
                          ++acquiredByTimed;
                          // As `Enter` would have counted it.
                          section.Enter();
                          section.Leave();
                      }
                  }
              });
    expected = 2 * rounds + acquiredByTimed;
    EXPECT_EQ(guarded, expected);
    EXPECT_EQ(peer.Waiters(), 0);
}

TEST(CriticalSection, first_contentions_of_many_sections_at_once_leave_one_semaphore_each)
{
    constexpr int sectionCount = 300;
    std::vector<std::unique_ptr<CkCriticalSection>> sections;
    for (int i = 0; i < sectionCount; ++i)
        sections.push_back(std::make_unique<CkCriticalSection>(0));
    std::vector<int> guarded(sectionCount);
    onThreads(3,
              [&](int)
              {
                  for (std::size_t i = 0; i < sections.size(); ++i)
                  {
                      const CkCriticalSectionAuto guard(*sections[i]);
                      std::this_thread::yield();
                      ++guarded[i];
                  }
              });
    EXPECT_EQ(guarded, std::vector<int>(sectionCount, 3));
}

TEST(CriticalSection, kernel_failures_raise_with_the_raising_site)
{
    CkCriticalSection section(0);
    CkCriticalSectionPeer peer{section};
    {
        Holder holder(section);
        peer.SetSemaphore(badHandle);
        try
        {
            section.Enter();
            FAIL();
        }
        catch (const CkException& exception)
        {
            EXPECT_EQ(exception.GetFilename(), CK_T("tarvo\\threads\\ckcriticalsection"));
            EXPECT_EQ(exception.GetCodeLine(), 100u);
        }
        EXPECT_FALSE(section.IsLocking());
        EXPECT_EQ(peer.Waiters(), 0);
    }
    section.Enter();
    peer.AddWaiter();
    try
    {
        section.Leave();
        FAIL();
    }
    catch (const CkException& exception)
    {
        EXPECT_EQ(exception.GetCodeLine(), 141u);
    }
    EXPECT_FALSE(section.IsLocking());
    peer.SetSemaphore(nullptr);
}

TEST(CriticalSectionAuto, leaves_once)
{
    CkCriticalSection section;
    section.Enter();
    {
        CkCriticalSectionAuto guard(&section);
        EXPECT_EQ(section.GetRecursionCount(), 2);
        guard.Leave();
        guard.Leave();
        EXPECT_EQ(section.GetRecursionCount(), 1);
    }
    EXPECT_EQ(section.GetRecursionCount(), 1);
    section.Leave();
}

TEST(CriticalSectionAuto, raises_a_failing_leave_unless_the_stack_is_being_unwound)
{
    CkCriticalSection section(0);
    CkCriticalSectionPeer peer{section};
    const auto leaveBadly = [&](bool unwinding)
    {
        const CkCriticalSectionAuto guard(section);
        peer.SetSemaphore(badHandle);
        peer.AddWaiter();
        if (unwinding)
            throw 42;
    };
    EXPECT_THROW(leaveBadly(false), CkException);
    EXPECT_THROW(leaveBadly(true), int);
    EXPECT_FALSE(section.IsLocking());
    peer.SetSemaphore(nullptr);
}

TEST(CriticalSectionPolicy, locks_or_does_not)
{
    struct Locked : CkCriticalSectionPolicy<1>
    {
        void Add()
        {
            const Lock lock(*this);
            ++count;
        }
        int count = 0;
    };
    struct Unlocked : CkCriticalSectionPolicy<0>
    {
        void Work() const { const Lock lock(*this); }
    };
    Locked locked;
    onThreads(4,
              [&](int)
              {
                  for (int i = 0; i < 10000; ++i)
                      locked.Add();
              });
    EXPECT_EQ(locked.count, 40000);
    Unlocked().Work();
    static_assert(std::is_empty_v<Unlocked>);
}

TEST(CriticalSection, one_of_static_lifetime_may_be_used_after_its_end)
{
    alignas(CkCriticalSection) static std::byte storage[sizeof(CkCriticalSection)];
    auto* const section = new (storage) CkCriticalSection(0);
    for (int lives = 0; lives < 2; ++lives)
    {
        onThreads(3,
                  [&](int)
                  {
                      for (int i = 0; i < 500; ++i)
                      {
                          const CkCriticalSectionAuto guard(*section);
                          std::this_thread::yield();
                      }
                  });
        EXPECT_FALSE(section->IsLocking());
        section->~CkCriticalSection();
        EXPECT_FALSE(CkCriticalSectionPeer{*section}.HasSemaphore());
    }
}

TEST(CriticalSection, ends_under_its_users_and_strands_none)
{
    alignas(CkCriticalSection) static std::byte storage[sizeof(CkCriticalSection)];
    auto* const section = new (storage) CkCriticalSection(0);
    constexpr int users = 3;
    std::atomic<int> busy{users};
    std::array<int, 1> guarded{};
    onThreads(users + 1,
              [&](int index)
              {
                  if (index == users)
                  {
                      while (busy != 0)
                          section->~CkCriticalSection();
                      return;
                  }
                  for (int i = 0; i < 3000; ++i)
                  {
                      const CkCriticalSectionAuto guard(*section);
                      if (i % 16 == 0)
                          std::this_thread::yield();
                      ++guarded[0];
                  }
                  --busy;
              });
    EXPECT_EQ(guarded[0], users * 3000);
    section->~CkCriticalSection();
}

TEST(CriticalSection, is_a_member_of_aggregates)
{
    struct Aggregate
    {
        CkCriticalSection section;
        int value;
    };
    Aggregate aggregate{};
    CkCriticalSection several[2] = {};
    const CkCriticalSectionAuto first(aggregate.section);
    const CkCriticalSectionAuto second(several[1]);
    EXPECT_EQ(several[1].GetRecursionCount(), 1);
    EXPECT_EQ(aggregate.value, 0);
}

TEST(CriticalSectionSingleton, is_one_section_for_all_threads)
{
    std::array<CkCriticalSection*, 4> seen{};
    onThreads(4, [&](int index) { seen[static_cast<std::size_t>(index)] = &GetCriticalSectionSingleton(); });
    for (CkCriticalSection* const section : seen)
        EXPECT_EQ(section, seen[0]);
}

#if TARVO_CHECKED && GTEST_HAS_DEATH_TEST
TEST(CriticalSectionDeathTest, checked_builds_trap_callers_errors)
{
    CkCriticalSection section;
    EXPECT_DEATH(section.Leave(), "does not hold it");
    EXPECT_DEATH(const CkCriticalSectionAuto guard(static_cast<CkCriticalSection*>(nullptr)), "no critical section");
    EXPECT_DEATH(CkSmartPointer<CkException>()->GetCodeLine(), "empty smart pointer");
}
#endif
