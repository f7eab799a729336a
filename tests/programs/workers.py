"""Runs the program `workers` in each of its ways: workers.py PROGRAM [ARGUMENT...]"""

import subprocess
import sys

for way in ["many", "one", "adders"]:
    subprocess.run(sys.argv[1:] + [way], check=True)
