# SPDX-License-Identifier: MIT
"""The version of the package: that of the whole project, or, in a source distribution, what is written there."""

import re
from pathlib import Path

_HOME = Path(__file__).parent
_PLACES = [(_HOME.parent / "CMakeLists.txt", r"^project\(tonwerk VERSION ([\d.]+)"),
           (_HOME / "PKG-INFO", r"^Version: (\S+)")]


def read_version() -> str:
    """The first version that is found."""
    for path, pattern in _PLACES:
        found = re.search(pattern, path.read_text(encoding="utf-8"), re.MULTILINE) if path.exists() else None
        if found:
            return found[1]
    raise RuntimeError("Neither CMakeLists.txt nor PKG-INFO tells the version.")


__version__ = read_version()
