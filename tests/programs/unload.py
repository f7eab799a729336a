"""Runs the program `unload` in both its ways: unload.py PROGRAM [ARGUMENT...]"""

import subprocess
import sys

subprocess.run(sys.argv[1:], check=True)
for code in [0, 42]:
    found = subprocess.run(sys.argv[1:] + [str(code)]).returncode
    assert found == code, f"exit code {found}, not {code}"
