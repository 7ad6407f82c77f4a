#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs an example program on a model with known answers and checks what it prints.

usage: run_example.py MODELS PROGRAM...      (MODELS is the folder of the analytic models)
"""
import re
import subprocess
import sys
import tempfile
from pathlib import Path

import numpy as np

GAINS = {"vocals": 10 / 32, "drum": 8 / 32, "piano": 4 / 32, "acoustic_guitar": 3 / 32, "electric_guitar": 1 / 32,
         "bass": 6 / 32, "residual": 0, "mix": 1}


def seen_by_program(path: Path, program: list[str]) -> str:
    """Wine shows the whole file system as drive Z."""
    return f"Z:{path}" if program[-1].endswith(".exe") else str(path)


def run(program: list[str], *arguments: Path) -> subprocess.CompletedProcess[str]:
    return subprocess.run([*program, *(seen_by_program(path, program) for path in arguments)], capture_output=True,
                          text=True)


def check(done: subprocess.CompletedProcess[str], frames: int, loudness: float) -> None:
    """The program ran well and printed these frames and the gains' part of this loudness for each stem."""
    printed = dict(re.findall(r"^(\w+) +([0-9.]+) RMS$", done.stdout, re.MULTILINE))
    assert done.returncode == 0, (done.returncode, done.stderr)
    assert re.search(rf"\b{frames} frames$", done.stdout, re.MULTILINE), done.stdout
    assert list(printed) == list(GAINS), done.stdout
    for stem, gain in GAINS.items():
        # The bends at the ends of the stream cost far less than this.
        assert abs(float(printed[stem]) - gain * loudness) < 1e-4, (stem, printed[stem], gain * loudness)


def check_refused(done: subprocess.CompletedProcess[str], sentence: str) -> None:
    assert done.returncode == 1 and sentence in done.stderr, (done.returncode, done.stderr)


def main() -> None:
    models, program = Path(sys.argv[1]), sys.argv[2:]
    gains = models / "gains.onnx"
    # Sines of 0.5 and 0.25.
    check(run(program, gains), 441000, np.sqrt((0.5**2 + 0.25**2) / 4))
    with tempfile.TemporaryDirectory() as folder:
        song = Path(folder) / "song.raw"
        samples = (np.sin(np.arange(2 * 70001) / 9) / 3).astype("<f4")
        samples.tofile(song)
        check(run(program, gains, song), 70001, np.sqrt(np.mean(samples.astype(float)**2)))
        check_refused(run(program, song), "protobuf parsing failed")
        check_refused(run(program, Path(folder) / "missing.onnx"), "missing.onnx cannot be read.")


if __name__ == "__main__":
    main()
