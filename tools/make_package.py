#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Installs a built tree and packs it: the same files give the same archive, byte for byte.

usage: make_package.py BUILD_TREE ARCHIVE      (ARCHIVE ends in .zip or .tar.gz)

All files bear one date: SOURCE_DATE_EPOCH, or the first of January 1980, the earliest that a ZIP can hold.
"""
import gzip
import os
import subprocess
import sys
import tarfile
import tempfile
import time
import zipfile
from pathlib import Path

EARLIEST = 315532800
SUFFIXES = (".tar.gz", ".zip")


def date() -> int:
    return max(EARLIEST, int(os.environ.get("SOURCE_DATE_EPOCH", EARLIEST)))


def is_program(path: Path) -> bool:
    return bool(path.stat().st_mode & 0o100)


def pack_zip(members: list[tuple[str, Path]], archive: Path) -> None:
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED, compresslevel=6) as target:
        for name, path in members:
            entry = zipfile.ZipInfo(name, time.gmtime(date())[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.create_system = 3  # with Unix's permissions
            entry.external_attr = (0o100755 if is_program(path) else 0o100644) << 16
            target.writestr(entry, path.read_bytes())


def pack_tar(members: list[tuple[str, Path]], archive: Path) -> None:
    def plain(entry: tarfile.TarInfo, path: Path) -> tarfile.TarInfo:
        entry.uid = entry.gid = 0
        entry.uname = entry.gname = ""
        entry.mtime = date()
        entry.mode = 0o755 if is_program(path) else 0o644
        return entry

    with open(archive, "wb") as file, \
            gzip.GzipFile("", "wb", 6, file, mtime=date()) as packed, \
            tarfile.open(fileobj=packed, mode="w", format=tarfile.PAX_FORMAT) as target:
        for name, path in members:
            with open(path, "rb") as content:
                target.addfile(plain(target.gettarinfo(path, name), path), content)


def pack(folder: Path, name: str, archive: Path) -> None:
    """Packs a folder's files, sorted, under a folder `name` of the archive."""
    members = sorted((f"{name}/{path.relative_to(folder).as_posix()}", path)
                     for path in folder.rglob("*") if path.is_file())
    partial = archive.with_name(archive.name + ".part")
    (pack_zip if archive.name.endswith(".zip") else pack_tar)(members, partial)
    partial.replace(archive)


def main() -> None:
    if len(sys.argv) != 3 or not sys.argv[2].endswith(SUFFIXES):
        sys.exit(__doc__)
    build, archive = map(Path, sys.argv[1:])
    archive.parent.mkdir(parents=True, exist_ok=True)
    name = next(archive.name[:-len(suffix)] for suffix in SUFFIXES if archive.name.endswith(suffix))
    with tempfile.TemporaryDirectory(dir=archive.parent) as folder:
        subprocess.run(["cmake", "--install", build, "--prefix", folder], stdout=subprocess.DEVNULL, check=True)
        if not (Path(folder) / "models").exists():
            print("There is no default model in models/ yet, so the package has none.")
        pack(Path(folder), name, archive)
    print(f"{archive} ({archive.stat().st_size / 1e6:.1f} MB)")


if __name__ == "__main__":
    main()
