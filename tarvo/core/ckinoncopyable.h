#pragma once

/// Base of classes that are neither copied nor assigned.
class CkINonCopyable
{
public:
    CkINonCopyable(const CkINonCopyable&) = delete;
    CkINonCopyable& operator=(const CkINonCopyable&) = delete;

protected:
    CkINonCopyable() = default;
    ~CkINonCopyable() = default;
};
