#include <tarvo/platform/kernel/messagebox.h>

#include <support/diagnosticspeer.h>
#include <support/platform.h>

#include <gtest/gtest.h>

TEST(KernelMessageBox, is_the_systems_where_the_application_has_none)
{
    const auto own = [](const WCHAR*, const WCHAR*, unsigned int) { return 0; };
    const tarvo::kernel::MessageBoxFunction function = own;
    EXPECT_EQ(tarvo::kernel::SetMessageBox(function), nullptr);
    EXPECT_EQ(tarvo::kernel::SetMessageBox(nullptr), function);
    // The other kernel's would wait for the user.
    if (!ownKernel)
        return;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(CkDiagnosticsInterfacePeer().Load());
    EXPECT_EQ(MessageBoxW(nullptr, CK_T("Z\u00FCrich"), nullptr, MB_OK), IDOK);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error: Vistrel: Could not load library Vistrel.dll.\nFile does not exist.\n: Z\xC3\xBCrich\n");
}
