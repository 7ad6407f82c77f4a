#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that a DLL imports from no other DLL than those named.

usage: check_imports.py DLL ALLOWED...
"""
import re
import subprocess
import sys


def main() -> int:
    dll, *allowed = sys.argv[1:]
    listing = subprocess.run(
        ["llvm-readobj", "--coff-imports", dll], capture_output=True, text=True, check=True).stdout
    found = re.findall(r"^Import \{\n  Name: (\S+)$", listing, re.MULTILINE)
    unwanted = sorted({name.lower() for name in found} - {name.lower() for name in allowed})
    print(f"imports from {', '.join(found)}; not allowed: {', '.join(unwanted) or 'none'}")
    return 1 if unwanted or not found else 0


if __name__ == "__main__":
    sys.exit(main())
