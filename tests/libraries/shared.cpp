#include <libraries/shared.h>

template class CkSingleton<SharedSingleton>;

SharedSingleton::SharedSingleton() = default;
SharedSingleton::~SharedSingleton() = default;

SharedException::SharedException() : CkExceptionStream(CK_SOURCE_FILE, 1) {}

const CkRTTI SharedException::RTTI(CK_T("SharedException"), CkExceptionStream::RTTI, nullptr,
                                   &CloneByFactory<SharedException>);

const CkRTTI& SharedException::GetRTTI() const
{
    return RTTI;
}

SharedException* SharedException::Clone(const SharedException& exception)
{
    return new SharedException(exception);
}
