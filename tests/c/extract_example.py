#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes the example in a header's first comment as a source file of its own.

usage: extract_example.py HEADER TARGET
"""
import re
import sys
from pathlib import Path


def main() -> None:
    header, target = map(Path, sys.argv[1:])
    found = re.search(r"^ \* \\code\n(.*?)^ \* \\endcode$", header.read_text(), re.DOTALL | re.MULTILINE)
    if not found:
        sys.exit(f"{header} has no example.")
    target.write_text(re.sub(r"^ \* ?", "", found[1], flags=re.MULTILINE))


if __name__ == "__main__":
    main()
