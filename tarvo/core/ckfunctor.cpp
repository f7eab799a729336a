#include <tarvo/core/ckfunctor.h>

#include <tarvo/core/ckexception.h>

namespace
{
constexpr const WCHAR* source = CK_T("tarvo\\core\\ckfunctor");
constexpr unsigned int lineIsEmpty = 170;
} // namespace

void tarvo::detail::raiseFunctorIsEmpty()
{
    throw CkException(source, lineIsEmpty);
}
