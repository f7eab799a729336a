#pragma once

#include <tarvo/core/ckrtti.h>

/// What only the library's own classes may ask of a record.
struct CkRTTIPeer
{
    static bool IsDerivedFrom(const CkRTTI& record, const CkRTTI& base) { return record.isDerivedFrom(base); }
    static CkRTTI::CreateFunction GetCreate(const CString& name) { return CkRTTI::getCreate(name); }
    static CkRTTI::CloneFunction GetClone(const CString& name) { return CkRTTI::getClone(name); }
};
