#include <tarvo/streams/ckidumpable.h>

#include <tarvo/streams/ckstreamwriteascii.h>

CString CkIDumpable<1>::ToString() const
{
    CkStreamWriteASCIIString stream;
    dump(stream);
    return *stream;
}

void CkIDumpable<1>::Dump(CkStreamWriteASCII& stream) const
{
    stream << ToString();
}

void CkIDumpable<1>::Dump() const
{
    CkStreamWriteASCIITraceDiagnostic trace;
    trace << ToString();
}
