#include <tarvo/core/ckatomiccounter.h>

#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <vector>

TEST(AtomicCounter, operations_return_what_they_did)
{
    CkAtomicCounter<int> counter(5);
    EXPECT_EQ(++counter, 6);
    EXPECT_EQ(counter.ExchangeValue(1), 6);
    EXPECT_EQ(counter += 4, 5);
    EXPECT_EQ(--counter, 4);
    CkAtomicCounter<int> copy = counter;
    copy = 0;
    EXPECT_TRUE(!copy);
    EXPECT_FALSE(!counter);
    copy = counter;
    EXPECT_EQ(copy.GetValue(), 4);
}

TEST(AtomicCounter, compares_and_wraps_by_its_own_sign)
{
    CkAtomicCounter<unsigned int> large(4294967295u);
    CkAtomicCounter<int> negative(-1);
    EXPECT_TRUE(large > 0u && large >= 4294967295u && large == 4294967295u && !(large < 1u));
    EXPECT_TRUE(negative < 0 && negative <= -1 && !(negative > -1));
    EXPECT_EQ(++large, 0u);
    EXPECT_EQ(--large, 4294967295u);
    CkAtomicCounter<int> highest(INT_MAX);
    EXPECT_EQ(++highest, INT_MIN);
}

TEST(AtomicCounter, every_count_is_seen_by_exactly_one_thread)
{
    constexpr int rounds = 20000;
    CkAtomicCounter<unsigned int> counter;
    std::vector<std::vector<unsigned int>> seen(3);
    std::vector<std::thread> threads;
    for (std::vector<unsigned int>& mine : seen)
    {
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < rounds; ++i)
                    mine.push_back(++counter);
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::vector<bool> counted(3 * rounds + 1);
    for (const auto& mine : seen)
    {
        for (const unsigned int value : mine)
        {
            EXPECT_FALSE(counted[value]);
            counted[value] = true;
        }
    }
    EXPECT_EQ(counter.GetValue(), 3u * rounds);
}
