#include <tarvo/core/cksmartpointer.h>
#include <tarvo/core/ckweakpointer.h>

#include <support/barrier.h>
#include <support/sharedobject.h>

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <thread>
#include <unordered_set>
#include <vector>

struct CkReferenceCountedClassPeer
{
    template <class T>
    static T& Add(T& object)
    {
        return static_cast<T&>(object.GetReference());
    }
    template <class T>
    static LONG Release(T& object)
    {
        return object.ReleaseReference();
    }
};

namespace
{
class Base : public CkReferenceCountedClass<Base, 0>
{
public:
    virtual int Answer() const { return 1; }
    CkCriticalSection& Lock() const { return objectLock(); }
};

class Derived : public Base
{
public:
    explicit Derived(std::function<void()> onEnd = {}) : m_onEnd(std::move(onEnd)) {}
    ~Derived() override
    {
        if (m_onEnd)
            m_onEnd();
    }
    int Answer() const override { return 2; }

private:
    std::function<void()> m_onEnd;
};
} // namespace

TEST(SmartPointer, the_last_one_ends_a_self_managed_object_and_leaves_an_external_one)
{
    {
        auto* const object = new SharedObject;
        EXPECT_EQ(object->GetReferenceCount(), 0);
        const CkSmartPointer<SharedObject> first(object);
        {
            const CkSmartPointer<const SharedObject> second = first;
            EXPECT_EQ(object->GetReferenceCount(), 2);
        }
        EXPECT_EQ(object->GetReferenceCount(), 1);
        EXPECT_EQ(SharedObject::Living(), 1);
    }
    EXPECT_EQ(SharedObject::Living(), 0);

    ExternalObject external;
    EXPECT_TRUE(external.IsExternalManagement());
    CkSmartPointer<ExternalObject> pointer(&external);
    pointer.Reset();
    EXPECT_EQ(external.GetReferenceCount(), 0);
    EXPECT_EQ(ExternalObject::Living(), 1);
    pointer = &external;
    EXPECT_EQ(external.GetReferenceCount(), 1);
}

TEST(SmartPointer, copying_an_object_copies_neither_references_nor_weak_references)
{
    const CkSmartPointer<SharedObject> original(new SharedObject);
    const CkWeakPointer<SharedObject> weak(original);
    SharedObject copy(*original);
    EXPECT_EQ(copy.GetReferenceCount(), 0);
    copy = *original;
    EXPECT_EQ(copy.GetReferenceCount(), 0);
    *original.Get() = copy;
    EXPECT_EQ(original->GetReferenceCount(), 1);
    EXPECT_EQ(weak.Lock(), original);
}

TEST(SmartPointer, private_counting_returns_the_operations_own_result)
{
    ExternalObject object;
    EXPECT_EQ(&CkReferenceCountedClassPeer::Add(object), &object);
    const ExternalObject& constant = object;
    EXPECT_EQ(&CkReferenceCountedClassPeer::Add(constant), &object);
    EXPECT_EQ(CkReferenceCountedClassPeer::Release(constant), 1);
    EXPECT_EQ(CkReferenceCountedClassPeer::Release(object), 0);
}

TEST(SmartPointer, assignment_takes_before_it_drops)
{
    CkSmartPointer<SharedObject> list(new SharedObject);
    list->next = new SharedObject;
    list->next->next = new SharedObject;
    SharedObject* const second = list->next.Get();

    list = list->next;
    EXPECT_EQ(list, second);
    EXPECT_EQ(list->GetReferenceCount(), 1);
    EXPECT_EQ(SharedObject::Living(), 2);

    list = std::move(list->next);
    EXPECT_EQ(SharedObject::Living(), 1);

    const CkSmartPointer<SharedObject>& alias = list;
    list = alias;
    list = list.Get();
    EXPECT_EQ(list->GetReferenceCount(), 1);
    CkSmartPointer<SharedObject>& itself = list;
    list = std::move(itself);
    EXPECT_EQ(list->GetReferenceCount(), 1);
    list = nullptr;
    EXPECT_EQ(SharedObject::Living(), 0);
}

TEST(SmartPointer, moves_count_nothing_and_conversions_share)
{
    CkSmartPointer<Derived> derived(new Derived);
    CkSmartPointer<const Base> base = derived;
    EXPECT_EQ(base->GetReferenceCount(), 2);
    EXPECT_EQ(base->Answer(), 2);
    base = std::move(derived);
    EXPECT_FALSE(derived);
    EXPECT_TRUE(!derived);
    EXPECT_EQ(base->GetReferenceCount(), 1);
    CkSmartPointer<const Base> moved(std::move(base));
    EXPECT_EQ(base, nullptr);
    EXPECT_EQ(moved->GetReferenceCount(), 1);
    EXPECT_EQ((*moved).Answer(), 2);
    EXPECT_NE(moved, base);
    EXPECT_TRUE(base < moved);
    EXPECT_EQ(std::unordered_set<CkSmartPointer<const Base>>({moved, moved}).size(), 1u);
    static_assert(!std::is_convertible_v<CkSmartPointer<const Base>, CkSmartPointer<Base>>);
    static_assert(!std::is_convertible_v<CkSmartPointer<Base>, CkSmartPointer<Derived>>);
    static_assert(!std::is_convertible_v<CkSmartPointer<Base>, bool>);
}

TEST(SmartPointer, is_empty_before_its_object_goes)
{
    CkSmartPointer<Base> pointer;
    bool wasEmpty = false;
    pointer = new Derived([&] { wasEmpty = !pointer; });
    pointer.Reset();
    EXPECT_TRUE(wasEmpty);
}

TEST(SmartPointer, a_class_may_have_operations_of_any_name)
{
    class Named : public CkReferenceCountedClass<Named, 0>
    {
    public:
        explicit Named(int& living) : m_living(living) { ++m_living; }
        ~Named() override { --m_living; }
        void release() const noexcept {}
        void GetReference() const noexcept {}
        void tryAddReference() const noexcept {}
        void detach() const noexcept {}

    private:
        int& m_living;
    };
    int living = 0;
    {
        const CkSmartPointer<Named> owner(new Named(living));
        const CkWeakPointer<Named> weak(owner);
        EXPECT_EQ(weak.Lock()->GetReferenceCount(), 2);
    }
    EXPECT_EQ(living, 0);
}

TEST(SmartPointer, an_objects_own_lock_is_the_derived_classs)
{
    const CkSmartPointer<Base> object(new Base);
    const CkCriticalSectionAuto guard(object->Lock());
    CkSmartPointer<Base> other = object;
    std::thread([other = std::move(other)]() mutable { other.Reset(); }).join();
    EXPECT_EQ(object->GetReferenceCount(), 1) << "releasing takes no lock";
}

TEST(SmartPointer, objects_end_once_whoever_releases_last)
{
    constexpr int threadCount = 3;
    constexpr std::size_t objectCount = 20000;
    std::array<std::vector<CkSmartPointer<SharedObject>>, threadCount> shares;
    for (std::size_t i = 0; i < objectCount; ++i)
    {
        const CkSmartPointer<SharedObject> object(new SharedObject);
        for (auto& share : shares)
            share.push_back(object);
    }
    EXPECT_EQ(SharedObject::Living(), static_cast<int>(objectCount));
    Barrier start(threadCount);
    std::vector<std::thread> threads;
    for (auto& share : shares)
    {
        threads.emplace_back(
            [&start, &share]
            {
                start.Arrive();
                for (CkSmartPointer<SharedObject>& pointer : share)
                {
                    const CkSmartPointer<SharedObject> copy = pointer;
                    pointer.Reset();
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(SharedObject::Living(), 0);
}

TEST(WeakPointer, follows_its_object_to_the_end)
{
    CkSmartPointer<SharedObject> owner(new SharedObject);
    CkWeakPointer<SharedObject> fromOwner(owner);
    const CkWeakPointer<SharedObject> fromObject(owner.Get());
    CkWeakPointer<const SharedObject> converted;
    converted = CkSmartPointer<const SharedObject>(owner);
    CkWeakPointer<SharedObject> copy(fromOwner);
    copy = fromObject;
    EXPECT_EQ(owner->GetReferenceCount(), 1);
    EXPECT_EQ(fromOwner.Lock(), owner);
    EXPECT_EQ(converted.Lock(), owner);
    fromOwner.Reset();
    EXPECT_TRUE(fromOwner.IsExpired());
    EXPECT_EQ(copy.Lock(), owner);
    fromOwner = copy;

    owner.Reset();
    EXPECT_EQ(SharedObject::Living(), 0);
    for (const CkWeakPointer<SharedObject>* weak : {&std::as_const(fromOwner), &fromObject, &std::as_const(copy)})
    {
        EXPECT_TRUE(weak->IsExpired());
        EXPECT_FALSE(weak->Lock());
    }
    EXPECT_FALSE(converted.Lock());
    EXPECT_FALSE(CkWeakPointer<SharedObject>(copy).Lock());
    EXPECT_FALSE(CkWeakPointer<SharedObject>(CkSmartPointer<SharedObject>()).Lock());

    copy = CkSmartPointer<SharedObject>(new SharedObject);
    EXPECT_FALSE(copy.Lock());
}

TEST(WeakPointer, gives_nothing_of_an_object_that_nobody_owns)
{
    CkWeakPointer<ExternalObject> weak;
    {
        ExternalObject external;
        weak = CkSmartPointer<ExternalObject>(&external);
        EXPECT_TRUE(weak.IsExpired()) << "the last reference has gone, though the object lives";
        weak = CkWeakPointer<ExternalObject>(&external);
        EXPECT_FALSE(weak.Lock()) << "a count of 0 is not revived";
        const CkSmartPointer<ExternalObject> owner(&external);
        EXPECT_EQ(weak.Lock(), owner);
    }
    EXPECT_TRUE(weak.IsExpired());
    SharedObject local;
    const CkWeakPointer<SharedObject> ofLocal(&local);
    EXPECT_FALSE(ofLocal.Lock());
}

TEST(WeakPointer, sees_the_end_before_the_destructor_runs)
{
    CkWeakPointer<Base> weak;
    bool gone = false;
    CkSmartPointer<Base> owner(new Derived([&] { gone = !weak.Lock() && weak.IsExpired(); }));
    weak = owner;
    owner.Reset();
    EXPECT_TRUE(gone);
}

TEST(WeakPointer, many_holders_come_and_go_in_any_order)
{
    CkSmartPointer<SharedObject> owner(new SharedObject);
    std::vector<std::unique_ptr<CkWeakPointer<SharedObject>>> holders;
    for (int i = 0; i < 20000; ++i)
        holders.push_back(std::make_unique<CkWeakPointer<SharedObject>>(owner));
    for (std::size_t i = 0; i < holders.size(); i += 3)
        holders[i].reset();
    owner.Reset();
    for (const auto& holder : holders)
        EXPECT_TRUE(holder == nullptr || holder->IsExpired());
}

/// Registers, locks, copies and destroys weak pointers on all threads while owners come and go on all threads.
template <class Object>
void raceWeakPointers(int rounds, const std::function<CkSmartPointer<Object>()>& make)
{
    constexpr int threadCount = 3;
    CkCriticalSection exchange;
    std::array<CkSmartPointer<Object>, 4> owners;
    std::array<CkWeakPointer<Object>, 4> shared;
    std::atomic<int> locked{0};
    std::vector<std::thread> threads;
    for (unsigned int seed = 1; seed <= threadCount; ++seed)
    {
        threads.emplace_back(
            [&, random = seed]() mutable
            {
                std::array<CkWeakPointer<Object>, 8> own;
                for (int i = 0; i < rounds; ++i)
                {
                    random = random * 1664525u + 1013904223u;
                    const std::size_t slot = random >> 8 & 3u;
                    CkWeakPointer<Object>& mine = own[random >> 12 & 7u];
                    CkSmartPointer<Object> dropped;
                    switch (random >> 20 & 7u)
                    {
                    case 0:
                    case 1:
                    {
                        dropped = make();
                        const CkCriticalSectionAuto guard(exchange);
                        dropped.swap(owners[slot]);
                        break;
                    }
                    case 2:
                    {
                        const CkCriticalSectionAuto guard(exchange);
                        shared[slot] = mine;
                        dropped = owners[slot];
                        mine = dropped;
                        break;
                    }
                    case 3:
                    {
                        const CkCriticalSectionAuto guard(exchange);
                        mine = shared[slot];
                        break;
                    }
                    case 4: mine.Reset(); break;
                    default:
                        if (const CkSmartPointer<Object> object = mine.Lock())
                        {
                            EXPECT_GE(object->GetReferenceCount(), 1);
                            const CkWeakPointer<Object> again(object);
                            EXPECT_EQ(again.Lock(), object);
                            ++locked;
                        }
                    }
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(locked, 0);
}

TEST(WeakPointer, survives_every_race_with_the_last_release)
{
    raceWeakPointers<SharedObject>(60000, [] { return CkSmartPointer<SharedObject>(new SharedObject); });
    EXPECT_EQ(SharedObject::Living(), 0);
}

TEST(WeakPointer, survives_every_race_with_the_last_release_of_external_objects)
{
    // The owner takes an object back, and destroys it, as soon as it sees that its count is 0.
    std::vector<std::unique_ptr<ExternalObject>> objects;
    CkCriticalSection lock;
    raceWeakPointers<ExternalObject>(30000,
                                     [&]
                                     {
                                         const CkCriticalSectionAuto guard(lock);
                                         std::erase_if(objects, [](const auto& object)
                                                       { return object->GetReferenceCount() == 0; });
                                         objects.push_back(std::make_unique<ExternalObject>());
                                         return CkSmartPointer<ExternalObject>(objects.back().get());
                                     });
    objects.clear();
    EXPECT_EQ(ExternalObject::Living(), 0);
}
