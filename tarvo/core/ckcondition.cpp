#include <tarvo/core/ckcondition.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/platform/framework/cexception.h>

#include <exception>
#include <utility>

template <int N>
CkConditionBase<N>::CkConditionBase(EEventType eventType, const WCHAR* fileName, unsigned int codeLine,
                                    std::function<bool()> condition)
    : m_eventType(eventType), m_fileName(fileName), m_codeLine(codeLine), m_condition(std::move(condition))
{
    Evaluate();
}

template <int N>
CkConditionBase<N>::CkConditionBase(const CkConditionBase&) = default;

template <int N>
CkConditionBase<N>& CkConditionBase<N>::operator=(const CkConditionBase&) = default;

template <int N>
CkConditionBase<N>::~CkConditionBase() noexcept(false) = default;

template <int N>
bool CkConditionBase<N>::IsFulfilled() const noexcept
{
    return m_fulfilled;
}

template <int N>
void CkConditionBase<N>::Evaluate()
{
    m_fulfilled = m_condition();
    if (!m_fulfilled)
        handleUnfulfilledCondition(CkIntToType<N>());
}

template <int N>
void CkConditionBase<N>::evaluateWhileUnwinding() noexcept
try
{
    m_fulfilled = m_condition();
    if (!m_fulfilled)
        handleUnfulfilledCondition(CkIntToType<0>());
}
catch (...)
{
    // The exception that unwinds the stack matters more.
    tarvo::framework::discardException();
}

template <int N>
void CkConditionBase<N>::handleUnfulfilledCondition(CkIntToType<0>) const
{
    // As for the report of an exception: without a manager nobody listens, and making one takes the outermost lock.
    if (CkLogListenerManager* const manager = CkLogListenerManager::FindInstance())
        manager->NotifyListeners(m_eventType, m_fileName, m_codeLine, CString());
}

template <int N>
void CkConditionBase<N>::handleUnfulfilledCondition(CkIntToType<1>) const
    requires(N == 1)
{
    handleUnfulfilledCondition(CkIntToType<0>());
}

template <int N>
void CkConditionBase<N>::handleUnfulfilledCondition(CkIntToType<2>) const
    requires(N == 2)
{
    handleUnfulfilledCondition(CkIntToType<0>());
    throw CkExceptionCondition(m_fileName, m_codeLine);
}

template <int N>
CkPreCondition<N>::CkPreCondition(const WCHAR* fileName, unsigned int codeLine, std::function<bool()> condition)
    : CkConditionBase<N>(CkLogListenerManager::eEventPreCondition, fileName, codeLine, std::move(condition))
{
}

template <int N>
CkPostCondition<N>::CkPostCondition(const WCHAR* fileName, unsigned int codeLine, std::function<bool()> condition)
    : CkConditionBase<N>(CkLogListenerManager::eEventPostCondition, fileName, codeLine, std::move(condition))
{
}

template <int N>
CkInvariant<N>::CkInvariant(const WCHAR* fileName, unsigned int codeLine, std::function<bool()> condition)
    : CkConditionBase<N>(CkLogListenerManager::eEventInvariant, fileName, codeLine, std::move(condition)),
      m_exceptionsOutside(std::uncaught_exceptions())
{
}

template <int N>
CkInvariant<N>::CkInvariant(const CkInvariant& other)
    : CkConditionBase<N>(other), m_exceptionsOutside(std::uncaught_exceptions())
{
}

template <int N>
CkInvariant<N>& CkInvariant<N>::operator=(const CkInvariant& other)
{
    CkConditionBase<N>::operator=(other);
    return *this;
}

template <int N>
CkInvariant<N>::~CkInvariant() noexcept(false)
{
    if (std::uncaught_exceptions() > m_exceptionsOutside)
        this->evaluateWhileUnwinding();
    else
        this->Evaluate();
}

template class CkConditionBase<0>;
template class CkConditionBase<1>;
template class CkConditionBase<2>;
template class CkPreCondition<0>;
template class CkPreCondition<1>;
template class CkPreCondition<2>;
template class CkPostCondition<0>;
template class CkPostCondition<1>;
template class CkPostCondition<2>;
template class CkInvariant<0>;
template class CkInvariant<1>;
template class CkInvariant<2>;
