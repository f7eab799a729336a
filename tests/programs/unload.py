"""Runs the program `unload` in both its ways: unload.py PROGRAM [ARGUMENT...]"""

import pathlib
import subprocess
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
import watch  # noqa: E402

subprocess.run(sys.argv[1:], check=True)
for code in [0, 42]:
    watch.run_to_end(sys.argv[1:] + [str(code)], code)
