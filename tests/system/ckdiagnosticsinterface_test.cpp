#include <tarvo/system/ckdiagnosticsinterface.h>

#include <tarvo/core/ckexception.h>

#include <support/barrier.h>
#include <support/diagnosticspeer.h>
#include <support/printers.h>

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <thread>
#include <vector>

TEST(CkDiagnosticsInterface, names_the_reason_why_the_client_is_not_loaded)
{
    struct Row
    {
        DWORD error;
        const WCHAR* reason;
    };
    const Row rows[] = {
        {126, CK_T("File does not exist.")},
        {193, CK_T("32/64-bit mismatch.")},
        {5, CK_T("Windows error code: 0x5 (5).")},
        {0xC0000abc, CK_T("Windows error code: 0xC0000ABC (3221228220).")},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(CkDiagnosticsInterfacePeer::LoadMessage(row.error),
                  CString(CK_T("Vistrel: Could not load library Vistrel.dll.\n")) + row.reason);
    }
}

TEST(CkDiagnosticsInterface, is_loaded_by_one_of_several_threads)
{
    constexpr int threadCount = 4;
    for (int round = 0; round < 20; ++round)
    {
        const MessageBoxes boxes;
        CkDiagnosticsInterfacePeer peer;
        Barrier start(threadCount);
        std::vector<std::thread> threads;
        for (int i = 0; i < threadCount; ++i)
        {
            threads.emplace_back(
                [&]
                {
                    start.Arrive();
                    EXPECT_FALSE(peer.Load());
                });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(boxes.Take().size(), 1u);
    }
}

TEST(CkDiagnosticsInterface, sends_nothing_yet)
{
    CkDiagnosticsInterface& bridge = CkDiagnosticsInterface::GetInstance();
    const unsigned short text[] = {'a', 0};
    const std::function<void()> operations[] = {
        [&] { bridge.SendTrace(CK_T("%d"), 1); },
        [&] { bridge.SendDiagnosticsTimer(CK_T("a"), CK_T("%d"), 1); },
        [&] { bridge.SendDiagnosticsImage(CK_T("a"), 1, 1, 32, nullptr); },
        [&] { bridge.SendTrace(text, 1); },
        [&] { bridge.SendDiagnosticsTimer(text, text, 1); },
        [&] { bridge.SendDiagnosticsImage(text, 1, 1, 32, nullptr); },
    };
    std::set<unsigned int> lines;
    for (const auto& operation : operations)
    {
        try
        {
            operation();
            ADD_FAILURE() << "did not raise";
        }
        catch (const CkException& exception)
        {
            EXPECT_TRUE(exception.Is(CkException::RTTI));
            EXPECT_EQ(exception.GetFilename(), CK_T("tarvo\\system\\ckdiagnosticsinterface"));
            lines.insert(exception.GetCodeLine());
        }
    }
    EXPECT_EQ(lines.size(), 3u);
}
