#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that a library exports exactly the functions of a list, one demangled name a line.

usage: check_exports.py LIBRARY LIST
"""
import re
import subprocess
import sys
from pathlib import Path


def output_of(*command: str | Path, text_in: str | None = None) -> str:
    return subprocess.run(command, input=text_in, capture_output=True, text=True, check=True).stdout


def exported_symbols(library: Path) -> list[str]:
    if library.suffix == ".dll":
        return re.findall(r"^ *Name: (\S+)$", output_of("llvm-readobj", "--coff-exports", library), re.MULTILINE)
    lines = output_of("nm", "--dynamic", "--defined-only", "--format=posix", library).splitlines()
    return [line.split()[0] for line in lines]


def main() -> int:
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    library, wanted_list = Path(sys.argv[1]), Path(sys.argv[2])
    wanted = set(wanted_list.read_text(encoding="utf-8").splitlines())
    # A constructor or destructor is exported under several mangled names.
    found = set(output_of("c++filt", text_in="\n".join(exported_symbols(library))).splitlines())
    for name in sorted(wanted - found):
        print(f"not exported: {name}")
    for name in sorted(found - wanted):
        print(f"exported, but not in {wanted_list.name}: {name}")
    print(f"{library.name} exports {len(found)} functions, {len(wanted)} are listed")
    return 0 if found == wanted else 1


if __name__ == "__main__":
    sys.exit(main())
