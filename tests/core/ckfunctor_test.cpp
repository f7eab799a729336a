#include <tarvo/core/ckexception.h>
#include <tarvo/core/ckfunctor.h>

#include <support/printers.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

namespace
{
using Binary = CkFunctor<int, CkSequence<int, int>>;
using Action = CkFunctor<void, CkSequence<>>;

int subtract(int left, int right)
{
    return left - right;
}

class Offset : public CkReferenceCountedClass<Offset, 0>
{
public:
    explicit Offset(int value) : m_value(value) {}
    int Subtract(int left, int right) const { return left - right + m_value; }
    int SubtractAndCount(int left, int right) { return left - right + m_value++; }

private:
    int m_value;
};

struct DerivedOffset : Offset
{
    using Offset::Offset;
};
} // namespace

TEST(Functor, calls_whatever_it_was_made_of)
{
    Offset offset(10);
    const Offset constant(20);
    DerivedOffset derived(30);
    const CkSmartPointer<Offset> shared(new Offset(40));
    Offset* pointer = &offset;
    struct Row
    {
        const char* what;
        Binary functor;
        int result;
    };
    const Row rows[] = {
        {"function", subtract, 2},
        {"pointer to function", &subtract, 2},
        {"object that can be called", std::minus<>(), 2},
        {"closure", [base = 5](int left, int right) { return base + left - right; }, 7},
        {"other parameters and result", [](double left, long long right) { return left - static_cast<double>(right); },
         2},
        {"member of a pointer", {pointer, &Offset::Subtract}, 12},
        {"member of a reference", {offset, &Offset::SubtractAndCount}, 12},
        {"constant member of a constant", {constant, &Offset::Subtract}, 22},
        {"member of a base", {&derived, &Offset::Subtract}, 32},
        {"member of a shared object", {shared, &Offset::SubtractAndCount}, 42},
        {"member of an object that only the functor holds",
         {CkSmartPointer<Offset>(new Offset(50)), &Offset::Subtract},
         52},
    };
    for (const Row& row : rows)
    {
        EXPECT_TRUE(row.functor && !row.functor.IsEmpty()) << row.what;
        EXPECT_EQ(row.functor(5, 3), row.result) << row.what;
    }
    EXPECT_EQ(offset.Subtract(0, 0), 11) << "called on the object itself";
    EXPECT_EQ(shared->GetReferenceCount(), 2);
    static_assert(!std::is_constructible_v<Binary, int (*)(std::string, int)>);
    static_assert(!std::is_constructible_v<Binary, Offset, decltype(&Offset::Subtract)> &&
                      !std::is_constructible_v<Binary, const Offset, decltype(&Offset::Subtract)>,
                  "a temporary would be gone");
}

TEST(Functor, an_empty_one_raises)
{
    int (*const none)(int, int) = nullptr;
    for (const Binary& functor : {Binary(), Binary(none), Binary(std::function<int(int, int)>())})
    {
        EXPECT_TRUE(functor.IsEmpty() && !functor);
        try
        {
            functor(1, 2);
            ADD_FAILURE();
        }
        catch (const CkException& exception)
        {
            EXPECT_TRUE(exception.Is(CkException::RTTI));
            EXPECT_EQ(exception.GetFilename(), CK_T("tarvo\\core\\ckfunctor"));
            EXPECT_EQ(exception.GetCodeLine(), 170u);
        }
    }
}

TEST(Functor, copies_share_what_they_call_which_goes_with_the_last)
{
    const auto alive = std::make_shared<int>(0);
    Action first = [alive, calls = 0]() mutable { *alive = ++calls; };
    {
        const Action second = first;
        second();
        first();
        EXPECT_EQ(*alive, 2);
        first = Action();
        EXPECT_TRUE(first.IsEmpty());
        EXPECT_EQ(alive.use_count(), 2);
    }
    EXPECT_EQ(alive.use_count(), 1);
}

TEST(Functor, passes_references_on_and_moves_values)
{
    const CkFunctor<int&, CkSequence<int&>> same = [](int& value) -> int& { return value; };
    int value = 0;
    EXPECT_EQ(&same(value), &value);
    const CkFunctor<int, CkSequence<std::unique_ptr<int>, std::string&&>> take =
        [](std::unique_ptr<int> number, std::string&& text)
    {
        const std::string taken = std::move(text);
        return *number + static_cast<int>(taken.size());
    };
    std::string text(100, 'x');
    EXPECT_EQ(take(std::make_unique<int>(1), std::move(text)), 101);
}
