#include <tarvo/streams/ckpolylinebase.h>

#include <tarvo/core/ckrtti.h>

#include <support/rttipeer.h>

#include <gtest/gtest.h>

#include <vector>

namespace
{
/// As a client module defines one, without a record of its own.
class PolyLine : public CkPolyLineBase
{
public:
    void Serialize(CkStreamWriteBinary&) const override {}
    void Serialize(CkStreamReadBinary&) override {}
    unsigned int GetPointCount() const override { return static_cast<unsigned int>(m_points.size()); }
    SPoint GetPoint(unsigned int index) const override { return m_points[index]; }
    void SetPoint(unsigned int index, const SPoint& point) override { m_points[index] = point; }
    void AddPoint(const SPoint& point) override { m_points.push_back(point); }
    void RemoveAllPoints() override { m_points.clear(); }

private:
    std::vector<SPoint> m_points;
};
} // namespace

TEST(CkPolyLineBase, is_a_serializable_that_cannot_be_made_by_name)
{
    const CkSmartPointer<CkISerializable> line = new PolyLine;
    EXPECT_TRUE(line->Is(CkPolyLineBase::RTTI));
    EXPECT_TRUE(line->IsKindOf(CkISerializable::RTTI));
    EXPECT_FALSE(line->IsExternalManagement());
    EXPECT_TRUE(line->GetClassNameW() == CK_T("CkPolyLineBase"));
    EXPECT_EQ(CkRTTI::Find(CK_T("CkPolyLineBase")), &CkPolyLineBase::RTTI);
    EXPECT_EQ(CkRTTIPeer::GetCreate(CK_T("CkPolyLineBase")), nullptr);
    EXPECT_EQ(CkRTTIPeer::GetClone(CK_T("CkPolyLineBase")), nullptr);
}

TEST(CkPolyLineBase, a_copy_starts_without_references)
{
    const CkSmartPointer<PolyLine> line = new PolyLine;
    line->AddPoint({1, 2});
    const CkSmartPointer<PolyLine> other = line;
    PolyLine copy(*line);
    EXPECT_EQ(copy.GetReferenceCount(), 0);
    copy.RemoveAllPoints();
    *other = copy;
    EXPECT_EQ(line->GetReferenceCount(), 2);
    EXPECT_EQ(line->GetPointCount(), 0u);
}
