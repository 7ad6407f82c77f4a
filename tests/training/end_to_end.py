#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""End to end, from nothing to stems, as training/README.md has it, at the smallest size: a few chunks of songs,
twenty steps, a model, a separation. Also that a run that is stopped and resumed ends where an undisturbed one does,
and that one whose checkpoint finds no room keeps the former.

usage: end_to_end.py TRAINING_FOLDER TONWERK_SEPARATE
"""

import resource
import signal
import subprocess
import sys
import tempfile
import time
import wave
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from stream_contract import STEMS

STEPS = 20
CHUNKS = 4
LENGTH = 300_000  # samples: a whole window and a part of one


def run(*command: Any) -> str:
    result = subprocess.run([str(part) for part in command], capture_output=True, text=True, errors="replace")
    print(f"$ {' '.join(str(part) for part in command)}\n{result.stdout}{result.stderr}", flush=True)
    if result.returncode != 0:
        sys.exit(f"{command[0]} ended with {result.returncode}.")
    return result.stdout + result.stderr


def train(training: Path, data: Path, out: Path, *more: str) -> list[str]:
    return [str(part) for part in (training / "train", "--data", data, "--out", out, "--steps", STEPS, "--batch", 2,
                                   "--frames", 64, "--threads", 1, "--device", "cpu", *more)]


def interrupt(command: list[str], folder: Path) -> None:
    """Starts a training run and asks it to stop after its first steps."""
    with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
        while not (folder / "validation.csv").exists():
            if process.poll() is not None:
                sys.exit("train ended before it began.")
            time.sleep(0.02)
        time.sleep(0.5)
        process.send_signal(signal.SIGTERM)
    if process.returncode != 0:
        sys.exit(f"train ended with {process.returncode} when asked to stop.")


def check_resume(whole: Path, resumed: Path, steps_before: int) -> None:
    """Both checkpoints must be the same run: weights, averages, the optimizer's state."""
    import torch
    first, second = (torch.load(folder / "checkpoint.pt") for folder in (whole, resumed))
    if not 0 < steps_before < STEPS:
        sys.exit(f"The run was interrupted after step {steps_before} of {STEPS}, which shows nothing.")
    for part in ("weights", "average"):
        for name, value in first[part].items():
            if not torch.equal(value, second[part][name]):
                sys.exit(f"{name} of the resumed run's {part} differs from the undisturbed run's.")


def steps_of(folder: Path) -> int:
    import torch
    return torch.load(folder / "checkpoint.pt")["sampler"]["step"]


def write_song(path: Path) -> np.ndarray:
    """Chords with an onset twice a second, in 16 bits."""
    time_axis = np.arange(LENGTH) / 44100
    decay = np.exp(-6 * (time_axis % 0.5))
    tones = np.sum([np.sin(2 * np.pi * frequency * time_axis) for frequency in (55, 220, 277, 330, 880)], axis=0)
    signal_ = 0.1 * decay * tones + 0.05 * decay ** 4 * np.random.default_rng(1).standard_normal(LENGTH)
    samples = np.stack([signal_, 0.7 * signal_], axis=1)
    with wave.open(str(path), "wb") as file:
        file.setparams((2, 2, 44100, 0, "NONE", ""))
        pcm = (np.clip(samples, -1, 1) * 32767).astype(np.int16)
        file.writeframes(pcm.tobytes())
    return pcm.astype(np.float32) / 32768


def read_stem(path: Path) -> np.ndarray:
    """The samples of a WAV file of 32-bit floats, which the wave module refuses."""
    data = path.read_bytes()
    place = data.index(b"data") + 8
    return np.frombuffer(data, np.float32, LENGTH * 2, place).reshape(LENGTH, 2)


def check_stems(folder: Path, song: np.ndarray) -> None:
    stems = {stem: read_stem(folder / f"{stem}.wav") for stem in (*STEMS, "residual")}
    for stem, samples in stems.items():
        if not np.isfinite(samples).all() or not samples.any():
            sys.exit(f"{stem} is silent or has NaN.")
    error = np.abs(sum(stems.values()) - song).max()
    if not error < 1e-5:
        sys.exit(f"The stems and the residual miss the song by {error}.")
    loudest = max(np.square(samples).sum() for samples in stems.values())
    if loudest > np.square(song).sum():
        sys.exit("A stem is louder than the song.")


def check_full_disk(command: list[str], folder: Path) -> None:
    """Without room for a checkpoint, here by a limit of 1 MB for a file, training says so and the former one stays."""
    before = (folder / "checkpoint.pt").read_bytes()
    result = subprocess.run(command, capture_output=True, text=True, errors="replace",
                            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 20, 1 << 20)))
    if result.returncode != 1 or "The checkpoint cannot be written" not in result.stderr:
        sys.exit(f"train ended with {result.returncode} on a full disk: {result.stderr}")
    if (folder / "checkpoint.pt").read_bytes() != before or list(folder.glob("*.part")):
        sys.exit("A checkpoint that found no room has changed the former one, or left a part of itself.")


def check_background(training: Path, command: list[str], folder: Path) -> None:
    """The exported model begins another run, which the script holds, lets go on and stops with a checkpoint."""
    background = training / "background"
    without_out = [part for place, part in enumerate(command[1:], 1) if "--out" not in command[place - 1:place + 1]]
    run(background, "start", folder, *without_out, "--steps", 100000)
    wait_for(lambda: (folder / "validation.csv").exists())
    run(background, "pause", folder)
    if "paused" not in run(background, "status", folder):
        sys.exit("A run that was told to pause goes on.")
    run(background, "resume", folder)
    if "running" not in run(background, "status", folder):
        sys.exit("A run that was told to resume does not go on.")
    run(background, "stop", folder)
    if "not running" not in run(background, "status", folder) or not (folder / "checkpoint.pt").exists():
        sys.exit("A run that was stopped left no checkpoint.")


def wait_for(condition: Callable[[], bool]) -> None:
    for _ in range(2400):
        if condition():
            return
        time.sleep(0.05)
    sys.exit("The training in the background does not move.")


def main() -> None:
    training, separate = Path(sys.argv[1]), sys.argv[2]
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        run(training / "make-data", "--out", folder / "data", "--chunks", CHUNKS, "--ordinary", 2, "--workers", 1,
            "--seed", 5, "--material", folder / "material", "--voice-seconds", 10, "--without-notes")
        run(*train(training, folder / "data", folder / "whole"))
        interrupt(train(training, folder / "data", folder / "resumed"), folder / "resumed")
        steps_before = steps_of(folder / "resumed")
        run(*train(training, folder / "data", folder / "resumed", "--resume"))
        check_resume(folder / "whole", folder / "resumed", steps_before)
        check_full_disk(train(training, folder / "data", folder / "resumed", "--resume"), folder / "resumed")
        run(training / "export", "--checkpoint", folder / "whole/checkpoint.pt", "--out", folder / "model.onnx")
        check_background(training, train(training, folder / "data", folder / "more", "--start",
                                         str(folder / "model.onnx")), folder / "more")
        run(training / "adapt", folder / "model.onnx", "--data", folder / "data", "--out", folder / "adapted.pt",
            "--epochs", 1)
        run(training / "export", "--checkpoint", folder / "adapted.pt", "--out", folder / "model.onnx")
        song = write_song(folder / "song.wav")
        log = run(separate, folder / "song.wav", "-o", folder / "stems", "--model", folder / "model.onnx")
        if "Exception" in log:
            sys.exit("The library could not run the model.")
        check_stems(folder / "stems/song", song)


if __name__ == "__main__":
    main()
