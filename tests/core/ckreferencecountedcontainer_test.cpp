#include <tarvo/core/ckreferencecountedcontainer.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/core/ckweakpointer.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace
{
using Container = CkReferenceCountedContainer<int, unsigned int>;

Container* create()
{
    return static_cast<Container*>(CreateReferenceCountedContainer());
}
} // namespace

TEST(ReferenceCountedContainer, stays_until_it_is_given_back_and_is_the_next_one_then)
{
    Container* const container = create();
    EXPECT_TRUE(container->IsExternalManagement() && container->GetValue() == 0);
    CkWeakPointer<Container> weak;
    {
        const CkSmartPointer<Container> pointer(container);
        weak = pointer;
        container->GetValue() = 7;
        EXPECT_EQ(weak.Lock().Get(), container);
    }
    EXPECT_FALSE(weak.Lock());
    EXPECT_TRUE(container->GetReferenceCount() == 0 && container->GetValue() == 7);

    ReleaseReferenceCountedContainer(container);
    ReleaseReferenceCountedContainer(nullptr);
    Container* const next = create();
    EXPECT_EQ(next, container);
    EXPECT_TRUE(next->GetValue() == 0 && next->GetReferenceCount() == 0);
    ReleaseReferenceCountedContainer(next);
}

TEST(ReferenceCountedContainer, is_made_and_given_back_on_any_thread)
{
    std::vector<std::thread> threads;
    std::atomic<int> clashes{0};
    for (int thread = 1; thread <= 4; ++thread)
    {
        threads.emplace_back(
            [thread, &clashes]
            {
                std::vector<Container*> mine;
                for (int i = 0; i < 1500; ++i)
                {
                    mine.push_back(create());
                    clashes += mine.back()->GetValue() != 0 ? 1 : 0;
                    mine.back()->GetValue() = thread;
                }
                for (Container* container : mine)
                {
                    clashes += container->GetValue() != thread ? 1 : 0;
                    ReleaseReferenceCountedContainer(container);
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(clashes, 0);
}
