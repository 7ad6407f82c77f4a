# SPDX-License-Identifier: MIT
"""Files out of Debian packages, without installing them."""

import os
import shutil
import subprocess
import tempfile
from pathlib import Path


class Failure(Exception):
    """What went wrong, as one sentence."""


def run(command, **options):
    """Runs a program; if it fails, its last words are the reason."""
    if not shutil.which(command[0]):
        raise Failure(f"{command[0]} is missing (tools/setup.sh installs what each make target needs).")
    result = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace",
                            **options)
    if result.returncode != 0:
        reason = (result.stderr.strip() or result.stdout.strip() or "no reason given").splitlines()[-1]
        raise Failure(f"{command[0]} failed: {reason}")


def download(package, folder):
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


def extract(package, files, target, check=lambda path: None):
    """Leaves the package's files (paths as installed, without the leading slash) under their own names in the folder
    `target`, and its licence as `copyright`. Nothing is done when all are there.

    check: called with each file's path before any is put in place; throws Failure for one that is not as expected.
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
                raise Failure(f"Debian's package {package} no longer has {name}.")
            check(content / name)
        for name in (*files, f"usr/share/doc/{package}/copyright"):
            (content / name).replace(target / Path(name).name)
