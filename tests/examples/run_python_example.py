#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Separates a file with the Python example, on a model with known answers, and checks the stems.

usage: run_python_example.py MODELS EXAMPLE LIBRARY
"""
import subprocess
import sys
import tempfile
import wave
from pathlib import Path

import numpy as np
from run_example import GAINS

LENGTH = 300001


def read(path: Path) -> np.ndarray:
    with wave.open(str(path)) as file:
        assert file.getframerate() == 44100 and file.getnchannels() == 2, file.getparams()
        return np.frombuffer(file.readframes(file.getnframes()), dtype="<i2").reshape(-1, 2).astype(int)


def main() -> None:
    models, example, library = sys.argv[1:]
    phase = np.arange(LENGTH) / 44100 * 2 * np.pi
    song = np.stack([12000 * np.sin(440 * phase), 9000 * np.sin(660 * phase)], axis=1).astype("<i2")
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        with wave.open(str(folder / "song.wav"), "wb") as file:
            file.setparams((2, 2, 44100, LENGTH, "NONE", ""))
            file.writeframes(song.tobytes())
        command: list[str | Path]
        command = [sys.executable, example, library, Path(models) / "gains.onnx", folder / "song.wav", folder / "stems"]
        subprocess.run(command, check=True)
        for stem, gain in GAINS.items():
            samples = read(folder / "stems" / f"{stem}.wav")
            assert samples.shape == song.shape, (stem, samples.shape)
            # Rounding to whole numbers, and 1 part in 4,096 that the bends at the ends of the stream cost.
            difference = np.max(np.abs(samples - gain * song))
            assert difference <= 1 + 12000 / 4096, (stem, difference)
        subprocess.run([*command, "live"], check=True)
        assert np.max(np.abs(read(folder / "stems/vocals.wav") - GAINS["vocals"] * song)) <= 1 + 12000 / 4096
        refused = subprocess.run([*command[:3], folder / "song.wav", *command[4:]], capture_output=True, text=True)
        assert refused.returncode == 1 and "The model cannot be loaded." in refused.stderr, refused


if __name__ == "__main__":
    main()
