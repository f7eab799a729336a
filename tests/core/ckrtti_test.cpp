#include <tarvo/core/ckrtti.h>
#include <tarvo/streams/ckstreamreadbinary.h>

#include <support/printers.h>

#include <gtest/gtest.h>

#include <type_traits>

struct CkRTTIPeer
{
    static bool IsDerivedFrom(const CkRTTI& record, const CkRTTI& base) { return record.isDerivedFrom(base); }
};

namespace
{
/// A lattice: D has three bases, two of which have bases of their own.
///
///   root   left  right
///     \    / |     |
///      middle|   other
///          \ |   /
///          derived
struct Lattice
{
    CkRTTI root{CK_T("TestRoot"), nullptr, nullptr};
    CkRTTI left{CK_T("TestLeft"), nullptr, nullptr};
    CkRTTI right{CK_T("TestRight"), nullptr, nullptr};
    CkRTTI middle{CK_T("TestMiddle"), root, left, nullptr, nullptr};
    CkRTTI other{CK_T("TestOther"), right, nullptr, nullptr};
    CkRTTI derived{CK_T("TestDerived"), middle, left, other, nullptr, nullptr};
    CkRTTI reversed{CK_T("TestReversed"), other, left, middle, nullptr, nullptr};
    CkRTTI stranger{CK_T("TestStranger"), nullptr, nullptr};
};
} // namespace

TEST(RTTI, kinds_follow_every_base_at_any_depth)
{
    const Lattice lattice;
    for (const CkRTTI* const record : {&lattice.derived, &lattice.reversed})
    {
        for (const CkRTTI* const base : {&lattice.root, &lattice.left, &lattice.right, &lattice.middle, &lattice.other})
        {
            EXPECT_TRUE(record->IsKindOf(*base)) << base->GetName().ToUtf8();
            EXPECT_FALSE(base->IsKindOf(*record));
            EXPECT_TRUE(CkRTTIPeer::IsDerivedFrom(*record, *base));
        }
        EXPECT_TRUE(record->IsKindOf(*record));
        EXPECT_FALSE(CkRTTIPeer::IsDerivedFrom(*record, *record));
        EXPECT_FALSE(record->IsKindOf(lattice.stranger));
    }
    EXPECT_FALSE(lattice.middle.IsKindOf(lattice.right));
    EXPECT_FALSE(lattice.derived.IsKindOf(lattice.reversed));
}

TEST(RTTI, the_table_holds_the_number_and_the_bases_in_their_order)
{
    const Lattice lattice;
    EXPECT_EQ(lattice.root.GetBaseClassRTTI(), nullptr);
    const CkRTTI** const bases = lattice.derived.GetBaseClassRTTI();
    EXPECT_EQ(reinterpret_cast<std::size_t>(bases[0]), 3u);
    EXPECT_EQ(bases[1], &lattice.middle);
    EXPECT_EQ(bases[2], &lattice.left);
    EXPECT_EQ(bases[3], &lattice.other);
    EXPECT_EQ(CkStreamRead::RTTI.GetBaseClassRTTI(), nullptr);
    EXPECT_EQ(reinterpret_cast<std::size_t>(CkStreamReadBinary::RTTI.GetBaseClassRTTI()[0]), 1u);
    EXPECT_EQ(CkStreamReadBinary::RTTI.GetBaseClassRTTI()[1], &CkStreamRead::RTTI);
}

TEST(RTTI, records_are_compared_by_identity)
{
    const CkRTTI one(CK_T("TestSameName"), nullptr, nullptr);
    const CkRTTI two(CK_T("TestSameName"), nullptr, nullptr);
    EXPECT_TRUE(one == one && one.Is(one));
    EXPECT_FALSE(one == two || one.Is(two) || one.IsKindOf(two));
    EXPECT_TRUE(one != two);
    EXPECT_EQ(one.GetName(), two.GetName());
    static_assert(!std::is_copy_constructible_v<CkRTTI> && !std::is_copy_assignable_v<CkRTTI>);
}
