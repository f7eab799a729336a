// Exchanges stored values with interchange.py, which knows the format only from its description:
// `write FILE` stores the values that the script expects, `read FILE` expects those that the script stores. `store FILE`
// stores what tests/fixtures keeps of each version, `restore FILE` expects it, `describe FILE` writes descriptions.

#include <tarvo/tarvo.h>

#include <support/memorystreams.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace
{
int failures = 0;

void expect(bool condition, const char* what, std::size_t position)
{
    if (!condition)
    {
        std::printf("failed: %s, before byte %u\n", what, static_cast<unsigned int>(position));
        ++failures;
    }
}

/// `length` units, all different from 0; surrogates come as they like.
CString textOf(int length)
{
    CString text;
    for (int i = 0; i < length; ++i)
        text.AppendChar(static_cast<WCHAR>(1 + i * 31 % 65535));
    return text;
}

constexpr int textLengths[] = {0, 1, 127, 128, 254, 255, 256, 65533, 65534, 65535, 70000};

template <class T, int N>
using Array = CkArray<T, N, CkArrayPolicyConstructDefault>;

/// The i-th element that the program writes (`seed` 1) or the script (`seed` 2).
template <class T>
T element(unsigned int i, unsigned int seed)
{
    return static_cast<T>(0x0123456789ABCDEFull * seed * (i + 1));
}

template <class T, int N>
void writeArray(CkStreamWriteBinary& stream, unsigned int count)
{
    Array<T, N> array;
    for (unsigned int i = 0; i < count; ++i)
        array.AddTail(element<T>(i, 1));
    array.Serialize(stream);
}

template <class T, int N>
void expectArray(MemoryReader& reader, unsigned int count)
{
    Array<T, N> array;
    array.Serialize(reader);
    bool same = array.GetCount() == count;
    for (unsigned int i = 0; same && i < count; ++i)
        same = array[i] == element<T>(i, 2);
    expect(same, "an array", reader.position);
}

/// An object and, before it, the name of its class.
void writeObject(CkStreamWriteBinary& stream, const CkISerializable& object)
{
    stream << object.GetClassNameW();
    object.Serialize(stream);
}

template <class W, class T>
void expectObject(MemoryReader& reader, const T& expected)
{
    CString name;
    reader >> name;
    const CkSmartPointer<CkISerializable> object = CkISerializable::CreateByName(name);
    auto* const typed = dynamic_cast<W*>(object.Get());
    expect(typed != nullptr, "the name of a class", reader.position);
    if (typed == nullptr)
        return;
    typed->Serialize(reader);
    expect(**typed == expected, name.ToUtf8().c_str(), reader.position);
}

void write(CkStreamWriteBinary& stream)
{
    writeObject(stream, CkBool(true));
    writeObject(stream, CkBool(false));
    writeObject(stream, CkInt8(-128));
    writeObject(stream, CkInt16(-12345));
    writeObject(stream, CkInt32(-1234567890));
    writeObject(stream, CkLong(std::numeric_limits<LONG>::min()));
    writeObject(stream, CkInt64(-1234567890123456789));
    writeObject(stream, CkUInt8(254));
    writeObject(stream, CkUInt16(54321));
    writeObject(stream, CkUInt32(3456789012u));
    writeObject(stream, CkULong(std::numeric_limits<ULONG>::max()));
    writeObject(stream, CkUInt64(12345678901234567890u));
    writeObject(stream, CkFloat32(-0.15625f));
    writeObject(stream, CkFloat64(1e-310));
    writeObject(stream, CkFloat64(-std::numeric_limits<double>::infinity()));
    writeObject(stream, CkChar('z'));
    for (const int length : textLengths)
        writeObject(stream, CkString(textOf(length)));

    writeArray<unsigned char, 0>(stream, 0);
    writeArray<unsigned char, 0>(stream, 300);
    writeArray<unsigned char, 1>(stream, 3);
    writeArray<unsigned short, 0>(stream, 5);
    writeArray<unsigned short, 1>(stream, 5);
    writeArray<int, 0>(stream, 7);
    writeArray<int, 1>(stream, 7);
    writeArray<unsigned __int64, 0>(stream, 9);
    writeArray<unsigned __int64, 1>(stream, 0);
}

void read(MemoryReader& reader)
{
    expectObject<CkBool>(reader, false);
    expectObject<CkBool>(reader, true);
    expectObject<CkInt8>(reader, 127);
    expectObject<CkInt16>(reader, 23456);
    expectObject<CkInt32>(reader, 2109876543);
    expectObject<CkLong>(reader, -2);
    expectObject<CkInt64>(reader, 8765432109876543210);
    expectObject<CkUInt8>(reader, 129);
    expectObject<CkUInt16>(reader, 0xFFFE);
    expectObject<CkUInt32>(reader, 2345678901u);
    expectObject<CkULong>(reader, 4294967294u);
    expectObject<CkUInt64>(reader, 9876543210987654321u);
    expectObject<CkFloat32>(reader, 16777216.0f);
    expectObject<CkFloat64>(reader, -1.0 / 3);
    expectObject<CkFloat64>(reader, std::numeric_limits<double>::max());
    expectObject<CkChar>(reader, static_cast<char>(0xE4));
    for (const int length : textLengths)
        expectObject<CkString>(reader, textOf(length));
    // Headers wider than the length needs, and a zero within the text, which ends there.
    expectObject<CkString>(reader, textOf(3));
    expectObject<CkString>(reader, textOf(4));
    expectObject<CkString>(reader, textOf(5));
    expectObject<CkString>(reader, textOf(65534));
    expectObject<CkString>(reader, textOf(2));

    expectArray<unsigned char, 0>(reader, 0);
    expectArray<unsigned char, 0>(reader, 400);
    expectArray<unsigned char, 1>(reader, 4);
    expectArray<unsigned short, 0>(reader, 6);
    expectArray<unsigned short, 1>(reader, 6);
    expectArray<int, 0>(reader, 8);
    expectArray<int, 1>(reader, 8);
    expectArray<unsigned __int64, 0>(reader, 1);
    expectArray<unsigned __int64, 1>(reader, 1);
    // Without the version.
    expectArray<unsigned char, 0>(reader, 2);
    expectArray<unsigned short, 1>(reader, 0);
    expectArray<unsigned __int64, 1>(reader, 3);
    expect(reader.Rest() == 0, "the end", reader.position);
}

/// A client's class: a text, and objects of any class, each behind the name of its class.
class Branch : public CkISerializable
{
public:
    using Part = CkSmartPointer<CkISerializable>;

    Branch() = default;
    Branch(const WCHAR* text, std::initializer_list<Part> parts) : m_text(text), m_parts(parts) {}

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static Branch* Create() { return new Branch; }

    void Serialize(CkStreamWriteBinary& stream) const override
    {
        stream.WriteVersion(version);
        stream << m_text << static_cast<unsigned int>(m_parts.size());
        for (const Part& part : m_parts)
            writeObject(stream, *part);
    }

    void Serialize(CkStreamReadBinary& stream) override
    {
        stream.ReadAndCompareVersion(version);
        unsigned int count = 0;
        stream >> m_text >> count;
        for (m_parts.clear(); count != 0; --count)
        {
            CString name;
            stream >> name;
            const Part part = CkISerializable::CreateByName(name);
            if (!part)
                throw CkExceptionStream(CK_SOURCE_FILE, __LINE__);
            part->Serialize(stream);
            m_parts.push_back(part);
        }
    }

private:
    static constexpr unsigned int version = 1;

    CString m_text;
    std::vector<Part> m_parts;
};

const CkRTTI Branch::RTTI(CK_T("Branch"), CkISerializable::RTTI, &CreateByFactory<Branch>, nullptr);

/// Stores what it is given.
class Storing
{
public:
    explicit Storing(CkStreamWriteBinary& stream) : m_stream(stream) {}

    template <class T>
    void Value(T value)
    {
        m_stream << value;
    }

    template <class W, class T>
    void Object(const T& value)
    {
        writeObject(m_stream, W(value));
    }

    template <int N, class T>
    void Elements(std::initializer_list<T> elements)
    {
        Array<T, N> array;
        for (const T element : elements)
            array.AddTail(element);
        array.Serialize(m_stream);
    }

    void Tree(const Branch& branch) { writeObject(m_stream, branch); }

private:
    CkStreamWriteBinary& m_stream;
};

/// Expects that what it is given has been stored.
class Restoring
{
public:
    explicit Restoring(MemoryReader& reader) : m_reader(reader) {}

    template <class T>
    void Value(T expected)
    {
        T value{};
        m_reader >> value;
        expect(value == expected, "a value", m_reader.position);
    }

    template <class W, class T>
    void Object(const T& expected)
    {
        expectObject<W>(m_reader, expected);
    }

    template <int N, class T>
    void Elements(std::initializer_list<T> elements)
    {
        Array<T, N> array;
        array.Serialize(m_reader);
        expect(std::equal(array.begin(), array.end(), elements.begin(), elements.end()), "an array", m_reader.position);
    }

    void Tree(const Branch& expected)
    {
        CString name;
        m_reader >> name;
        const Branch::Part found = CkISerializable::CreateByName(name);
        expect(found && found->Is(Branch::RTTI), "the name of a class", m_reader.position);
        if (!found)
            return;
        found->Serialize(m_reader);
        MemoryWriter left;
        MemoryWriter right;
        found->Serialize(left);
        expected.Serialize(right);
        expect(left.bytes == right.bytes, "a tree", m_reader.position);
    }

private:
    MemoryReader& m_reader;
};

template <class T>
using Limits = std::numeric_limits<T>;

template <class T, class Exchange>
void exchangeValues(Exchange& exchange)
{
    for (const T value : {Limits<T>::lowest(), T{0}, T{1}, Limits<T>::max()})
        exchange.Value(value);
}

template <class W, class T, class Exchange>
void exchangeObjects(Exchange& exchange)
{
    for (const T value : {Limits<T>::lowest(), T{0}, T{1}, Limits<T>::max()})
        exchange.template Object<W>(value);
}

template <class W, class T, class Exchange>
void exchangeSpecialNumbers(Exchange& exchange)
{
    for (const T value : {-T{0}, Limits<T>::min(), Limits<T>::denorm_min(), -Limits<T>::infinity()})
        exchange.template Object<W>(value);
}

/// What tests/fixtures/0.1/records.bin holds. It stays as it is: what a later version adds goes into a file of its own.
template <class Exchange>
void exchangeFixture(Exchange exchange)
{
    exchangeValues<bool>(exchange);
    exchangeValues<signed char>(exchange);
    exchangeValues<unsigned char>(exchange);
    exchangeValues<char>(exchange);
    exchangeValues<short>(exchange);
    exchangeValues<unsigned short>(exchange);
    exchangeValues<int>(exchange);
    exchangeValues<unsigned int>(exchange);
    exchangeValues<LONG>(exchange);
    exchangeValues<ULONG>(exchange);
    exchangeValues<__int64>(exchange);
    exchangeValues<unsigned __int64>(exchange);
    exchangeValues<float>(exchange);
    exchangeValues<double>(exchange);

    exchangeObjects<CkBool, bool>(exchange);
    exchangeObjects<CkInt8, signed char>(exchange);
    exchangeObjects<CkInt16, short>(exchange);
    exchangeObjects<CkInt32, int>(exchange);
    exchangeObjects<CkLong, LONG>(exchange);
    exchangeObjects<CkInt64, __int64>(exchange);
    exchangeObjects<CkUInt8, unsigned char>(exchange);
    exchangeObjects<CkUInt16, unsigned short>(exchange);
    exchangeObjects<CkUInt32, unsigned int>(exchange);
    exchangeObjects<CkULong, ULONG>(exchange);
    exchangeObjects<CkUInt64, unsigned __int64>(exchange);
    exchangeObjects<CkFloat32, float>(exchange);
    exchangeObjects<CkFloat64, double>(exchange);
    exchangeObjects<CkChar, char>(exchange);
    exchangeSpecialNumbers<CkFloat32, float>(exchange);
    exchangeSpecialNumbers<CkFloat64, double>(exchange);

    for (const int length : {0, 1, 254, 255, 256})
        exchange.template Object<CkString>(textOf(length));
    exchange.template Object<CkString>(CString("narrow"));
    exchange.template Object<CkString>(CString(CK_T("\u00e4 \u65e5\u672c\u8a9e \U0001f600")));
    exchange.Value(CString(CK_T("\u0436")));

    exchange.template Elements<0, unsigned char>({});
    exchange.template Elements<0, unsigned char>({0, 127, 128, 255});
    exchange.template Elements<1, short>({-32768, -1, 0, 32767});
    exchange.template Elements<0, int>({Limits<int>::min(), 0, Limits<int>::max()});
    exchange.template Elements<1, unsigned __int64>({0, Limits<unsigned __int64>::max()});
    exchange.template Elements<0, double>({-0.15625, Limits<double>::max()});

    exchange.Tree(
        Branch(CK_T("root"), {new CkInt16(-2), new Branch(CK_T(""), {}),
                              new Branch(CK_T("inner \u0436"), {new CkString(CString("leaf")), new CkFloat64(-0.15625),
                                                                new Branch(CK_T("innermost"), {new CkBool(true)})})}));
}

template <class T>
void describeNumbers(CkStreamWriteASCII& stream)
{
    for (const T value : {Limits<T>::lowest(), T{0}, T{1}, Limits<T>::max()})
        stream << value << CK_T(" ");
    stream << CK_T("\n");
}

CString describe()
{
    CkStreamWriteASCIIString stream;
    describeNumbers<bool>(stream);
    describeNumbers<signed char>(stream);
    describeNumbers<unsigned char>(stream);
    describeNumbers<char>(stream);
    describeNumbers<short>(stream);
    describeNumbers<unsigned short>(stream);
    describeNumbers<int>(stream);
    describeNumbers<unsigned int>(stream);
    describeNumbers<__int64>(stream);
    describeNumbers<unsigned __int64>(stream);
    describeNumbers<float>(stream);
    for (const double value : {-0.0, 0.1, -0.15625, 1e20, Limits<double>::infinity(), -Limits<double>::infinity()})
        stream << value << CK_T(" ");
    stream.WriteAddress(nullptr);
    stream << CK_T("\n");

    Array<int, 0> numbers;
    for (const int number : {-1, 0, 1})
        numbers.AddTail(number);
    numbers.Dump(stream);
    stream << CK_T(" \u65e5\u672c \U0001f600\n");

    const CkExceptionStream first(CK_T("app\\a"), 1);
    const CkExceptionOutOfMemory second(CK_T("app\\b"), 2, first);
    const CkException third(CK_T("folder\\stem"), 4294967295u, second);
    third.Dump(stream);
    stream << CkException(CK_T("x"), 3, std::bad_alloc()).GetErrorCode() << CK_T(" ") << third.GetErrorCode()
           << CK_T("\n");
    return *stream;
}

int writeFile(const char* path, const std::string& data)
{
    std::ofstream file(path, std::ios::binary);
    file.write(data.data(), static_cast<std::streamsize>(data.size()));
    return file.flush() ? 0 : 2;
}

std::string stored(void (*store)(CkStreamWriteBinary&))
{
    MemoryWriter writer;
    store(writer);
    return std::string(writer.bytes.begin(), writer.bytes.end());
}

void store(CkStreamWriteBinary& stream)
{
    exchangeFixture(Storing(stream));
}

void restore(MemoryReader& reader)
{
    exchangeFixture(Restoring(reader));
    expect(reader.Rest() == 0, "the end", reader.position);
}

int readFile(const char* path, void (*restore)(MemoryReader&))
{
    std::ifstream file(path, std::ios::binary);
    MemoryReader reader(Bytes(std::istreambuf_iterator<char>(file), {}));
    try
    {
        restore(reader);
    }
    catch (const CkException& exception)
    {
        std::printf("%s\n", exception.ToString().ToUtf8().c_str());
        expect(false, "an exception", reader.position);
    }
    return failures;
}
} // namespace

int main(int argc, char** argv)
{
    const std::string command(argc == 3 ? argv[1] : "");
    if (command == "write")
        return writeFile(argv[2], stored(&write));
    if (command == "read")
        return readFile(argv[2], &read);
    if (command == "store")
        return writeFile(argv[2], stored(&store));
    if (command == "restore")
        return readFile(argv[2], &restore);
    if (command == "describe")
        return writeFile(argv[2], describe().ToUtf8());
    return 3;
}
