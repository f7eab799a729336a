#include <tarvo/core/cksingleton.h>

#include <support/barrier.h>

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <thread>
#include <vector>

namespace
{
class Plain : public CkSingleton<Plain>
{
    friend class CkSingleton<Plain>;
    Plain() = default;
};

class Stubborn : public CkSingleton<Stubborn>
{
    friend class CkSingleton<Stubborn>;
    Stubborn()
    {
        if (failures-- > 0)
            throw std::runtime_error("not yet");
    }

public:
    static inline int failures = 2;
};

class Contested : public CkSingleton<Contested>
{
    friend class CkSingleton<Contested>;
    Contested()
    {
        ++made;
        EXPECT_TRUE(GetCriticalSectionSingleton().IsLocking());
    }

public:
    static inline std::atomic<int> made{0};
};
} // namespace

TEST(Singleton, a_failed_construction_is_tried_again)
{
    EXPECT_THROW(Stubborn::GetInstance(), std::runtime_error);
    EXPECT_THROW(Stubborn::GetInstance(), std::runtime_error);
    EXPECT_EQ(Stubborn::HasInstance(), 0);
    EXPECT_FALSE(GetCriticalSectionSingleton().IsLocking());
    Stubborn::GetInstance();
    EXPECT_EQ(Stubborn::HasInstance(), 1);
}

TEST(Singleton, threads_that_ask_at_once_get_one_instance)
{
    Barrier start(4);
    std::array<Contested*, 4> seen{};
    std::vector<std::thread> threads;
    for (Contested*& mine : seen)
    {
        threads.emplace_back(
            [&]
            {
                start.Arrive();
                mine = &Contested::GetInstance();
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const Contested* const instance : seen)
        EXPECT_EQ(instance, seen[0]);
    EXPECT_EQ(Contested::made, 1);
}
