#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckrtti.h>
#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/streams/ckiserializable.h>

/// The root of the poly-lines that client modules define. It holds no points of its own.
///
/// Threads, lifetime: as `CkISerializable`; a copy begins without points, as without references, unless the derived
/// class copies its own.
class TARVO_API CkPolyLineBase : public CkISerializable
{
public:
    struct SPoint
    {
        double x = 0;
        double y = 0;
    };

    CkPolyLineBase() noexcept;
    CkPolyLineBase(const CkPolyLineBase& other) noexcept;
    CkPolyLineBase& operator=(const CkPolyLineBase&) noexcept { return *this; }
    ~CkPolyLineBase() override;

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;

    using CkISerializable::Serialize;

    virtual unsigned int GetPointCount() const = 0;

    // Indexes are below the count.
    virtual SPoint GetPoint(unsigned int index) const = 0;
    virtual void SetPoint(unsigned int index, const SPoint& point) = 0;

    /// Puts a point behind the last one.
    virtual void AddPoint(const SPoint& point) = 0;
    virtual void RemoveAllPoints() = 0;
};
