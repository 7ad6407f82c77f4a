#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that a DLL imports one function of one library, and that with the first call only.

usage: check_delay_import.py DLL LIBRARY FUNCTION

The delay-import directory must name LIBRARY with FUNCTION and nothing else, and the ordinary import directory must
not name LIBRARY.
"""
import re
import subprocess
import sys


def main() -> int:
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    dll, library, function = sys.argv[1:]
    listing = subprocess.run(
        ["llvm-readobj", "--coff-imports", dll], capture_output=True, text=True, check=True).stdout
    blocks = re.findall(r"^(Import|DelayImport) \{\n(.*?)^\}", listing, re.MULTILINE | re.DOTALL)
    imports = [
        (kind, re.search(r"Name: (\S+)", body).group(1), re.findall(r"Symbol: (\S*)", body)) for kind, body in blocks]
    delayed = [(name, symbols) for kind, name, symbols in imports if kind == "DelayImport"]
    static = [name for kind, name, _ in imports if kind == "Import"]
    print(f"delayed: {delayed}\nstatic: {static}")
    if not static:
        print("no static import found: the listing was not understood")
        return 1
    if library.lower() in (name.lower() for name in static):
        print(f"{library} is imported statically")
        return 1
    if delayed != [(library, [function])]:
        print(f"the delayed imports should be {library} with {function} alone")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
