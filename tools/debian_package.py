#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Files out of Debian packages, without installing them.

usage: debian_package.py PACKAGE FOLDER FILE...      (FILEs as installed, without the leading slash)
"""

import os
import shutil
import subprocess
import sys
import tempfile
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any


class PackageError(Exception):
    """What went wrong, as one sentence."""


def run(command: Sequence[str | Path], **options: Any) -> None:
    """Runs a program; if it fails, its last words are the reason."""
    if not shutil.which(str(command[0])):
        raise PackageError(f"{command[0]} is missing (tools/setup.sh installs what each make target needs).")
    result = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace",
                            check=False, **options)
    if result.returncode != 0:
        reason = (result.stderr.strip() or result.stdout.strip() or "no reason given").splitlines()[-1]
        raise PackageError(f"{command[0]} failed: {reason}")


def download(package: str, folder: Path) -> Path:
    """Leaves the .deb in the folder. The package lists are read into the folder too, so this works without root
    and whatever lists the machine holds; the mirror and the keys are the machine's own."""
    (folder / "lists" / "partial").mkdir(parents=True)
    (folder / "cache" / "archives" / "partial").mkdir(parents=True)
    settings = folder / "apt.conf"
    settings.write_text(f'Dir::State::lists "{folder}/lists";\n'
                        f'Dir::Cache "{folder}/cache";\n'
                        f'Acquire::Languages "none";\n'
                        f'Acquire::Retries "3";\n'
                        f'APT::Sandbox::User "#{os.getuid()}";\n'
                        "#clear APT::Update::Pre-Invoke;\n"
                        "#clear APT::Update::Post-Invoke;\n"
                        "#clear APT::Update::Post-Invoke-Success;\n")
    run(["apt-get", "-c", settings, "-q", "update"])
    run(["apt-get", "-c", settings, "-q", "download", package], cwd=folder)
    return next(folder.glob("*.deb"))


def extract(package: str, files: Sequence[str], target: Path,
            check: Callable[[Path], None] = lambda path: None) -> None:
    """Leaves the package's files (paths as installed, without the leading slash) under their own names in the folder
    `target`, and its licence as `copyright`. Nothing is done when all are there.

    check: called with each file's path before any is put in place; throws PackageError for one that is not as expected.
    """
    target.mkdir(parents=True, exist_ok=True)
    names = [Path(name).name for name in files]
    if all((target / name).is_file() for name in (*names, "copyright")):
        return
    with tempfile.TemporaryDirectory(dir=target) as work:
        archive = download(package, Path(work))
        content = Path(work) / "content"
        run(["dpkg-deb", "-x", archive, content])
        for name in files:
            if not (content / name).is_file():
                raise PackageError(f"Debian's package {package} no longer has {name}.")
            check(content / name)
        for name in (*files, f"usr/share/doc/{package}/copyright"):
            (content / name).replace(target / Path(name).name)


def main() -> None:
    """Does what the command line says; what goes wrong ends in one sentence."""
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    try:
        extract(sys.argv[1], sys.argv[3:], Path(sys.argv[2]))
    except PackageError as failure:
        sys.exit(f"debian_package.py: {failure}")


if __name__ == "__main__":
    main()
