#include <tarvo/containers/cklist.h>

#include <tarvo/core/ckexception.h>

template class TARVO_API CkListPolicyElementCount<0, unsigned int>;
template class TARVO_API CkListPolicyElementCount<0, unsigned long long>;
template class TARVO_API CkListPolicyElementCount<1, unsigned int>;
template class TARVO_API CkListPolicyElementCount<1, unsigned long long>;

namespace tarvo::detail
{
namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\containers\\cklistbaseintermediate");
constexpr unsigned int lineIsEmpty = 10;
constexpr unsigned int lineIsNotEmpty = 20;
} // namespace

void raiseListIsEmpty()
{
    throw CkExceptionPreconditionViolation(source, lineIsEmpty);
}

void raiseListIsNotEmpty()
{
    throw CkExceptionPreconditionViolation(source, lineIsNotEmpty);
}
} // namespace tarvo::detail
