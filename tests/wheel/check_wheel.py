#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes the wheel and the source distribution of a build, installs them into fresh virtual environments without a
network, and there runs the tests of this folder and the examples of docs/python.md.

usage: check_wheel.py SOURCES BUILD_TREE MODELS WHEELS

MODELS is the folder of the analytic models, WHEELS one of the packages that tonwerk needs.
"""
import os
import re
import subprocess
import sys
import tarfile
import tempfile
import wave
import zipfile
from pathlib import Path

import numpy as np
import shell_blocks

SOURCES, BUILD, MODELS, WHEELS = (Path(argument).absolute() for argument in sys.argv[1:])
HERE = Path(__file__).resolve().parent
BUILDER = SOURCES / ".deps/python/package/bin/python"


def run(*command: str | Path, cwd: Path, **settings: str) -> str:
    """In an environment that has next to nothing."""
    done = subprocess.run([str(part) for part in command], cwd=cwd, env={"PATH": "/usr/bin:/bin", **settings},
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    print(f"$ {' '.join(str(part) for part in command)}\n{done.stdout}", flush=True)
    if done.returncode:
        sys.exit(f"{command[0]} ended with {done.returncode}.")
    return done.stdout


def fresh_environment(folder: Path, *arguments: str) -> Path:
    """Its Python."""
    run("/usr/bin/python3", "-m", "venv", *arguments, folder, cwd=folder.parent)
    return folder / "bin/python"


def install(python: Path, package: str, *arguments: str) -> None:
    run(python, "-m", "pip", "install", "--no-index", "--find-links", WHEELS, "--disable-pip-version-check",
        "--no-cache-dir", *arguments, package, cwd=python.parent, HOME=str(python.parent))


def check_contents(wheel: Path) -> None:
    """Everything the package needs, each text of a licence, and nothing that tells of the machine that made it."""
    with zipfile.ZipFile(wheel) as files:
        names = {name.removeprefix("tonwerk/") for name in files.namelist()}
        for wanted in ("py.typed", "native/libtonwerk_c.so.1", "native/libonnxruntime_pelagrin.so",
                       "native/THIRD-PARTY.md", "native/licenses/onnxruntime-LICENSE.txt"):
            assert wanted in names, (wanted, sorted(names))
        assert any(re.fullmatch(r"native/tonwerk-(standard|small)\.onnx", name) for name in names), sorted(names)
        for name in files.namelist():
            assert str(SOURCES).encode() not in files.read(name), f"{name} names a folder of this machine."


def write_song(path: Path) -> None:
    samples = np.random.default_rng(1).uniform(-0.5, 0.5, (100_001, 2))
    with wave.open(str(path), "wb") as file:
        file.setparams((2, 2, 44100, 0, "NONE", ""))
        file.writeframes((samples * 32767).astype("<i2").tobytes())


def run_document(python: Path, folder: Path) -> None:
    """All examples of the document, as one program."""
    examples = [text for _, language, words, text in shell_blocks.blocks(SOURCES / "docs/python.md")
                if (language, words) == ("python", "run")]
    assert len(examples) > 5, examples
    write_song(folder / "song.wav")
    (folder / "examples.py").write_text("\n".join(examples))
    run(python, "examples.py", cwd=folder, HOME=str(folder))


def check_source_distribution(archive: Path, library: Path, folder: Path) -> None:
    """It becomes a package of pure Python, which uses a library that lies elsewhere."""
    with tarfile.open(archive) as files:
        assert not [name for name in files.getnames() if name.endswith((".so", ".so.1", ".dll", ".onnx"))]
    python = fresh_environment(folder / "source")
    install(python, "hatchling")
    install(python, str(archive), "--no-build-isolation")
    script = "import sys, tonwerk; print(tonwerk.Model(sys.argv[1], provider='cpu'), tonwerk.__version__)"
    shown = run(python, "-c", script, MODELS / "gains.onnx", cwd=folder, TONWERK_LIBRARY=str(library))
    assert re.fullmatch(r"<tonwerk.Model 'gains.onnx', cpu> [\d.]+\n", shown), shown


def main() -> None:
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        made = folder / "made"
        subprocess.run([BUILDER, SOURCES / "tools/make_wheels.py", made, BUILD], check=True)
        wheel, archive = next(made.glob("*.whl")), next(made.glob("*.tar.gz"))
        check_contents(wheel)
        # Debian's matplotlib and PyTorch are seen by the examples; NumPy and all else are the environment's own.
        python = fresh_environment(folder / "fresh", "--system-site-packages")
        install(python, str(wheel), "--ignore-installed")
        work = folder / "Fremde Töne Ω"
        work.mkdir()
        run(python, "-P", "-m", "unittest", "-v", "test_streams", "test_songs", "test_live", cwd=work, HOME=str(work),
            PYTHONPATH=str(HERE), PYTHONDONTWRITEBYTECODE="1", TONWERK_TEST_MODELS=str(MODELS))
        run_document(python, work)
        check_source_distribution(archive, Path(os.environ["TONWERK_BUILT_LIBRARY"]), folder)


if __name__ == "__main__":
    main()
