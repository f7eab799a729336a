// Loads the diagnostics client that the script beside this file lets the system find. The argument says what to expect.

#include <support/diagnosticspeer.h>
#include <support/expect.h>

#include <algorithm>
#include <string_view>

namespace
{
struct Case
{
    std::string_view name;
    bool loaded;
    std::vector<bool> found;
    const WCHAR* message; ///< Null: no message box.
};

const std::vector<Case> cases = {
    {"complete", true, {true, true, true}, nullptr},
    {"incomplete", false, {true, false, false}, CK_T("Vistrel: Could not find method(s) in library Vistrel.dll")},
    {"unfit", false, {false, false, false}, CK_T("Vistrel: Could not load library Vistrel.dll.\n32/64-bit mismatch.")},
    {"missing",
     false,
     {false, false, false},
     CK_T("Vistrel: Could not load library Vistrel.dll.\nFile does not exist.")},
};
} // namespace

int main(int argc, char** argv)
{
    const auto found =
        std::find_if(cases.begin(), cases.end(),
                     [argc, argv](const Case& candidate) { return argc == 2 && candidate.name == argv[1]; });
    if (found == cases.end())
        return 2;
    const MessageBoxes boxes;
    std::vector<MessageBoxes::Box> expected;
    if (found->message != nullptr)
        expected.push_back({found->message, CK_T("Error"), 0x30});

    expect(CkDiagnosticsInterface::HasInstance() == 0, "no instance before the first use");
    CkDiagnosticsInterface& bridge = CkDiagnosticsInterface::GetInstance();
    expect(&bridge == &CkDiagnosticsInterface::GetInstance(), "one instance");
    expect(CkDiagnosticsInterface::HasInstance() != 0, "an instance after the first use");

    CkDiagnosticsInterfacePeer peer(bridge);
    expect(peer.Load() == found->loaded, "the result of the first load");
    expect(boxes.Take() == expected, "the message of the first load");
    expect(peer.Found() == found->found, "the entry points");
    expect(!peer.Load() && boxes.Take().empty(), "a second load that does nothing");
    expect(peer.Found() == found->found, "the same entry points");
    return failures;
}
