"""Runs the program `exit`, which must end with the exit code that it is given: exit.py PROGRAM [ARGUMENT...]"""

import subprocess
import sys

for code in [0, 42]:
    found = subprocess.run(sys.argv[1:] + [str(code)]).returncode
    assert found == code, f"exit code {found}, not {code}"
