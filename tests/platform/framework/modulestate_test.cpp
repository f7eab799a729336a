#include <tarvo/platform/framework/modulestate.h>

#include <support/dynamiclibrary.h>

#include <gtest/gtest.h>

#include <thread>

namespace
{
/// A module of the tests: any address is one.
HMODULE moduleAt(int& place)
{
    return reinterpret_cast<HMODULE>(&place);
}
} // namespace

TEST(ModuleState, is_current_on_one_thread_until_the_one_before_is_again)
{
    AFX_MODULE_STATE* const ofProcess = AfxGetModuleState();
    AFX_MODULE_STATE outer;
    AFX_MODULE_STATE inner;
    {
        const AFX_MAINTAIN_STATE2 keepOuter(&outer);
        {
            const AFX_MAINTAIN_STATE2 keepInner(&inner);
            EXPECT_EQ(AfxGetModuleState(), &inner);
            std::thread([&] { EXPECT_EQ(AfxGetModuleState(), ofProcess); }).join();
        }
        EXPECT_EQ(AfxGetModuleState(), &outer);
        int other = 0;
        AfxTermThread(moduleAt(other));
        EXPECT_EQ(AfxGetModuleState(), &outer) << "another module has nothing to say";
        AfxTermThread();
        EXPECT_EQ(AfxGetModuleState(), ofProcess);
    }
    EXPECT_EQ(AfxGetModuleState(), ofProcess);
    EXPECT_EQ(AfxSetModuleState(nullptr), nullptr);
}

TEST(ModuleState, is_initialised_once_and_counts_who_keeps_temporary_objects)
{
    AFX_MODULE_STATE state;
    const AFX_MAINTAIN_STATE2 keep(&state);
    int module = 0;
    int other = 0;
    AfxCoreInitModule();
    EXPECT_FALSE(AfxWinInit(nullptr, nullptr, CK_T(""), 0));
    EXPECT_FALSE(AfxWinInit(moduleAt(module), moduleAt(other), CK_T(""), 0));
    EXPECT_TRUE(AfxWinInit(moduleAt(module), nullptr, CK_T(""), 0));
    EXPECT_FALSE(AfxWinInit(moduleAt(other), nullptr, CK_T(""), 0));
    EXPECT_EQ(state.m_hCurrentInstanceHandle, moduleAt(module));
    AfxLockTempMaps();
    AfxLockTempMaps();
    EXPECT_TRUE(AfxUnlockTempMaps());
    EXPECT_FALSE(AfxUnlockTempMaps());
    AfxWinTerm();
    EXPECT_TRUE(AfxWinInit(moduleAt(other), nullptr, CK_T(""), 0));
}

TEST(ModuleState, chain_has_the_modules_that_were_entered_the_latest_first)
{
    int first = 0;
    int second = 0;
    AFX_EXTENSION_MODULE firstRecord;
    AFX_EXTENSION_MODULE secondRecord;
    EXPECT_FALSE(AfxInitExtensionModule(firstRecord, nullptr));
    AfxTermExtensionModule(firstRecord, TRUE);
    EXPECT_TRUE(AfxInitExtensionModule(firstRecord, moduleAt(first)));
    EXPECT_TRUE(AfxInitExtensionModule(firstRecord, moduleAt(second)));
    EXPECT_EQ(firstRecord.hModule, moduleAt(first)) << "a record stays as it is";
    EXPECT_TRUE(AfxInitExtensionModule(secondRecord, moduleAt(second)));

    CDynLinkLibrary* const early = new CDynLinkLibrary(firstRecord);
    CDynLinkLibrary* const other = new CDynLinkLibrary(secondRecord);
    CDynLinkLibrary* const late = new CDynLinkLibrary(firstRecord);
    EXPECT_EQ(CDynLinkLibrary::Find(moduleAt(first)), late);
    EXPECT_EQ(CDynLinkLibrary::Find(moduleAt(second)), other);
    AfxTermExtensionModule(firstRecord);
    EXPECT_EQ(CDynLinkLibrary::Find(moduleAt(first)), early);
    EXPECT_TRUE(firstRecord.bInitialized);
    new CDynLinkLibrary(firstRecord);
    AfxTermExtensionModule(firstRecord, TRUE);
    EXPECT_EQ(CDynLinkLibrary::Find(moduleAt(first)), nullptr);
    EXPECT_FALSE(firstRecord.bInitialized);
    EXPECT_EQ(CDynLinkLibrary::Find(moduleAt(second)), other) << "the others stay";
    AfxTermExtensionModule(secondRecord, TRUE);
}

TEST(ModuleState, library_is_a_module_of_the_framework_and_leaves_the_state_of_the_process_current)
{
    const auto library = static_cast<HMODULE>(dynamiclibrary::moduleOf(AfxGetModuleState()));
    ASSERT_NE(library, nullptr);
    const CDynLinkLibrary* const entry = CDynLinkLibrary::Find(library);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->m_hResource, library);
    EXPECT_EQ(AfxSetModuleState(nullptr), nullptr);
    EXPECT_EQ(AfxGetModuleState()->m_hCurrentInstanceHandle, nullptr);
}
