"""Runs the program `exit`, which must end with the exit code that it is given: exit.py PROGRAM [ARGUMENT...]"""

import pathlib
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
import watch  # noqa: E402

for code in [0, 42]:
    watch.run_to_end(sys.argv[1:] + [str(code)], code)
