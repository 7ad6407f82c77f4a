#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes the Windows wheel of a build, unpacks it, and lets a C host use the DLLs that it brings.

usage: check_windows_wheel.py SOURCES BUILD_TREE HOST.exe MODELS [RUNNER]

HOST.exe is the example in C, MODELS the folder of the analytic models, RUNNER what runs Windows programs. There is no
Python for Windows here, so the package's own Python is tested with the Linux wheel alone.
"""
import shutil
import subprocess
import sys
import tempfile
import zipfile
from pathlib import Path

SOURCES, BUILD, HOST = (Path(argument).absolute() for argument in sys.argv[1:4])
MODELS, RUNNER = sys.argv[4], sys.argv[5:]
BUILDER = SOURCES / ".deps/python/package/bin/python"


def main() -> None:
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        subprocess.run([BUILDER, SOURCES / "tools/make_wheels.py", folder / "made", BUILD], check=True)
        wheel = next((folder / "made").glob("*.whl"))
        assert wheel.name.endswith("-py3-none-win_amd64.whl"), wheel.name
        with zipfile.ZipFile(wheel) as files:
            files.extractall(folder / "unpacked")
            tags = files.read(next(entry for entry in files.namelist() if entry.endswith("/WHEEL"))).decode()
        assert "Root-Is-Purelib: false" in tags and "Tag: py3-none-win_amd64" in tags, tags
        native = folder / "unpacked/tonwerk/native"
        for wanted in ("THIRD-PARTY.md", "licenses/onnxruntime-LICENSE.txt"):
            assert (native / wanted).exists(), wanted
        # DLLs are looked for beside the program first.
        host = shutil.copy(HOST, native)
        subprocess.run([sys.executable, SOURCES / "tests/examples/run_example.py", MODELS, *RUNNER, host], check=True)


if __name__ == "__main__":
    main()
