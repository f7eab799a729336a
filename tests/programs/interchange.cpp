// Exchanges stored values with interchange.py, which knows the format only from its description:
// `write FILE` stores the values that the script expects, `read FILE` expects those that the script stores.

#include <tarvo/tarvo.h>

#include <support/memorystreams.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>

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

int writeFile(const char* path)
{
    MemoryWriter writer;
    write(writer);
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(writer.bytes.data()), static_cast<std::streamsize>(writer.bytes.size()));
    return file.flush() ? 0 : 2;
}

int readFile(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    MemoryReader reader(Bytes(std::istreambuf_iterator<char>(file), {}));
    try
    {
        read(reader);
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
    if (argc == 3 && std::strcmp(argv[1], "write") == 0)
        return writeFile(argv[2]);
    if (argc == 3 && std::strcmp(argv[1], "read") == 0)
        return readFile(argv[2]);
    return 3;
}
