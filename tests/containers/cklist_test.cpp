#include <tarvo/containers/cklist.h>
#include <tarvo/core/ckexception.h>

#include <support/barrier.h>
#include <support/fragile.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

namespace
{
template <class T>
using DoubleList = CkList<T, 17, unsigned int>;
template <class T>
using SingleList = CkList<T, 9, unsigned int>;

static_assert(!std::is_copy_constructible_v<DoubleList<int>> && !std::is_copy_assignable_v<DoubleList<int>>);

template <class L>
concept Counts = requires(L list) { list.GetCount(); };
template <class L>
concept RemovesTail = requires(L list) { list.RemoveTail(); };
static_assert(Counts<DoubleList<int>> && !Counts<CkList<int, 16, unsigned int>>);
static_assert(RemovesTail<DoubleList<int>> && !RemovesTail<SingleList<int>>);

template <class L>
std::vector<typename L::value_type> contentOf(const L& list)
{
    return {list.begin(), list.end()};
}

template <class List>
void compareWithModel()
{
    std::mt19937 random(7);
    List list(4u);
    std::list<int> model;
    for (int i = 0; i < 5000; ++i)
    {
        switch (random() % 6)
        {
        case 0:
        case 1:
            list.AddTail(model.size() > 3 ? list.GetHead() : i);
            model.push_back(model.size() > 3 ? model.front() : i);
            break;
        case 2:
            list.AddHead() = i;
            model.push_front(i);
            break;
        case 3:
            if (!model.empty())
            {
                list.RemoveHead();
                model.pop_front();
            }
            break;
        case 4:
            if constexpr (RemovesTail<List>)
            {
                if (!model.empty())
                {
                    list.RemoveTail();
                    model.pop_back();
                }
            }
            break;
        default:
            if (random() % 50 == 0)
            {
                list.RemoveAll();
                model.clear();
            }
        }
        ASSERT_EQ(contentOf(list), std::vector<int>(model.begin(), model.end()));
        ASSERT_EQ(list.GetCount(), model.size());
        ASSERT_EQ(list.IsEmpty(), model.empty());
        if (!model.empty())
        {
            ASSERT_EQ(list.GetHead(), model.front());
            ASSERT_EQ(list.GetTail(), model.back());
        }
    }
}
} // namespace

TEST(List, does_what_a_standard_list_does)
{
    compareWithModel<DoubleList<int>>();
    compareWithModel<SingleList<int>>();
}

TEST(List, misuse_is_refused_and_changes_nothing)
{
    DoubleList<int> list;
    EXPECT_THROW(list.RemoveHead(), CkExceptionPreconditionViolation);
    EXPECT_THROW(list.RemoveTail(), CkExceptionPreconditionViolation);
    EXPECT_THROW(DoubleList<int>(0u), CkExceptionPreconditionViolation);
    list.AddTail(1);
    const CkSmartPointer<DoubleList<int>::PlexManager> pool(new DoubleList<int>::PlexManager(5));
    try
    {
        list.SetPlexManager(pool);
        ADD_FAILURE();
    }
    catch (const CkExceptionPreconditionViolation& exception)
    {
        EXPECT_EQ(exception.GetFilename(), CK_T("tarvo\\containers\\cklistbaseintermediate"));
    }
    EXPECT_TRUE(list.GetCount() == 1 && list.GetTail() == 1 && pool->GetReferenceCount() == 1);
}

TEST(List, several_share_a_pool_and_reuse_each_others_nodes_the_last_released_first)
{
    using List = DoubleList<int>;
    const CkSmartPointer<List::PlexManager> pool(new List::PlexManager(10));
    List first(pool);
    List second(nullptr);
    second.SetPlexManager(pool);
    std::set<const void*> nodes;
    for (int i = 0; i < 10; ++i)
        nodes.insert(&first.AddTail(i));
    first.RemoveHead();
    const int* const tail = &first.GetTail();
    first.RemoveTail();
    EXPECT_EQ(&second.AddTail(1), tail);
    EXPECT_TRUE(nodes.contains(&second.AddTail(2)));
    EXPECT_FALSE(nodes.contains(&second.AddTail(3))) << "of a second block";
    EXPECT_EQ(pool->GetReferenceCount(), 3);
}

TEST(List, an_element_that_cannot_be_constructed_leaves_the_list_as_it_was)
{
    {
        DoubleList<Fragile> list(20u);
        list.AddTail(Fragile(2));
        const void* const next = &list.AddTail();
        list.RemoveTail();
        for (const auto& add : {std::function<void()>([&] { list.AddTail(); }),
                                std::function<void()>([&] { list.AddTail(list.GetHead()); }),
                                std::function<void()>([&] { list.AddHead(list.GetHead()); })})
        {
            Fragile::ThrowAt(1);
            EXPECT_THROW(add(), std::runtime_error);
            EXPECT_EQ(contentOf(list), std::vector<Fragile>{2});
        }
        EXPECT_EQ(&list.AddTail(), next) << "the node went back";
    }
    EXPECT_EQ(Fragile::Living(), 0);
}

// An element is out of the list before it is destroyed.
TEST(List, destructors_of_elements_may_use_the_list)
{
    struct Element
    {
        std::function<void()> atEnd;

        explicit Element(std::function<void()> action = {}) : atEnd(std::move(action)) {}
        Element(Element&& other) noexcept : atEnd(std::exchange(other.atEnd, nullptr)) {}

        ~Element()
        {
            if (atEnd)
                atEnd();
        }
    };
    std::vector<unsigned int> counts;
    int late = 0;
    {
        DoubleList<Element> list(3u);
        const auto note = [&] { counts.push_back(list.GetCount()); };
        list.AddTail(Element(note));
        list.AddTail(Element([&] { list.AddTail(Element([&] { ++late; })); }));
        list.AddTail(Element(note));
        list.RemoveHead();
        EXPECT_EQ(counts, std::vector{2u});
        list.RemoveAll();
        EXPECT_EQ(counts, (std::vector{2u, 1u}));
        EXPECT_TRUE(list.GetCount() == 1 && late == 0);
        list.AddTail(Element([&] { list.AddTail(Element([&] { ++late; })); }));
    }
    EXPECT_EQ(late, 2) << "also what was added while the list was destroyed";
}

TEST(List, moves_its_elements_and_its_pool)
{
    DoubleList<std::unique_ptr<int>> from(2u);
    from.AddTail(std::make_unique<int>(1));
    const void* const element = &from.AddTail(std::make_unique<int>(2));
    DoubleList<std::unique_ptr<int>> to(std::move(from));
    EXPECT_TRUE(to.GetCount() == 2 && &to.GetTail() == element);
    EXPECT_TRUE(from.IsEmpty() && from.GetCount() == 0);
    from = std::move(to);
    EXPECT_TRUE(from.GetCount() == 2 && &from.GetTail() == element && to.IsEmpty());
    from = DoubleList<std::unique_ptr<int>>(4u);
    EXPECT_TRUE(from.IsEmpty());
}

TEST(NodePool, hands_out_nodes_for_every_size_and_alignment)
{
    const auto check = []<class Node>(Node)
    {
        CkPlexManager<Node, 0, 0, unsigned int> pool(7);
        std::set<std::uintptr_t> starts;
        for (int i = 0; i < 20; ++i)
        {
            void* const node = pool.AllocateNode();
            std::fill_n(static_cast<unsigned char*>(node), sizeof(Node), static_cast<unsigned char>(0xAA));
            const auto address = reinterpret_cast<std::uintptr_t>(node);
            EXPECT_EQ(address % alignof(Node), 0u);
            const auto above = starts.lower_bound(address);
            EXPECT_TRUE(above == starts.end() || address + sizeof(Node) <= *above);
            EXPECT_TRUE(above == starts.begin() || *std::prev(above) + sizeof(Node) <= address);
            starts.insert(address);
        }
    };
    struct alignas(64) Wide
    {
        char bytes[64];
    };
    struct Odd
    {
        char bytes[13];
    };
    check('x');
    check(Odd());
    check(1.0L);
    check(Wide());
}

TEST(NodePool, a_block_begins_with_its_last_node_and_is_obtained_ahead_once)
{
    using Pool = CkPlexManager<double, 0, 0, unsigned int>;
    Pool pool(3);
    pool.PreallocateBlock();
    const auto* const last = static_cast<const double*>(pool.AllocateNode());
    pool.ReleaseNode(const_cast<double*>(last));
    pool.PreallocateBlock(); // enough is free
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(pool.AllocateNode(), last - i);
}

TEST(NodePool, without_memory_raises_and_stays_usable)
{
    struct Huge
    {
        char bytes[1u << 20];
    };
    CkPlexManager<Huge, 1, 0, unsigned int> pool(0xFFFFFFFF);
    EXPECT_EQ(pool.TryAllocateNode(), nullptr);
    EXPECT_THROW(pool.PreallocateBlock(), CkExceptionOutOfMemory);
    try
    {
        pool.AllocateNode();
        ADD_FAILURE();
    }
    catch (const CkExceptionOutOfMemory& exception)
    {
        EXPECT_EQ(exception.GetFilename(), CK_T("tarvo\\containers\\ckplexmanager"));
    }
}

TEST(NodePool, that_locks_itself_serves_threads_at_once)
{
    CkPlexManager<int, 1, 0, unsigned int> pool(16);
    constexpr int threadCount = 4;
    Barrier start(threadCount);
    std::atomic<int> clashes{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
    {
        threads.emplace_back(
            [&, thread]
            {
                start.Arrive();
                std::vector<int*> mine;
                for (int i = 0; i < 3000; ++i)
                {
                    mine.push_back(pool.Create(thread));
                    if (i % 3 == 2)
                    {
                        clashes += *mine.front() != thread ? 1 : 0;
                        pool.Destroy(mine.front());
                        mine.erase(mine.begin());
                    }
                    if (i % 500 == 0)
                        pool.PreallocateBlock();
                }
                for (const int* node : mine)
                    clashes += *node != thread ? 1 : 0;
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(clashes, 0);
}
