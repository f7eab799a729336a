#include <tarvo/core/ckexception.h>
#include <tarvo/core/ckrtti.h>
#include <tarvo/streams/ckbasetypes.h>
#include <tarvo/streams/ckstreamreadbinary.h>

#include <support/printers.h>
#include <support/rttipeer.h>

#include <gtest/gtest.h>

#include <type_traits>

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

TEST(RTTI, the_library_registers_its_classes_with_what_they_can_do)
{
    struct Row
    {
        const WCHAR* name;
        const WCHAR* base;
        bool creates;
        bool clones;
    };
    const Row rows[] = {
        {CK_T("CkExceptionCondition"), CK_T("CkException"), false, true},
        {CK_T("CkExceptionOutOfMemory"), CK_T("CkException"), false, true},
        {CK_T("CkStreamWriteASCII"), CK_T("CkStreamWrite"), false, false},
        {CK_T("CkStreamWriteASCIIString"), CK_T("CkStreamWriteASCII"), false, false},
        {CK_T("CkStreamWriteASCIITrace"), CK_T("CkStreamWriteASCII"), false, false},
        {CK_T("CkStreamWriteASCIITraceDiagnostic"), CK_T("CkStreamWriteASCII"), false, false},
        {CK_T("CkStreamWriteBinaryByteCount"), CK_T("CkStreamWriteBinary"), false, false},
        {CK_T("CkStreamRead"), nullptr, false, false},
        {CK_T("CkStreamReadBinary"), CK_T("CkStreamRead"), false, false},
        {CK_T("CkStreamWrite"), nullptr, false, false},
        {CK_T("CkStreamWriteBinary"), CK_T("CkStreamWrite"), false, false},
        {CK_T("CkISerializable"), nullptr, false, false},
        {CK_T("CkException"), nullptr, false, true},
        {CK_T("CkExceptionPreconditionViolation"), CK_T("CkException"), false, true},
        {CK_T("CkExceptionStream"), CK_T("CkException"), false, true},
        {CK_T("CkExceptionWrongFileVersion"), CK_T("CkException"), false, true},
        {CK_T("CkBaseType"), CK_T("CkISerializable"), false, false},
        {CK_T("CkBool"), CK_T("CkBaseType"), true, true},
        {CK_T("CkString"), CK_T("CkBaseType"), true, true},
    };
    for (const Row& row : rows)
    {
        const CkRTTI* const record = CkRTTI::Find(row.name);
        ASSERT_NE(record, nullptr) << CString(row.name).ToUtf8();
        EXPECT_EQ(record->GetName(), row.name);
        const CkRTTI** const bases = record->GetBaseClassRTTI();
        EXPECT_EQ(bases != nullptr ? bases[1] : nullptr, row.base != nullptr ? CkRTTI::Find(row.base) : nullptr);
        EXPECT_EQ(CkRTTIPeer::GetCreate(row.name) != nullptr, row.creates) << record->GetName().ToUtf8();
        EXPECT_EQ(CkRTTIPeer::GetClone(row.name) != nullptr, row.clones) << record->GetName().ToUtf8();
    }
    EXPECT_EQ(CkRTTI::Find(CK_T("CkStreamRead")), &CkStreamRead::RTTI);
}

TEST(RTTI, a_name_is_known_by_its_exact_letters_and_stands_for_the_latest_record)
{
    for (const WCHAR* const unknown : {CK_T("ckexception"), CK_T("CkException "), CK_T("CkExceptio"), CK_T("")})
    {
        EXPECT_EQ(CkRTTI::Find(unknown), nullptr);
        EXPECT_FALSE(CkRTTI::Find(CK_T("CkException"))->IsKindOf(unknown));
        EXPECT_TRUE(CkRTTIPeer::GetCreate(unknown) == nullptr && CkRTTIPeer::GetClone(unknown) == nullptr);
    }
    EXPECT_TRUE(CkExceptionCondition::RTTI.IsKindOf(CK_T("CkException")));
    EXPECT_TRUE(CkExceptionCondition::RTTI.IsKindOf(CK_T("CkExceptionCondition")));
    EXPECT_FALSE(CkExceptionCondition::RTTI.IsKindOf(CK_T("CkExceptionStream")));

    const CkRTTI base(CK_T("TestReplaced"), nullptr, nullptr);
    const CkRTTI derived(CK_T("TestOfReplaced"), base, nullptr, nullptr);
    EXPECT_TRUE(derived.IsKindOf(CK_T("TestReplaced")));
    const CkRTTI newer(
        CK_T("TestReplaced"), [] { return static_cast<void*>(nullptr); }, nullptr);
    EXPECT_EQ(CkRTTI::Find(CK_T("TestReplaced")), &newer);
    EXPECT_NE(CkRTTIPeer::GetCreate(CK_T("TestReplaced")), nullptr);
    EXPECT_FALSE(derived.IsKindOf(CK_T("TestReplaced")));
}
