#pragma once

#include <tarvo/tarvo.h>

/// A client library that several modules link to.
#if defined(SHARED_EXPORTS)
#    define SHARED_API TARVO_EXPORT
#else
#    define SHARED_API TARVO_IMPORT
#endif

class SharedSingleton;
extern template class SHARED_API CkSingleton<SharedSingleton>;

/// One instance, whichever module asks first.
class SHARED_API SharedSingleton : public CkSingleton<SharedSingleton>
{
public:
    ~SharedSingleton();

    int uses = 0;

private:
    friend class CkSingleton<SharedSingleton>;
    SharedSingleton();
};

class SHARED_API SharedException : public CkExceptionStream
{
public:
    SharedException();

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    static SharedException* Clone(const SharedException& exception);
};
