#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes the Python package's wheels and source distribution.

usage: make_wheels.py FOLDER BUILD_TREE...

For each configured and built tree, for Linux or Windows, a wheel with its native files; and one source distribution.
Run by a Python that has hatchling and auditwheel: .deps/python/package/bin/python.
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

PACKAGE = Path(__file__).resolve().parents[1] / "python"

# What the Linux libraries ask for at most: glibc 2.34, and the libstdc++ of GCC 12, which came with Ubuntu 22.04.
PLATFORMS = {"linux": "manylinux_2_35_x86_64", "windows": "win_amd64"}
LIBRARIES = {"linux": ["lib/libtonwerk_c.so.1", "lib/libonnxruntime_pelagrin.so"],
             "windows": ["bin/tonwerk_c.dll", "bin/onnxruntime_pelagrin.dll", "bin/DirectML.dll",
                         "bin/DirectML-LICENSE.txt", "bin/DirectML-ThirdPartyNotices.txt"]}
OPTIONAL = re.compile(r"bin/DirectML")
MODELS = ("tonwerk-standard.onnx", "tonwerk-live.onnx", "tonwerk-small.onnx")


def run(*command: str | Path, **settings: str) -> str:
    done = subprocess.run([str(part) for part in command], env={**os.environ, **settings}, cwd=PACKAGE,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode:
        sys.exit(f"{done.stdout}\n{command[0]} failed (its output stands above).")
    return done.stdout


def hatchling(kind: str, folder: Path, **settings: str) -> Path:
    """The one new file in the folder."""
    before = set(folder.iterdir())
    run(sys.executable, "-m", "hatchling", "build", "-t", kind, "-d", folder, **settings)
    return (set(folder.iterdir()) - before).pop()


def system_of(installed: Path) -> str:
    return "windows" if (installed / "bin/tonwerk_c.dll").exists() else "linux"


def native_files(installed: Path, target: Path) -> None:
    """Copies what the package needs of an installed tree."""
    target.mkdir()
    for name in LIBRARIES[system_of(installed)]:
        if (installed / name).exists() or not OPTIONAL.match(name):
            shutil.copy(installed / name, target)
    models = [installed / "models" / name for name in MODELS if (installed / "models" / name).exists()]
    if not models:
        sys.exit("There is no default model, so there can be no wheel.")
    # The small one stands in for the standard one where that was not made.
    for model in models[:2] if len(models) > 1 else models:
        shutil.copy(model, target)
    shutil.copy(installed / "THIRD-PARTY.md", target)
    shutil.copytree(installed / "licenses", target / "licenses")


def check_tag(wheel: Path) -> None:
    """Holds a Linux wheel's tag against the symbols that its libraries ask for."""
    shown = run(sys.executable, "-m", "auditwheel", "show", wheel)
    if f'"{PLATFORMS["linux"]}"' not in shown.replace("\n", " "):
        sys.exit(f"{shown}\n{wheel.name} claims another platform than auditwheel finds.")


def make_wheel(build: Path, folder: Path) -> Path:
    with tempfile.TemporaryDirectory() as name:
        installed, native = Path(name) / "installed", Path(name) / "native"
        subprocess.run(["cmake", "--install", build, "--prefix", installed], stdout=subprocess.DEVNULL, check=True)
        native_files(installed, native)
        system = system_of(installed)
        wheel = hatchling("wheel", folder, TONWERK_WHEEL_FILES=str(native), TONWERK_WHEEL_PLATFORM=PLATFORMS[system])
    if system == "linux":
        check_tag(wheel)
    return wheel


def main() -> None:
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    folder, *builds = (Path(argument).absolute() for argument in sys.argv[1:])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for made in [hatchling("sdist", folder), *(make_wheel(build, folder) for build in builds)]:
        print(f"{made} ({made.stat().st_size / 1e6:.1f} MB)")


if __name__ == "__main__":
    main()
