// One object, or more, of each kind that the debugger views show. The debugger stops in `stopHere`, and looks from
// there at what `main` has made.

#include <tarvo/tarvo.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

/// Sets what only threads in the middle of something leave behind.
struct CkCriticalSectionPeer
{
    static void SetAsleep(CkCriticalSection& section, LONG threads) { section.m_waiters = 2 * threads + 1; }
};

void stopHere();

__attribute__((noinline)) void stopHere()
{
    asm volatile("");
}

namespace
{
/// Memory for an object that was never constructed.
template <class T>
union Unmade
{
    explicit Unmade(int byte) { std::memset(bytes, byte, sizeof bytes); }
    ~Unmade() {}

    T object;
    unsigned char bytes[sizeof(T)];
};

/// One object of each kind that is no more than bytes.
struct UnmadeObjects
{
    explicit UnmadeObjects(int byte)
        : text(byte), smart(byte), weak(byte), array(byte), managed(byte), list(byte), uncounted(byte), map(byte),
          set(byte), event(byte), exception(byte), number(byte), wideText(byte), section(byte)
    {
    }

    Unmade<CString> text;
    Unmade<CkSmartPointer<CkInt32>> smart;
    Unmade<CkWeakPointer<CkInt32>> weak;
    Unmade<CkArray<int, 0, CkArrayPolicyConstructDefault>> array;
    Unmade<CkArrayManaged<CkEvent, 0>> managed;
    Unmade<CkList<CString, 17, unsigned int>> list;
    Unmade<CkList<int, 8, unsigned int>> uncounted;
    Unmade<CkMap<CString, int, 2, unsigned int>> map;
    Unmade<CkSet<int, 2, unsigned int>> set;
    Unmade<CkEvent> event;
    Unmade<CkException> exception;
    Unmade<CkInt32> number;
    Unmade<CkString> wideText;
    Unmade<CkCriticalSection> section;
};

struct Texts
{
    CString empty;
    CString shortText{CK_T("Grüße")};
    CString longText{CK_T("longer than what lies in the object")};
    CString withZero{CK_T("a\0b"), 3};
    CString quoted{CK_T("\"\n\U0001F600")};
};

/// Owns another, or itself.
class Link : public CkReferenceCountedClass<Link, 0>
{
public:
    CkSmartPointer<Link> next;
};

class FurtherLink : public Link
{
};

struct Pointers
{
    Pointers() : shared(new FurtherLink), number(new CkInt32(7)), alive(shared), base(number)
    {
        shared->next = shared;
        const CkSmartPointer<Link> gone(new Link);
        expired = gone;
    }

    CkSmartPointer<Link> empty;
    CkSmartPointer<Link> shared;
    CkSmartPointer<CkInt32> number;
    CkWeakPointer<Link> never;
    CkWeakPointer<Link> alive;
    CkWeakPointer<Link> expired;
    CkSmartPointer<const CkISerializable> base;
};

using Numbers = CkArray<int, 0, CkArrayPolicyConstructDefault>;

struct Arrays
{
    Arrays()
    {
        numbers.SetMemoryElementCount(8, 1);
        managed.SetCount(2, 1);
        managed[1] = CkSmartPointer<CkInt32>(new CkInt32(2));
    }

    Numbers empty;
    Numbers numbers{5u, 10, 11, 12, 13, 14};
    CkArrayManaged<CkSmartPointer<CkInt32>, 0> managed;
};

using DoubleLinked = CkList<CString, 17, unsigned int>;
using Uncounted = CkList<int, 8, unsigned int>;

struct Lists
{
    Lists()
    {
        for (const WCHAR* word : {CK_T("one"), CK_T("two"), CK_T("three")})
            words.AddTail(word);
        for (int i = 1; i != 4; ++i)
        {
            single.AddTail(i);
            uncounted.AddTail(i);
            endless.AddTail(i);
            broken.AddTail(i);
        }
        nodeAt(endless, 2)->next = nodeAt(endless, 0);
        nodeAt(broken, 1)->next = reinterpret_cast<Uncounted::Node*>(0x10);
    }

    static Uncounted::Node* nodeAt(const Uncounted& list, int index)
    {
        void* position = nullptr;
        for (list.init(position); index != 0; --index)
            list.step(position);
        return static_cast<Uncounted::Node*>(position);
    }

    DoubleLinked empty;
    DoubleLinked words;
    CkList<int, 9, unsigned int> single;
    Uncounted uncounted;
    Uncounted endless;
    Uncounted broken;
};

struct Maps
{
    Maps()
    {
        ages[CK_T("Ada")] = 36;
        ages[CK_T("Karl")] = 77;
        for (unsigned int i = 0; i != 100; ++i)
            squares[i * 16] = i * i;
        odd.Add(1);
        odd.Add(3 * 16);
    }

    CkMap<CString, int, 2, unsigned int> empty{10};
    CkMap<CString, int, 2, unsigned int> ages{10};
    CkMap<unsigned int, unsigned int, 0, unsigned int> squares{10};
    CkSet<int, 2, unsigned int> odd{10};
    CkSet<int, 2, unsigned int> none{10};
};

struct Events
{
    Events() : copy(manualSet)
    {
        manualSet.Set();
        autoSet.Set();
        const CkEvent gone;
        std::memcpy(closed.bytes, &gone, sizeof gone);
    }

    CkEvent manual;
    CkEvent manualSet;
    CkEvent autoReset{false};
    CkEvent autoSet{false};
    CkEvent copy;
    Unmade<CkEvent> closed{0}; ///< Has the handle of an event that has gone.
};

/// An exception whose part from the library is not the first.
class Warning
{
public:
    virtual ~Warning() = default;
    int level = 3;
};

class FileError : public Warning, public CkException
{
public:
    explicit FileError(const CString& name, const CkException& cause)
        : CkException(CK_T("app\\files"), 40, cause, RTTI), m_name(name)
    {
    }

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static FileError* Clone(const FileError& exception) { return new FileError(exception); }

private:
    friend class CkException;
    CString m_name;
};

struct FileErrorFactory : FileError
{
    static void* Clone(const void* exception) { return CloneByFactory<FileError>(exception); }
};

const CkRTTI FileError::RTTI(CK_T("FileError"), CkException::RTTI, nullptr, &FileErrorFactory::Clone);

struct Exceptions
{
    CkException plain{CK_T("app\\main"), 10};
    CkExceptionStream caused{CK_T("app\\main"), 20, plain};
    CkExceptionCondition standard{CK_T("app\\main"), 30, CkException(CK_T("app\\naïve"), 1, std::runtime_error("why"))};
    FileError own{CK_T("a.txt"), caused};
    CkExceptionStream ofOwn{CK_T("app\\main"), 50, own};
    const CkException& reference = own;
    const CkException* pointer = &caused;
};

struct Counters
{
    CkAtomicCounter<int> down{-3};
    CkAtomicCounter<unsigned int> up{4000000000u};
};

/// A class of a client's on a base type.
class Age : public CkBaseTypeWrapper<Age, int>
{
public:
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    static const CkRTTI RTTI;
    int unit = 12;
};

const CkRTTI Age::RTTI(CK_T("Age"), CkBaseType<int>::RTTI, nullptr, nullptr);

struct BaseTypes
{
    CkBool boolean{true};
    CkLong number{-5};
    CkULong unsignedNumber{5u};
    CkInt64 large{-5000000000};
    CkUInt64 unsignedLarge{18000000000000000000u};
    CkFloat64 real{0.5};
    CkString text{CString(CK_T("Straße"))};
    CkBaseType<short> unnamed{short{-2}};
    Age own{40};
};

struct Sections
{
    Sections()
    {
        mine.Enter();
        mine.Enter();
        CkCriticalSectionPeer::SetAsleep(wanted, 2);
        wanted.Enter();
    }

    CkCriticalSection free;
    CkCriticalSection mine;
    CkCriticalSection wanted;
    CkCriticalSection other;
};

/// For the debugger to call: the result lies in no place that it can tell.
CString makeText(int length)
{
    return CString(CK_T('x'), length);
}
} // namespace

int main()
{
    const Texts texts;
    const int made = makeText(1).GetLength();
    const Pointers pointers;
    Arrays arrays;
    const Lists lists;
    const Maps maps;
    const Events events;
    const Exceptions exceptions;
    [[maybe_unused]] const Counters counters;
    const BaseTypes baseTypes;
    Sections sections;
    const UnmadeObjects zeros(0);
    const UnmadeObjects overwritten(0xCD);
    const UnmadeObjects ones(0xFF);

    CkEvent isHeld;
    CkEvent mayEnd;
    std::thread other(
        [&]
        {
            const CkCriticalSectionAuto guard(sections.other);
            isHeld.Set();
            mayEnd.Wait(0xFFFFFFFF);
        });
    isHeld.Wait(0xFFFFFFFF);
    stopHere();
    mayEnd.Set();
    other.join();
    std::_Exit(made - 1); // Some of the objects could not be destroyed.
}
