"""Builds and runs a client project against what is installed of the library.

package.py --build FOLDER|--tree FOLDER --libdir NAME --cmake FILE --generator NAME --compiler FILE [--toolchain FILE]
    [--runner COMMAND...]

A build is installed first, and the tree moved elsewhere; a tree is taken as it is, for instance from a package.
`libdir` is the folder of libraries in it. The runner is what starts a Windows program. The client is built with CMake,
and on Linux also with pkg-config.
"""

import argparse
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

CONSUMER = pathlib.Path(__file__).resolve().parent / "consumer"
SOURCES = CONSUMER.parents[2]
RUNTIME_DLLS = ["libstdc++-6.dll", "libgcc_s_seh-1.dll", "libwinpthread-1.dll"]
WARNINGS = "-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Woverloaded-virtual -Werror".split()


def run(*command, **options):
    """Runs a command, whose output is shown only when it fails, and returns that output."""
    result = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            stdin=subprocess.DEVNULL, text=True, **options)
    if result.returncode != 0:
        print(result.stdout)
        sys.exit(f"package: exit code {result.returncode} of {shlex.join(str(part) for part in command)}")
    return result.stdout


def version_of(tree):
    text = (tree / "include/tarvo/version.h").read_text(encoding="utf-8")
    return [int(re.search(rf"TARVO_VERSION_{part} (\d+)", text)[1]) for part in ("MAJOR", "MINOR", "PATCH")]


def expected_files(lib, windows, version):
    """What must be there besides the headers, and the pattern of what may be there as well."""
    package = [f"{lib}/cmake/Tarvo/{name}" for name in (
        "TarvoConfig.cmake", "TarvoConfigVersion.cmake", "TarvoTargets.cmake", "TarvoUnloadable.cmake")]
    package.append(f"{lib}/pkgconfig/tarvo.pc")
    optional = (re.escape(lib) + r"/cmake/Tarvo/TarvoTargets-\w+\.cmake"
                r"|share/tarvo/debug/(tarvo_gdb\.py|tarvo\.natvis)"
                r"|share/gdb/auto-load/.*/libTarvo\.so\.[\d.]+-gdb\.py|share/doc/libtarvo[^/]*/[^/]*")
    if windows:
        return package + ["bin/Tarvo.dll", f"{lib}/libTarvo.dll.a"] + [f"bin/{name}" for name in RUNTIME_DLLS], optional
    major, minor, patch = version
    short = f"{major}.{minor}" if major == 0 else f"{major}"
    library = f"{lib}/libTarvo.so"
    return package + [library, f"{library}.{short}", f"{library}.{major}.{minor}.{patch}"], optional


def check_headers(tree, names, windows):
    """The public headers, all that they include, and nothing of the library's own."""
    headers = {name.removeprefix("include/") for name in names if name.startswith("include/")}
    assert "tarvo/tarvo.h" in headers, "tarvo/tarvo.h is not installed"
    for name in sorted(headers):
        assert re.fullmatch(r"tarvo/[a-z/]+\.h", name), f"{name} is no header of the library"
        assert "/detail/" not in name, f"{name} is private, but installed: a public header includes it"
        foreign = "tarvo/platform/kernel/" + ("linux/" if windows else "windows/")
        assert not name.startswith(foreign), f"{name} belongs to the other system"
        text = (tree / "include" / name).read_text(encoding="utf-8")
        for included in re.findall(r"^\s*#\s*include\s*<(tarvo/[^>]+)>", text, re.MULTILINE):
            elsewhere = windows and included.startswith("tarvo/platform/kernel/linux/")
            assert included in headers or elsewhere, f"{name} includes {included}, which is not installed"


def check_tree(tree, lib, windows, places):
    names = {path.relative_to(tree).as_posix() for path in tree.rglob("*") if not path.is_dir()}
    required, optional = expected_files(lib, windows, version_of(tree))
    missing = sorted(set(required) - names)
    assert not missing, f"not installed: {missing}"
    check_headers(tree, names, windows)
    surplus = sorted(name for name in names - set(required)
                     if not name.startswith("include/") and not re.fullmatch(optional, name))
    assert not surplus, f"installed, but not expected: {surplus}"
    views = [path.name for path in (SOURCES / "debug").glob("*") if path.suffix in (".py", ".natvis")]
    for view in views:
        assert f"share/tarvo/debug/{view}" in names, f"the debugger view {view} is not installed"
    for name in names:
        path = tree / name
        if path.is_symlink():
            assert "/" not in os.readlink(path), f"the link {name} leads to {os.readlink(path)}"
        if path.suffix in (".h", ".cmake", ".pc"):
            text = path.read_text(encoding="utf-8")
            for place in places:
                assert place not in text, f"{name} holds the place {place}"


def check_version(tree, work, cmake):
    """Another minor version is refused before 1.0, and another major version always."""
    major, minor, _ = version_of(tree)
    found = {"": 1, f"{major}.{minor}": 1, f"{major}.{minor + 1}": 0, f"{major + 1}.0": 0}
    if minor > 0:
        found[f"{major}.{minor - 1}"] = 0 if major == 0 else 1
    folder = work / "version"
    folder.mkdir()
    lines = ["cmake_minimum_required(VERSION 3.25)", "project(version LANGUAGES CXX)"]
    for wanted, result in found.items():
        lines += [f"find_package(Tarvo {wanted} CONFIG QUIET)",
                  f"if(NOT Tarvo_FOUND EQUAL {result})",
                  f"    message(FATAL_ERROR \"asked for version '{wanted}', Tarvo_FOUND is ${{Tarvo_FOUND}}\")",
                  "endif()"]
    (folder / "CMakeLists.txt").write_text("\n".join(lines) + "\n", encoding="utf-8")
    run(*cmake, "-S", folder, "-B", folder / "build")


def run_consumer(folder, tree, windows, runner, environment=None):
    if windows:
        for library in (tree / "bin").glob("*.dll"):
            shutil.copy(library, folder)
        command = runner + ["consumer.exe", "plugin.dll"]
    else:
        command = ["./consumer", "./plugin.so"]
    output = run(*command, cwd=folder, env=environment)
    expected = "Tarvo {}.{}.{} is in order".format(*version_of(tree))
    assert output.strip() == expected, f"the program says {output!r}"


def try_cmake(tree, work, cmake, windows, runner):
    folder = work / "with cmake"
    run(*cmake, "-S", CONSUMER, "-B", folder)
    run(cmake[0], "--build", folder)
    run_consumer(folder, tree, windows, runner)


def try_pkg_config(tree, lib, work, compiler):
    def ask(*question):
        environment = dict(os.environ, PKG_CONFIG_PATH=str(tree / lib / "pkgconfig"))
        return shlex.split(run("pkg-config", *question, "tarvo", env=environment))

    if shutil.which("pkg-config") is None:
        sys.exit("package: pkg-config is missing; install the package pkg-config")
    folder = work / "with pkg-config"
    folder.mkdir()
    assert ask("--modversion") == [".".join(str(part) for part in version_of(tree))]
    compile_options = ["-std=c++20", *WARNINGS, *ask("--cflags")]
    run(compiler, *compile_options, CONSUMER / "main.cpp", "-o", folder / "consumer", *ask("--libs"), "-ldl")
    run(compiler, *compile_options, *ask("--variable=plugin_cflags"), "-fPIC", "-shared", CONSUMER / "plugin.cpp",
        "-o", folder / "plugin.so", *ask("--libs"))
    run_consumer(folder, tree, False, [], dict(os.environ, LD_LIBRARY_PATH=str(tree / lib)))


def install(cmake, build, work):
    """The installed tree, at another place than it was installed to."""
    run(cmake, "--install", build, "--prefix", work / "installed")
    tree = work / "moved" / "to another place"
    tree.parent.mkdir()
    (work / "installed").rename(tree)
    return tree


def options_of_command():
    parser = argparse.ArgumentParser()
    source = parser.add_mutually_exclusive_group(required=True)
    source.add_argument("--build", type=pathlib.Path)
    source.add_argument("--tree", type=pathlib.Path)
    for name in "libdir", "cmake", "generator", "compiler":
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--toolchain")
    parser.add_argument("--runner", nargs="*", default=[])
    return parser.parse_args()


def main():
    options = options_of_command()
    windows = bool(options.runner)
    lib = options.libdir
    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        places = [str(SOURCES), name]
        if options.build:
            tree = install(options.cmake, options.build, work)
            places.append(str(options.build))
        else:
            tree = options.tree.resolve()
        check_tree(tree, lib, windows, places)

        # Toolchain files look for packages in their own roots alone, so there the package's folder is named.
        cmake = [options.cmake, "-G", options.generator]
        if options.toolchain:
            cmake += [f"-DCMAKE_TOOLCHAIN_FILE={options.toolchain}", f"-DTarvo_DIR={tree}/{lib}/cmake/Tarvo"]
        else:
            cmake += [f"-DCMAKE_CXX_COMPILER={options.compiler}", f"-DCMAKE_PREFIX_PATH={tree}"]
        check_version(tree, work, cmake)
        try_cmake(tree, work, cmake, windows, options.runner)
        if not windows:
            try_pkg_config(tree, lib, work, options.compiler)


main()
