"""Tries the planter itself on a small program: python3 -m mutate.selftest, as scripts/mutate starts Python.

All faults that it finds there are built in; with each one the program has to print something else than without, but for
those that are known to make no difference, and without one the same as before.
"""

import os
import pathlib
import sys
import tempfile

from mutate import plant, sites

PROGRAM = """#include <atomic>
#include <cstdio>
#define NEVER_CHANGED(a, b) ((a) < (b))
enum Colour { red, green, blue };
constexpr int most = 3;
constexpr int twice(int value) { return value * 2; }
static_assert(twice(2) == 4);
template <int N> struct Fixed { int values[N + 1] = {}; };
struct Node { int value; };
static bool isBig(const Node* node) { return node != nullptr && node->value > 40; }
int main()
{
    Fixed<4> fixed;
    std::atomic<int> count{7};
    int sum = 0; // a comment, even /* one with ( in it
    for (int i = 0; i < most; ++i)
        sum += count.load(std::memory_order_relaxed) - i;
    if (sum == 18 && !isBig(nullptr))
        std::printf("%d ", sum);
    else
        std::puts("else");
    if constexpr (most > 2)
        std::printf("%d %d ", twice(sum), green);
    std::printf("%d %d\\n", int(sizeof fixed.values), NEVER_CHANGED(1, 2));
    return 0;
}
"""

# The kinds of faults that the program has places for, each with one change that has to be among them.
EXPECTED = {"comparison": "sum == 18 -> !=", "operator": "value * 2 -> /",
            "assignment": "++i -> --(i)", "constant": "most -> most + 1", "deletion": 'std::puts("else") -> nothing',
            "negation": "sum == 18 && !isBig(nullptr) -> !(sum == 18 && !isBig(nullptr))",
            "swap": "node != nullptr && node->value > 40 -> (node->value > 40) && (node != nullptr)"}

# Changes that this program does not show: the function is called with nothing, and one branch is not taken.
WITHOUT_EFFECT = {'std::puts("else") -> nothing', "sum == 18 && !isBig(nullptr) -> ||", "40 -> 40 + 1", "40 -> 40 - 1",
                  "node->value > 40 -> >=", "node->value > 40 -> <="}


def expect(holds, what):
    if not holds:
        sys.exit(f"selftest: {what}")


def find(folder):
    (folder / "program.cpp").write_text(PROGRAM)
    arguments = ["-std=c++20", "-include", str(plant.KIT / "planted.h")]
    found, unread = sites.find(folder, [(str(folder / "program.cpp"), arguments)], {"program.cpp"}, 1)
    expect(not unread, "the program is not read")
    for kind, change in EXPECTED.items():
        expect(any(site.kind == kind and site.change == change for site in found), f"missing: {kind}: {change}")
    for site in found:
        for constant in "(a) < (b)", "most > 2", "N + 1", "twice(2)", "// a comment":
            expect(not site.change.startswith(constant), f"to be left alone: {site.change}")
    return found


def build(folder, text, name):
    (folder / f"{name}.cpp").write_text(text)
    plant.must(["g++", "-std=c++20", "-w", "-include", plant.KIT / "planted.h", folder / f"{name}.cpp",
                plant.KIT / "planted.cpp", "-o", folder / name])


def output(folder, number):
    result = plant.run(["timeout", "2", folder / "planted"], env=dict(os.environ, TARVO_FAULT=str(number)))
    return result.returncode, result.stdout[:200]


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name).resolve()
        found = find(folder)
        faults = [plant.Fault(number, "", site) for number, site in enumerate(found, 1)]
        data = PROGRAM.encode()
        build(folder, plant.render(data, 0, len(data), faults), "planted")
        usual = output(folder, 0)
        expect(usual == (0, "18 36 1 20 1\n"), f"without a fault: {usual}")
        idle = [fault.site.change for fault in faults if output(folder, fault.number) == usual]
        expect(set(idle) == WITHOUT_EFFECT, f"without effect: {idle}")
        print(f"selftest: {len(faults)} faults in {len(PROGRAM.splitlines())} lines")


if __name__ == "__main__":
    main()
