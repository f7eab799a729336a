#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckreferencecountedclass.h>
#include <tarvo/core/cksmartpointer.h>

#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

/// Stands where a sequence of types has no more.
struct CkNoType
{
};

/// A list of up to 20 types.
template <class T1 = CkNoType, class T2 = CkNoType, class T3 = CkNoType, class T4 = CkNoType, class T5 = CkNoType,
          class T6 = CkNoType, class T7 = CkNoType, class T8 = CkNoType, class T9 = CkNoType, class T10 = CkNoType,
          class T11 = CkNoType, class T12 = CkNoType, class T13 = CkNoType, class T14 = CkNoType, class T15 = CkNoType,
          class T16 = CkNoType, class T17 = CkNoType, class T18 = CkNoType, class T19 = CkNoType, class T20 = CkNoType>
struct CkSequence
{
};

namespace tarvo::detail
{
template <class... P>
struct Parameters
{
};

/// Moves the types before the first `CkNoType` of a sequence into `Parameters`.
template <class Taken, class... Rest>
struct TakeParameters
{
    using Type = Taken;
};

template <class... Taken, class Next, class... Rest>
struct TakeParameters<Parameters<Taken...>, Next, Rest...> : TakeParameters<Parameters<Taken..., Next>, Rest...>
{
};

template <class... Taken, class... Rest>
struct TakeParameters<Parameters<Taken...>, CkNoType, Rest...>
{
    static_assert((std::same_as<Rest, CkNoType> && ...), "a sequence has no gaps");
    using Type = Parameters<Taken...>;
};

template <class Sequence>
struct SequenceParameters;

template <class... T>
struct SequenceParameters<CkSequence<T...>> : TakeParameters<Parameters<>, T...>
{
};

[[noreturn]] TARVO_API void raiseFunctorIsEmpty();

/// What a functor calls; copies of the functor share it.
template <class R, class... P>
class FunctorImplementation : public CkReferenceCountedClass<FunctorImplementation<R, P...>, 0>
{
public:
    virtual R Call(P... arguments) = 0;
};

template <class F, class R, class... P>
class CallableImplementation final : public FunctorImplementation<R, P...>
{
public:
    template <class Source>
    explicit CallableImplementation(Source&& callable) : m_callable(std::forward<Source>(callable))
    {
    }

    R Call(P... arguments) override
    {
        if constexpr (std::is_void_v<R>)
            std::invoke(m_callable, std::forward<P>(arguments)...);
        else
            return static_cast<R>(std::invoke(m_callable, std::forward<P>(arguments)...));
    }

private:
    F m_callable;
};

/// A member function with the pointer to its object, plain or smart.
template <class Pointer, class Member>
class BoundMember
{
public:
    BoundMember(Pointer object, Member member) noexcept : m_object(std::move(object)), m_member(member) {}

    template <class... A>
        requires std::invocable<Member, decltype(*std::declval<const Pointer&>()), A...>
    decltype(auto) operator()(A&&... arguments) const
    {
        return std::invoke(m_member, *m_object, std::forward<A>(arguments)...);
    }

private:
    Pointer m_object;
    Member m_member;
};

/// Callables that may be there or not, such as pointers to functions.
template <class F>
concept NullableCallable = std::constructible_from<F, std::nullptr_t> && requires(const F& callable) {
    {
        callable == nullptr
    } -> std::convertible_to<bool>;
};

template <class R, class P>
class FunctorBase;

/// The part of a functor that is written in terms of its parameters.
template <class R, class... P>
class FunctorBase<R, Parameters<P...>>
{
    template <class F>
    static constexpr bool isCallable = std::is_invocable_r_v<R, F&, P...>;

public:
    FunctorBase() noexcept = default;

    /// Takes a copy of `callable`. A null pointer to a function, or an empty `std::function`, makes an empty functor.
    template <class F>
        requires(!std::derived_from<std::remove_cvref_t<F>, FunctorBase> && isCallable<std::decay_t<F>>)
    FunctorBase(F&& callable)
    {
        using Callable = std::decay_t<F>;
        if constexpr (NullableCallable<Callable> && !std::is_function_v<std::remove_reference_t<F>>)
        {
            if (callable == nullptr)
                return;
        }
        m_implementation = new CallableImplementation<Callable, R, P...>(std::forward<F>(callable));
    }

    /// Calls `member` of `object`, which must live as long as the functor is called.
    template <class T, class Member>
        requires(std::is_member_function_pointer_v<Member> && isCallable<BoundMember<T*, Member>>)
    FunctorBase(T* object, Member member) : FunctorBase(BoundMember<T*, Member>(object, member))
    {
    }

    template <class T, class Member>
        requires(std::is_member_function_pointer_v<Member> && isCallable<BoundMember<T*, Member>>)
    FunctorBase(T& object, Member member) : FunctorBase(std::addressof(object), member)
    {
    }

    /// A temporary object would be gone when it is called.
    template <class Base, class T, class Function>
        requires std::derived_from<T, Base>
    FunctorBase(const T&& object, Function Base::*member) = delete;

    /// Calls `member` of `object` and owns a share of it.
    template <class T, int N, class C, class Member>
        requires(std::is_member_function_pointer_v<Member> && isCallable<BoundMember<CkSmartPointer<T, N, C>, Member>>)
    FunctorBase(const CkSmartPointer<T, N, C>& object, Member member)
        : FunctorBase(BoundMember<CkSmartPointer<T, N, C>, Member>(object, member))
    {
    }

    R operator()(P... arguments) const
    {
        if (!m_implementation)
            raiseFunctorIsEmpty();
        return m_implementation->Call(std::forward<P>(arguments)...);
    }

    bool IsEmpty() const noexcept { return !m_implementation; }
    explicit operator bool() const noexcept { return !IsEmpty(); }

private:
    CkSmartPointer<FunctorImplementation<R, P...>> m_implementation;
};
} // namespace tarvo::detail

/// Something to call with the parameters of the sequence `S` and a result `R`: a function, any object that can be
/// called, or a member function together with its object. What is called may return more than `R`, or take less exact
/// parameters, as far as one converts to the other.
///
/// Threads: a functor is a value for one thread at a time. Copies share what they call, which must stand it where they
/// are called on several threads.
/// Lifetime: what is called goes with the last copy, so it must not replace its own functor while it runs. Its code
/// must be there until then: a module that has given functors away stays loaded.
/// Failure: calling an empty functor raises `CkException`; construction raises what allocation and copying the callable
/// raise.
template <class R, class S>
class CkFunctor : public tarvo::detail::FunctorBase<R, typename tarvo::detail::SequenceParameters<S>::Type>
{
public:
    using tarvo::detail::FunctorBase<R, typename tarvo::detail::SequenceParameters<S>::Type>::FunctorBase;
};
