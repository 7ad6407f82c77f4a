#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that each tag of a doc comment begins a line of its own, where a reader and a formatter see it.

usage: check_comments.py ROOT
"""
import re
import sys
from pathlib import Path

FOLDERS = ("include", "src", "apps", "plugins", "tests", "bench", "examples")
RUN_ON = re.compile(r"^\s*(?:///|\*).*\S.*\s\\(?:param|return|retval|throws|file|code|endcode)\b")


def main(root: Path) -> int:
    """Prints each place where a tag stands behind other words; returns how many there are."""
    sources = [path for folder in FOLDERS for path in sorted((root / folder).rglob("*"))
               if path.suffix in (".h", ".cpp", ".c")]
    if not sources:
        sys.exit(f"{root} holds no sources")
    places = [f"{path.relative_to(root)}:{number}: {line.strip()}" for path in sources
              for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1) if RUN_ON.match(line)]
    print("\n".join(places))
    return len(places)


if __name__ == "__main__":
    sys.exit(1 if main(Path(sys.argv[1])) else 0)
