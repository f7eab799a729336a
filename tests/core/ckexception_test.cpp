#include <tarvo/core/ckexception.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/streams/ckstreamwriteascii.h>

#include <support/printers.h>
#include <support/reports.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

namespace
{
/// A client's exception with state and with its base at another address.
class ClientException : private std::string, public CkException
{
public:
    ClientException(int value, const CkException& previous)
        : CkException(CK_T("client"), 1, previous, RTTI), m_value(value)
    {
    }
    explicit ClientException(int value) : CkException(CK_T("client"), 1, RTTI), m_value(value) {}

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static ClientException* Clone(const ClientException& exception) { return new ClientException(exception); }

    int Value() const { return m_value; }

private:
    int m_value;
};

const CkRTTI ClientException::RTTI(CK_T("ClientException"), CkException::RTTI, nullptr,
                                   &CloneByFactory<ClientException>);

/// Not registered to be cloned.
class UnclonableException : public CkException
{
public:
    UnclonableException() : CkException(CK_T("client"), 2, RTTI) {}

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
};

const CkRTTI UnclonableException::RTTI(CK_T("UnclonableException"), CkException::RTTI, nullptr, nullptr);

/// Has a history, and an exception of its own that has one.
class CarryingException : public CkException
{
public:
    explicit CarryingException(const CkException& cause) : CkException(CK_T("client"), 4, cause, RTTI), m_carried(*this)
    {
    }

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static CarryingException* Clone(const CarryingException& exception)
    {
        return static_cast<CarryingException*>(new CarryingException(exception, 0));
    }

private:
    CarryingException(const CarryingException& other, int) : CkException(other), m_carried(other.m_carried) {}

    CkException m_carried;
};

const CkRTTI CarryingException::RTTI(CK_T("CarryingException"), CkException::RTTI, nullptr,
                                     &CloneByFactory<CarryingException>);

/// Its clone function fails.
class UnwillingException : public CkException
{
public:
    UnwillingException() : CkException(CK_T("client"), 3, RTTI) {}

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
};

const CkRTTI UnwillingException::RTTI(CK_T("UnwillingException"), CkException::RTTI, nullptr,
                                      [](const void*) -> void* { throw std::bad_alloc(); });

using Report = Reports::Report;
using ExceptionCount = CkReferenceCountedClass<CkException, 0>;
} // namespace

TEST(Exception, reports_its_construction_once_and_copies_not_at_all)
{
    const Reports reports;
    const CkExceptionStream exception(CK_T("c:\\src\\queue"), 33);
    CkExceptionStream copy = exception;
    copy = exception;
    EXPECT_EQ(reports.All(), (std::vector<Report>{{CK_T("c:\\src\\queue"), 33, CK_T("CkExceptionStream")}}));
    EXPECT_EQ(copy.GetFilename(), CK_T("c:\\src\\queue"));
    EXPECT_EQ(copy.GetCodeLine(), 33u);
    EXPECT_EQ(copy.GetThreadID(), GetCurrentThreadId());
    EXPECT_EQ(copy.GetReferenceCount(), 0);
    EXPECT_FALSE(copy.GetHistory());
}

TEST(Exception, every_class_is_thrown_cloned_and_caught_as_itself_and_its_bases)
{
    const auto check = []<class E>(E* (*clone)(const E&), const CkRTTI& rtti)
    {
        const E original(CK_T("file"), 7);
        const CkSmartPointer<E> copy(clone(original));
        EXPECT_TRUE(copy->Is(E::RTTI) && copy->IsKindOf(CkException::RTTI));
        EXPECT_EQ(&copy->GetRTTI(), &rtti);
        EXPECT_EQ(copy->GetClassNameW(), rtti.GetName());
        EXPECT_EQ(copy->GetCodeLine(), 7u);
        EXPECT_THROW(throw E(CK_T("file"), 8), E);
        EXPECT_THROW(throw E(CK_T("file"), 8, original), CkException);
        EXPECT_THROW(throw E(original), ExceptionCount);
        EXPECT_THROW(throw E(original), CkReferenceCountedClassBase);
        EXPECT_THROW(throw E(original), CkIDumpable<1>);
    };
    check(&CkException::Clone, CkException::RTTI);
    check(&CkExceptionCondition::Clone, CkExceptionCondition::RTTI);
    check(&CkExceptionOutOfMemory::Clone, CkExceptionOutOfMemory::RTTI);
    check(&CkExceptionPreconditionViolation::Clone, CkExceptionPreconditionViolation::RTTI);
    check(&CkExceptionStream::Clone, CkExceptionStream::RTTI);
    check(&CkExceptionWrongFileVersion::Clone, CkExceptionWrongFileVersion::RTTI);
}

TEST(Exception, history_is_a_clone_of_the_cause_with_its_class_and_place)
{
    unsigned int causeThread = 0;
    CkException outer(CK_T("none"), 0);
    std::thread(
        [&]
        {
            const CkExceptionWrongFileVersion cause(CK_T("cause"), 5);
            causeThread = cause.GetThreadID();
            outer = CkExceptionStream(CK_T("effect"), 6, cause);
        })
        .join();
    const auto history = outer.GetHistory();
    ASSERT_TRUE(history);
    EXPECT_TRUE(history->Is(CkExceptionWrongFileVersion::RTTI));
    EXPECT_EQ(history->GetFilename(), CK_T("cause"));
    EXPECT_EQ(history->GetCodeLine(), 5u);
    EXPECT_EQ(history->GetThreadID(), causeThread);
    EXPECT_NE(causeThread, GetCurrentThreadId());
    EXPECT_EQ(history->GetReferenceCount(), 2) << "the exception's and this one";
    const CkException copy = outer;
    EXPECT_EQ(copy.GetHistory(), history) << "copies share it";
}

TEST(Exception, a_clients_exception_keeps_its_state_in_a_history)
{
    const ClientException cause(42);
    const CkException outer(CK_T("outer"), 1, cause);
    const ClientException further(43, outer);
    const auto history = further.GetHistory()->GetHistory();
    ASSERT_TRUE(history);
    ASSERT_TRUE(history->Is(ClientException::RTTI));
    EXPECT_EQ(static_cast<const ClientException&>(*history).Value(), 42);
}

TEST(Exception, a_cause_that_cannot_be_cloned_leaves_the_history_empty)
{
    EXPECT_FALSE(CkException(CK_T("outer"), 1, UnclonableException()).GetHistory());
    EXPECT_FALSE(CkException(CK_T("outer"), 1, UnwillingException()).GetHistory());

    // Another class under the same name would clone an object that is none of its own.
    static bool called = false;
    const CkRTTI impostor(CK_T("ClientException"), nullptr,
                          [](const void*) -> void*
                          {
                              called = true;
                              return nullptr;
                          });
    EXPECT_FALSE(CkException(CK_T("outer"), 1, ClientException(1)).GetHistory());
    EXPECT_FALSE(called);
}

TEST(Exception, wraps_a_standard_exception_which_is_reported_first)
{
    const Reports reports;
    const CkException exception(CK_T("file"), 9, std::runtime_error("too h\xC3\xB6t"));
    ASSERT_EQ(reports.All().size(), 2u);
    EXPECT_EQ(reports.All()[0].codeLine, 0u);
    EXPECT_EQ(reports.All()[0].className, CK_T("CkException"));
    EXPECT_EQ(reports.All()[0].fileName, CK_T("std::exception (") + CString("too h\xC3\xB6t") + CK_T(")"));
    EXPECT_EQ(reports.All()[1], (Report{CK_T("file"), 9, CK_T("CkException")}));
    EXPECT_EQ(exception.GetHistory()->GetFilename(), reports.All()[0].fileName);
}

TEST(Exception, writes_itself_and_its_history_one_line_each)
{
    EXPECT_EQ(CkException(CK_T("c:\\src\\queue"), 473).ToString(),
              CK_T("c:\\src\\queue(473): EXCEPTION CkException\n"));
    const CkException first(CK_T("a"), 1);
    const CkExceptionStream second(CK_T("b"), 2, first);
    const CkExceptionCondition third(CK_T("c"), 3, second);
    const CString expected = CK_T("c(3): EXCEPTION CkExceptionCondition\n"
                                  "\tb(2): EXCEPTION CkExceptionStream\n"
                                  "\ta(1): EXCEPTION CkException\n");
    EXPECT_EQ(third.ToString(), expected);
    CkStreamWriteASCIIString stream;
    stream << CK_T("> ");
    third.Dump(stream);
    EXPECT_EQ(*stream, CK_T("> ") + expected);
    third.Dump();
}

TEST(Exception, error_codes_depend_on_the_last_two_components_alone)
{
    struct Row
    {
        const WCHAR* fileName;
        unsigned int line;
        const WCHAR* code;
    };
    const Row rows[] = {
        {CK_T("abc"), 1, CK_T("9c2 f4b.001")},
        {CK_T("ABC"), 1, CK_T("9c2 f4b.001")},
        {CK_T("d:\\work\\lib\\queue"), 12, CK_T("a91 8a3.00c")},
        {CK_T("\\\\server\\LIB\\Queue"), 12, CK_T("a91 8a3.00c")},
        {CK_T("lib\\queue"), 12, CK_T("a91 8a3.00c")},
        {CK_T("lib\\queue"), 0x12345, CK_T("a91 8a3.12345")},
        {CK_T(""), 0, CK_T("1c9 dc5.000")},
    };
    for (const Row& row : rows)
        EXPECT_EQ(CkException(row.fileName, row.line).GetErrorCode(), row.code) << CString(row.fileName).ToUtf8();
    EXPECT_NE(CkException(CK_T("x\\lib/queue"), 12).GetErrorCode(), CK_T("a91 8a3.00c"));
}

TEST(Exception, source_files_are_named_alike_on_every_machine)
{
    struct Row
    {
        const char* path;
        const WCHAR* name;
    };
    const Row rows[] = {
        {"/home/someone/app/lib/queue.cpp", CK_T("lib\\queue")},
        {"D:\\work\\lib\\queue.cpp", CK_T("lib\\queue")},
        {"../lib/queue.test.cpp", CK_T("lib\\queue.test")},
        {"lib/queue", CK_T("lib\\queue")},
        {"queue.cpp", CK_T("queue")},
        {"/queue.cpp", CK_T("queue")},
        {"./lib/./queue.cpp", CK_T("lib\\queue")},
        {"../../queue.cpp", CK_T("queue")},
        {"x/lib/../queue.cpp", CK_T("x\\queue")},
        {"lib//queue.cpp", CK_T("lib\\queue")},
        {"lib/.hidden", CK_T("lib\\.hidden")},
        {"..", CK_T("")},
        {"a.b/queue", CK_T("a.b\\queue")},
        {"", CK_T("")},
        {"x/\xC3\xA4/\xC3\xB6.cpp", CK_T("\u00E4\\\u00F6")},
    };
    for (const Row& row : rows)
        EXPECT_EQ(tarvo::detail::sourceFile(row.path), row.name) << row.path;
    EXPECT_EQ(CK_SOURCE_FILE, CK_T("core\\ckexception_test"));
}

TEST(ExceptionReport, whatever_a_listener_throws_is_dropped)
{
    struct HeapException : CException
    {
        explicit HeapException(bool& gone) : m_gone(gone) {}
        ~HeapException() override { m_gone = true; }
        bool& m_gone;
    };
    bool gone = false;
    const std::function<void()> listeners[] = {
        [] { throw 42; },
        [] { throw std::runtime_error("listener"); },
        [&gone] { throw static_cast<CException*>(new HeapException(gone)); },
        [] { AfxThrowMemoryException(); },
    };
    for (const auto& listener : listeners)
    {
        const Reports reports(listener);
        EXPECT_EQ(CkException(CK_T("file"), 1).GetCodeLine(), 1u);
        EXPECT_EQ(reports.All().size(), 1u);
    }
    EXPECT_TRUE(gone);
}

TEST(ExceptionReport, a_listener_that_raises_on_every_report_is_cut_off)
{
    const Reports reports([] { throw CkException(CK_T("listener"), 1); });
    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(CkException(CK_T("file"), 1).GetCodeLine(), 1u);
    EXPECT_GE(reports.All().size(), 4u) << "a listener may raise a little";
    EXPECT_LE(reports.All().size(), 20u);
}

TEST(Exception, a_long_history_is_destroyed_without_recursion)
{
    constexpr int length = 1000000;
    auto newest = std::make_unique<CkException>(CK_T("f"), 0);
    for (unsigned int line = 1; line < length; ++line)
        newest = std::make_unique<CkException>(CK_T("f"), line, *newest);
    const auto middle = newest->GetHistory()->GetHistory();
    newest.reset();
    EXPECT_EQ(middle->GetReferenceCount(), 1);
    EXPECT_EQ(middle->GetHistory()->GetCodeLine(), static_cast<unsigned int>(length) - 4);
}

TEST(Exception, a_long_history_of_exceptions_that_carry_others_neither)
{
    const auto causedBy = [](const CkException& cause) { return std::make_unique<CarryingException>(cause); };
    auto newest = causedBy(CkException(CK_T("f"), 0));
    for (int i = 0; i < 300000; ++i)
        newest = causedBy(*newest);
    const auto shared = newest->GetHistory();
    auto effect = causedBy(*newest);
    EXPECT_EQ(effect->GetHistory()->GetHistory(), shared);
    newest.reset();
    effect.reset();
    EXPECT_EQ(shared->GetReferenceCount(), 1);
}
