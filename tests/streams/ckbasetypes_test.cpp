#include <tarvo/core/ckexception.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/streams/ckbasetypes.h>
#include <tarvo/streams/ckiclassindex.h>
#include <tarvo/streams/ckiclassname.h>
#include <tarvo/streams/ckstreamwriteascii.h>

#include <support/memorystreams.h>
#include <support/printers.h>
#include <support/rttipeer.h>

#include <gtest/gtest.h>

#include <new>
#include <type_traits>

namespace
{
using Object = CkSmartPointer<CkISerializable>;

const Bytes wideTag = {0xFF, 0xFE, 0xFF};

/// Every wrapper with a value that shows its width and byte order.
struct Row
{
    const WCHAR* name;
    Object object;
    Bytes bytes;
    Bytes defaultBytes;
};

std::vector<Row> allWrappers()
{
    const auto zeros = [](std::size_t count) { return Bytes(count, 0); };
    return {
        {CK_T("CkBool"), new CkBool(true), {1}, zeros(1)},
        {CK_T("CkInt8"), new CkInt8(-56), {0xC8}, zeros(1)},
        {CK_T("CkInt16"), new CkInt16(258), {2, 1}, zeros(2)},
        {CK_T("CkInt32"), new CkInt32(-2), {0xFE, 0xFF, 0xFF, 0xFF}, zeros(4)},
        {CK_T("CkLong"), new CkLong(0x01020304), {4, 3, 2, 1}, zeros(4)},
        {CK_T("CkInt64"), new CkInt64(-2), {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, zeros(8)},
        {CK_T("CkUInt8"), new CkUInt8(200), {0xC8}, zeros(1)},
        {CK_T("CkUInt16"), new CkUInt16(0xFFFE), {0xFE, 0xFF}, zeros(2)},
        {CK_T("CkUInt32"), new CkUInt32(0xF1020304), {4, 3, 2, 0xF1}, zeros(4)},
        {CK_T("CkULong"), new CkULong(0xF1020304), {4, 3, 2, 0xF1}, zeros(4)},
        {CK_T("CkUInt64"), new CkUInt64(0xF102030405060708), {8, 7, 6, 5, 4, 3, 2, 0xF1}, zeros(8)},
        {CK_T("CkFloat32"), new CkFloat32(1.0f), {0, 0, 0x80, 0x3F}, zeros(4)},
        {CK_T("CkFloat64"), new CkFloat64(-2.5), {0, 0, 0, 0, 0, 0, 4, 0xC0}, zeros(8)},
        {CK_T("CkChar"), new CkChar('A'), {0x41}, zeros(1)},
        {CK_T("CkString"), new CkString(CK_T("abc")), wideTag + Bytes{3, 0x61, 0, 0x62, 0, 0x63, 0},
         wideTag + Bytes{0}},
    };
}

Bytes bytesOf(const CkISerializable& object)
{
    MemoryWriter writer;
    object.Serialize(writer);
    return writer.bytes;
}

/// Takes the first place in an object, so that the serializable base has another address than the object.
struct Front
{
    virtual ~Front() = default;
    int front = 1;
};

class Behind : public Front, public CkBaseType<int>
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static Behind* Create() { return new Behind; }
    static Behind* Clone(const Behind& object) { return new Behind(object); }
};

const CkRTTI Behind::RTTI(CK_T("TestBehind"), CkBaseType<int>::RTTI, &CreateByFactory<Behind>, &CloneByFactory<Behind>);

class OutOfMemory : public CkBaseTypeWrapper<OutOfMemory, int>
{
public:
    using CkBaseTypeWrapper::CkBaseTypeWrapper;

    static const CkRTTI RTTI;
    static inline bool oldFashioned = false;

    static void* operator new(std::size_t)
    {
        if (oldFashioned)
            AfxThrowMemoryException();
        throw std::bad_alloc();
    }
    static void operator delete(void*) {}
};

const CkRTTI OutOfMemory::RTTI(CK_T("TestOutOfMemory"), CkBaseType<int>::RTTI, &CreateByFactory<OutOfMemory>,
                               &CloneByFactory<OutOfMemory>);
} // namespace

TEST(BaseTypes, bytes_are_fixed_in_both_directions)
{
    for (const Row& row : allWrappers())
    {
        const std::string name = CString(row.name).ToUtf8();
        EXPECT_EQ(bytesOf(*row.object), row.bytes) << name;

        const Object read = CkISerializable::CreateByName(row.name);
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(bytesOf(*read), row.defaultBytes) << name << " by default";
        MemoryReader reader(row.bytes);
        read->Serialize(reader);
        EXPECT_EQ(reader.Rest(), 0u) << name;
        EXPECT_EQ(bytesOf(*read), row.bytes) << name << " after reading";
    }
    CkLong number;
    MemoryReader reader(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 2});
    number.Serialize(reader);
    EXPECT_EQ(*number, LONG{-1});
    CkBool truth;
    truth.Serialize(reader);
    EXPECT_TRUE(*truth);
}

TEST(BaseTypes, every_truncation_raises)
{
    for (const Row& row : allWrappers())
    {
        for (std::size_t length = 0; length < row.bytes.size(); ++length)
        {
            const Object read = CkISerializable::CreateByName(row.name);
            MemoryReader reader(Bytes(row.bytes.begin(), row.bytes.begin() + static_cast<std::ptrdiff_t>(length)));
            EXPECT_THROW(read->Serialize(reader), CkExceptionStream) << CString(row.name).ToUtf8() << " " << length;
        }
    }
    CkBool truth(true);
    CkString text(CK_T("before"));
    MemoryReader bomb(wideTag + Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0x80});
    EXPECT_THROW(text.Serialize(bomb), CkExceptionStream);
    EXPECT_THROW(truth.Serialize(bomb), CkExceptionStream);
    EXPECT_EQ(*text, CK_T("before"));
    EXPECT_TRUE(*truth);
}

TEST(BaseTypes, each_wrapper_has_its_own_record_and_the_plain_template_a_shared_one)
{
    const CkRTTI& shared = CkBaseType<int>::RTTI;
    for (const Row& row : allWrappers())
    {
        const CkISerializable& object = *row.object;
        EXPECT_EQ(object.GetClassNameW(), row.name);
        EXPECT_EQ(&object.GetRTTI(), CkRTTI::Find(row.name));
        EXPECT_FALSE(object.Is(shared));
        EXPECT_TRUE(object.IsKindOf(shared) && object.IsKindOf(CkISerializable::RTTI));
    }
    const CkBaseType<int> plain;
    EXPECT_TRUE(plain.Is(shared) && plain.Is(CkBaseType<CString>::RTTI));
    EXPECT_EQ(CkRTTI::Find(CK_T("CkBaseType")), &shared);
}

TEST(BaseTypes, copies_take_the_value_and_no_references)
{
    for (const Row& row : allWrappers())
    {
        const Object further = row.object;
        auto* const clone = static_cast<CkISerializable*>(CkRTTIPeer::GetClone(row.name)(row.object.Get()));
        EXPECT_EQ(clone->GetReferenceCount(), 0);
        const Object owner = clone;
        EXPECT_NE(clone, row.object.Get());
        EXPECT_TRUE(clone->Is(row.object->GetRTTI()));
        EXPECT_EQ(bytesOf(*clone), row.bytes);
    }
    const CkSmartPointer<CkInt32> shared = new CkInt32(5);
    CkInt32 value(*shared);
    EXPECT_EQ(value.GetReferenceCount(), 0);
    value = 6;
    *shared = value;
    EXPECT_EQ(shared->GetReferenceCount(), 1);
    EXPECT_EQ(**shared, 6);
}

TEST(Serializable, factories_find_the_object_whatever_the_place_of_the_base)
{
    const Object made = CkISerializable::CreateByName(CK_T("TestBehind"));
    auto* const behind = dynamic_cast<Behind*>(made.Get());
    ASSERT_NE(behind, nullptr);
    ASSERT_NE(static_cast<void*>(behind), static_cast<void*>(made.Get())) << "else this shows nothing";
    behind->front = 2;
    **behind = 7;
    const Object copy = static_cast<CkISerializable*>(CkRTTIPeer::GetClone(CK_T("TestBehind"))(made.Get()));
    EXPECT_EQ(dynamic_cast<Behind*>(copy.Get())->front, 2);
    EXPECT_EQ(**dynamic_cast<Behind*>(copy.Get()), 7);
}

TEST(Serializable, a_name_that_makes_no_object_gives_an_empty_pointer)
{
    const auto mustNotRun = []() -> void*
    {
        ADD_FAILURE();
        return nullptr;
    };
    const CkRTTI other(CK_T("TestNoSerializable"), CkException::RTTI, mustNotRun, nullptr);
    for (const WCHAR* const name : {CK_T("unknown"), CK_T(""), CK_T("ckint32"), CK_T("CkBaseType"), CK_T("CkException"),
                                    CK_T("CkISerializable"), CK_T("TestNoSerializable")})
        EXPECT_FALSE(CkISerializable::CreateByName(name)) << CString(name).ToUtf8();
    for (const bool oldFashioned : {false, true})
    {
        OutOfMemory::oldFashioned = oldFashioned;
        EXPECT_FALSE(CkISerializable::CreateByName(CK_T("TestOutOfMemory")));
        EXPECT_EQ(OutOfMemory::Clone(OutOfMemory(1)), nullptr);
    }
}

TEST(ClassName, is_stored_and_counted_with_its_capacity)
{
    CkIClassName<1, CString> named;
    EXPECT_EQ(named.GetMemoryUsage(), sizeof named);
    const CString name(CK_T('n'), 100);
    named.SetName(name);
    EXPECT_GE(named.GetMemoryUsage(), sizeof named + 200);
    MemoryWriter writer;
    named.Serialize(writer);
    EXPECT_EQ(writer.bytes.size(), 4u + 200u);

    named.SetName(CString());
    MemoryReader reader(writer.bytes);
    named.Serialize(reader);
    EXPECT_EQ(named.GetName(), name);
    for (std::size_t length = 0; length < writer.bytes.size(); ++length)
    {
        MemoryReader cut(Bytes(writer.bytes.begin(), writer.bytes.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_THROW(named.Serialize(cut), CkExceptionStream) << length;
    }
    EXPECT_EQ(named.GetName(), name);
    CkStreamWriteASCIIString text;
    CkIClassName<0, CString>(CK_T("abc")).Serialize(text);
    EXPECT_EQ(*text, CK_T("abc"));
}

TEST(ClassIndex, is_stored_in_four_bytes_and_shown_as_a_number)
{
    CkIClassIndex<1> index(0x01020304);
    MemoryWriter writer;
    index.Serialize(writer);
    EXPECT_EQ(writer.bytes, (Bytes{4, 3, 2, 1}));
    index.SetIndex(0xFFFFFFFF);
    CkStreamWriteASCIIString text;
    index.Serialize(text);
    EXPECT_EQ(*text, CK_T("4294967295"));
    MemoryReader reader(writer.bytes);
    index.Serialize(reader);
    EXPECT_EQ(index.GetIndex(), 0x01020304u);
    EXPECT_THROW(index.Serialize(reader), CkExceptionStream);
    static_assert(!std::is_polymorphic_v<CkIClassIndex<1>> && sizeof(CkIClassIndex<0>) == 4);
}
