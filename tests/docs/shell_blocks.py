# SPDX-License-Identifier: MIT
"""The shell commands that the documents show.

A fenced block of a document is one of

    ```sh run                        run by the tests, in the order of the document
    ```sh not-run: <the reason>      not run by them, and why
    ```<language> file=<name>        a file that the document's commands use
"""
import re
from collections.abc import Iterator
from pathlib import Path

FENCE = re.compile(r"^( *)```(\S*)[ \t]*(.*?)[ \t]*$")
SHELLS = ("sh", "bash", "shell", "console")


class UnmarkedError(Exception):
    """A block of commands that is neither to be run nor excused."""


def blocks(path: Path) -> Iterator[tuple[int, str, str, str]]:
    """All fenced blocks: (line, language, words after it, text)."""
    opened: tuple[int, str, str, list[str], int] | None = None  # the last: how far it is indented
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        fence = FENCE.match(line)
        if opened is None and fence:
            opened = (number, fence[2], fence[3], [], len(fence[1]))
        elif opened and fence and not fence[2]:
            yield (*opened[:3], "\n".join(opened[3]) + "\n")
            opened = None
        elif opened:
            opened[3].append(line[opened[4]:])
    if opened:
        raise UnmarkedError(f"{path}:{opened[0]}: this block has no end.")


def blocks_to_run(path: Path) -> list[str]:
    """The texts of the blocks marked to be run.

    Raises UnmarkedError for a shell block without a mark, and for one that is excused without a reason.
    """
    chosen = []
    for line, language, words, text in blocks(path):
        if language not in SHELLS:
            continue
        if words == "run":
            chosen.append(text)
        elif not re.fullmatch(r"not-run: .*\w.*", words):
            raise UnmarkedError(f"{path}:{line}: mark this block 'sh run', or 'sh not-run: REASON'.")
    return chosen


def named_files(path: Path) -> list[tuple[str, str]]:
    """(name, text) of each block that is a file."""
    return [(words.removeprefix("file="), text) for _, _, words, text in blocks(path) if words.startswith("file=")]
