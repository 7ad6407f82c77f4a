#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Reads back from a library that it was built hardened.

usage: check_hardening.py LIBRARY

A DLL must allow random addresses over the whole address space and forbid executing data; an ELF library must have a
read-only table of resolved functions, filled at start, and no executable stack. Both need the stack protector.
"""
import re
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path


def output_of(*command: str | Path) -> str:
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def dll_faults(library: Path) -> Iterator[str]:
    characteristics = re.search(r"^ *Characteristics \[.*?^ *\]", output_of("llvm-readobj", "--file-headers", library)
                                .split("ImageOptionalHeader", 1)[1], re.MULTILINE | re.DOTALL).group(0)
    for flag in ("HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"):
        if flag not in characteristics:
            yield f"{flag} is not set"
    # MinGW's stack protector is linked in, with its message.
    if b"stack smashing detected" not in library.read_bytes():
        yield "there is no stack protector"


def elf_faults(library: Path) -> Iterator[str]:
    headers = output_of("readelf", "--program-headers", "--wide", library)
    if "GNU_RELRO" not in headers:
        yield "the resolved functions' table stays writable"
    stack = re.search(r"GNU_STACK.*", headers)
    if not stack or re.search(r"\bRWE\b", stack.group(0)):
        yield "the stack is executable"
    if "BIND_NOW" not in output_of("readelf", "--dynamic", "--wide", library):
        yield "functions are resolved late"
    if "__stack_chk_fail" not in output_of("nm", "--dynamic", library):
        yield "there is no stack protector"


def main() -> int:
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    library = Path(sys.argv[1])
    faults = list(dll_faults(library) if library.suffix == ".dll" else elf_faults(library))
    for fault in faults:
        print(f"{library.name}: {fault}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
