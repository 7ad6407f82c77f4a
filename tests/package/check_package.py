#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes the package of a build, unpacks it into a folder with a difficult name, builds the examples against it and runs
them, all with nothing but the package and the system around.

usage: check_package.py SOURCES BUILD_TREE ARCHIVE_NAME MODELS [RUNNER]

MODELS is the folder of the analytic models; RUNNER runs Windows programs. PYTHONPATH names tools, tests/examples and
tests/docs.
"""
import os
import re
import subprocess
import sys
import tempfile
import wave
from pathlib import Path
from typing import Any

SOURCES, BUILD, ARCHIVE, MODELS = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3], Path(sys.argv[4])
RUNNER = sys.argv[5:]
WINDOWS = ARCHIVE.endswith(".zip")
VERSION = ARCHIVE.split("-")[1]
sys.dont_write_bytecode = True

import make_package  # noqa: E402
import run_example  # noqa: E402
import shell_blocks  # noqa: E402

CROSS = ["-DCMAKE_SYSTEM_NAME=Windows", "-DCMAKE_C_COMPILER=x86_64-w64-mingw32-gcc-posix",
         "-DCMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++-posix"]


def run(*command: Any, **options: Any) -> subprocess.CompletedProcess[str]:
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, **options)
    print(f"$ {' '.join(str(part) for part in command)}\n{done.stdout}{done.stderr}", flush=True)
    return done


def require(condition: object, *facts: object) -> None:
    if not condition:
        sys.exit(" ".join(str(fact) for fact in facts))


def check_same_archive_from_same_files(folder: Path) -> None:
    """Whatever order and dates the files have on disk."""
    archives = []
    for number, names in enumerate((["a", "b"], ["b", "a"])):
        files = folder / f"files{number}"
        files.mkdir()
        for name in names:
            (files / name).write_text(name)
            os.utime(files / name, (number * 1e9, number * 1e9))
        for suffix in make_package.SUFFIXES:
            make_package.pack(files, "same", folder / f"{number}{suffix}")
        archives.append([(folder / f"{number}{suffix}").read_bytes() for suffix in make_package.SUFFIXES])
    require(archives[0] == archives[1], "The same files gave different archives.")


def unpacked(folder: Path) -> Path:
    """The package, in a folder of its own; Python's own unpacker would lose the permissions of programs."""
    archive = folder / ARCHIVE
    require(run(sys.executable, SOURCES / "tools/make_package.py", BUILD, archive).returncode == 0)
    home = folder / "Fremde Töne Ω"
    home.mkdir()
    command = ["unzip", "-q", archive, "-d", home] if WINDOWS else ["tar", "-xf", archive, "-C", home]
    require(run(*command).returncode == 0)
    archive.unlink()
    return next(home.iterdir())


OURS = re.compile(r"(lib)?tonwerk[-_]\w+\.(so(\.1)?|dll)|tonwerk-separate(\.exe)?")


def is_for_this_package(package: Path, row: str) -> bool:
    """Whether a row of the table of licences speaks of what is in here: some files may be left out."""
    files = re.findall(r"`([\w.+-]+\.dll)`", row)
    networks = re.findall(r"`([\w.+-]+\.onnx)`", row)
    if networks and not any((package / "models" / name).exists() for name in networks):
        return False
    if "Linux only" in row and WINDOWS:
        return False
    return "Windows only" not in row or (WINDOWS and (not files or (package / "bin" / files[0]).exists()))


def check_every_binary_has_its_licence(package: Path) -> None:
    """Ours fall under LICENSE; each other one is named by a row of the table that names texts."""
    require("MIT License" in (package / "LICENSE").read_text(), "The package lacks its own licence.")
    require("MIT License" in (package / "models/LICENSE").read_text(), "The default model lacks its licence.")
    rows = re.findall(r"^\|.*\|$", (package / "THIRD-PARTY.md").read_text(), re.MULTILINE)
    binaries = [path.name for path in package.rglob("*")
                if path.is_file() and path.read_bytes().startswith((b"\x7fELF", b"MZ"))]
    require(len(binaries) >= 4, "There are hardly any binaries:", binaries)
    for name in binaries:
        texts = [text for row in rows if f"`{name}`" in row for text in re.findall(r"`([\w.-]+\.txt)`", row)]
        require(OURS.fullmatch(name) or texts, f"THIRD-PARTY.md names no licence text for {name}.")


def check_licences(package: Path) -> None:
    """Each licence of the table is there, and no other; each pinned version is named."""
    table = (package / "THIRD-PARTY.md").read_text()
    named = {name for row in re.findall(r"^\|.*\|$", table, re.MULTILINE)
             if is_for_this_package(package, row) for name in re.findall(r"`([\w.-]+\.txt)`", row)}
    present = {path.name for folder in ("licenses", "bin") for path in (package / folder).glob("*.txt")}
    require(named == present and named, "licences named but missing, or present but not named:", named ^ present)
    fetched = (SOURCES / "tools/fetch-deps.sh").read_text()
    pins = re.findall(r"^(?:trixie|bookworm) +\S+ +(\S+)", fetched, re.MULTILINE)
    require(len(pins) > 5, "The pinned versions cannot be read.")
    for pin in pins:
        version = re.match(r"(?:0\.0~git)?([0-9]+(?:\.[0-9]+\b)*)", pin)[1]
        require(f"| {version} |" in table, f"THIRD-PARTY.md does not name version {version}.")
    sources = re.findall(r"^audio/.*_(\d[\d.]*\d)\S*\.orig\.", fetched, re.MULTILINE)
    require(len(sources) > 5, "The versions of the audio libraries cannot be read.")
    for version in sources:
        require(f"| {version} |" in table, f"THIRD-PARTY.md does not name version {version}.")
    runtime = re.search(r"^onnxruntimePack='onnxruntime-node@([\d.]+)'", fetched, re.MULTILINE)[1]
    require(f"`onnxruntime-directml` {runtime}" in table, f"The runtime's texts are not those of version {runtime}.")


def check_no_path_of_this_machine(package: Path) -> None:
    for path in package.rglob("*"):
        if path.is_file():
            content = path.read_bytes()
            for place in (SOURCES, BUILD):
                require(str(place).encode() not in content, f"{path} names {place}.")


def check_version_resources(package: Path) -> None:
    import pefile
    for name in ("tonwerk_proc_multistem.dll", "tonwerk_c.dll", "tonwerk-separate.exe"):
        image = pefile.PE(str(package / "bin" / name), fast_load=True)
        image.parse_data_directories([pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_RESOURCE"]])
        texts = next(block for block in image.FileInfo[0] if block.Key == b"StringFileInfo").StringTable[0].entries
        numbers = image.VS_FIXEDFILEINFO[0]
        found = (numbers.FileVersionMS >> 16, numbers.FileVersionMS & 0xFFFF, numbers.FileVersionLS >> 16)
        require(found == tuple(map(int, VERSION.split("."))), f"{name} says of itself that it is version {found}.")
        require(texts[b"ProductVersion"].decode() == VERSION, name, texts)
        require(texts[b"OriginalFilename"].decode() == name, name, texts)


def build_examples(package: Path, tree: Path) -> None:
    options = CROSS if WINDOWS else []
    require(run("cmake", "-S", package / "examples", "-B", tree, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                f"-DCMAKE_PREFIX_PATH={package}", *options).returncode == 0)
    require(run("cmake", "--build", tree).returncode == 0)


def check_examples(tree: Path) -> None:
    end = ".exe" if WINDOWS else ""
    for language in ("c", "cpp"):
        program = [*RUNNER, str(tree / f"example_{language}{end}")]
        run_example.check(run_example.run(program, MODELS / "gains.onnx"), 441000, (5 / 64) ** 0.5)


def check_program(package: Path, folder: Path) -> None:
    """The packed program separates a file; where the models and stems lie, too, is a folder of that difficult name."""
    program = [*RUNNER, package / ("bin/tonwerk-separate.exe" if WINDOWS else "bin/tonwerk-separate")]
    require(VERSION in run(*program, "--version").stdout, "The program does not tell its version.")
    with wave.open(str(folder / "song.wav"), "wb") as file:
        file.setparams((2, 2, 44100, 0, "NONE", ""))
        file.writeframes(bytes(range(256)) * 4 * 300)
    drive = "Z:" if WINDOWS else ""
    require(run(*program, f"{drive}{folder}/song.wav", "-o", f"{drive}{folder}/stems", "--model",
                f"{drive}{MODELS}/gains.onnx").returncode == 0)
    require(len(list((folder / "stems/song").glob("*.wav"))) == 8, "There are not eight stems.")


def check_only_on_linux(package: Path, folder: Path) -> None:
    require(run(sys.executable, SOURCES / "tests/examples/run_python_example.py", MODELS,
                package / "examples/python/separate.py", package / "lib/libtonwerk_c.so").returncode == 0)
    refused = run("cmake", "-S", package / "examples", "-B", folder / "refused", "-G", "Ninja",
                  f"-DCMAKE_PREFIX_PATH={package}", "-DCMAKE_SYSTEM_NAME=Windows", "-DCMAKE_C_COMPILER_WORKS=1",
                  "-DCMAKE_CXX_COMPILER_WORKS=1")
    require(refused.returncode != 0 and "for Linux, not for Windows" in re.sub(r"\s+", " ", refused.stderr),
            "The Linux package was taken for a Windows program.")
    for block in shell_blocks.blocks_to_run(package / "README.md"):
        require(run("bash", "-euxc", block, cwd=package, env={**os.environ, "MODEL": str(MODELS / "gains.onnx")})
                .returncode == 0)


def main() -> None:
    kept = {name: os.environ[name] for name in ("HOME", "PATH", "WINEPREFIX") if name in os.environ}
    os.environ.clear()
    os.environ.update(kept, LC_ALL="C.UTF-8")
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        check_same_archive_from_same_files(folder)
        package = unpacked(folder)
        check_licences(package)
        check_every_binary_has_its_licence(package)
        check_no_path_of_this_machine(package)
        if WINDOWS:
            check_version_resources(package)
        build_examples(package, package.parent / "build")
        check_examples(package.parent / "build")
        check_program(package, package.parent)
        if not WINDOWS:
            check_only_on_linux(package, folder)


if __name__ == "__main__":
    main()
