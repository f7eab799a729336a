#include <tarvo/streams/ckiclassname.h>

unsigned __int64 CkIClassName<0, CString>::GetMemoryUsage() const
{
    return sizeof *this + static_cast<unsigned __int64>(m_name.GetAllocLength()) * sizeof(WCHAR);
}
