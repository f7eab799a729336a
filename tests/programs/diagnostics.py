"""Runs the program `diagnostics` where it finds various clients: diagnostics.py PROGRAM [ARGUMENT...]

The clients lie in folders of their own in the folder `diagnostics` beside the program. Windows looks for libraries in
the working directory, too; elsewhere a variable names the folder.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile


def run(program, expected, folder):
    environment = dict(os.environ, LD_LIBRARY_PATH=str(folder))
    subprocess.run(program + [expected], cwd=folder, env=environment, check=True)


def main(program):
    clients = pathlib.Path(program[-1]).parent / "diagnostics"
    windows = program[-1].endswith(".exe")
    name = "Vistrel.dll" if windows else "libVistrel.so"
    run(program, "complete", clients / "complete")
    run(program, "incomplete", clients / "incomplete")
    # Another library is missing, but that one the text does not name.
    run(program, "missing", clients / "dependent")
    with tempfile.TemporaryDirectory() as folder:
        run(program, "missing", folder)
        path = pathlib.Path(folder) / name
        for content in b"", b"neither MZ nor ELF" * 10, b"\x7fELF\1\1\1" + bytes(9) + b"\3\0\3\0\1" + bytes(500):
            path.write_bytes(content)
            run(program, "unfit", folder)
        if not windows:
            # The program's own folder comes first; its other libraries are where it was.
            path.unlink()
            shutil.copy(program[-1], folder)
            shutil.copy(clients / "complete" / name, folder)
            run([folder + "/" + pathlib.Path(program[-1]).name], "complete", clients.parent)


main(sys.argv[1:])
