#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Compares the library's eight results with the offline reference, sample by sample, on the analytic models.

usage: compare_with_library.py [--seed N] MODELS HOST...

MODELS is the folder that make_analytic_models.py wrote, HOST the command that runs tonwerk-separate.
"""

import argparse
import struct
import subprocess
import sys
import tempfile
from collections.abc import Iterator
from pathlib import Path

import numpy as np
import offline_reference
from offline_reference import ORDINARY
from stream_contract import STEMS

# The library computes in single precision: spectra of up to a few hundred, each rounded to 2^-24 of its size, pass
# two transforms of 12 stages. Over many lengths that came to at most 3e-7. A frame answered from the wrong row of
# its segment, one frame off, is wrong by 1e-3 and more.
ROUNDING = 2e-6

# The far side lobes of the window carry 2e-6 of the two lowest tones into each other's bands. A tone in a wrong
# stem is off by its whole level.
TONE_LEVEL = 0.1
LEAKAGE = 1e-5

CASES = [
    ("frame_mask", 700_000),  # three chunks
    ("neighbours", 700_000),
    ("gains", 1),
    ("neighbours", 4097),
    ("bin_mask", 50_000),
    ("neighbours", ORDINARY.first_block + 1),  # a last block of one sample
    ("frame_mask", ORDINARY.first_block + ORDINARY.next_block - 1),  # the longest last block
]

# Hz; in the middle of each stem's band, the last one above them all.
TONES = {"vocals": 1732, "drum": 10583, "piano": 632, "acoustic_guitar": 4583, "electric_guitar": 219, "bass": 60,
         "residual": 20000}


def noise_with_impulses(length: int, seed: int) -> np.ndarray:
    signal = 0.2 * np.random.default_rng(seed).standard_normal((2, length))
    signal[0, ::50_021] = 0.9
    signal[1, ::60_013] = -0.9
    return signal.astype(np.float32)


def stream(host: list[str], model: Path, signal: np.ndarray) -> dict[str, np.ndarray]:
    """The library's results as {name: {channel, sample}}."""
    samples = signal.T.astype("<f4").tobytes()
    header = struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(samples), b"WAVE", b"fmt ", 16, 3, 2, 44100, 8 * 44100,
                         8, 32, b"data", len(samples))
    with tempfile.TemporaryDirectory() as folder:
        (Path(folder) / "song.wav").write_bytes(header + samples)
        run = subprocess.run([*host, "song.wav", "-o", ".", "--model", model.resolve(), "--quality", "normal"],
                             cwd=folder, capture_output=True, text=True, errors="replace")
        if run.returncode != 0:
            sys.exit(f"{host[-1]} ended with {run.returncode} on {model}:\n{run.stdout}{run.stderr}")
        names = (*STEMS, "residual", "mix")
        return {name: samples_of(Path(folder) / f"song/{name}.wav") for name in names}


def samples_of(path: Path) -> np.ndarray:
    """The samples {channel, frame} of a WAV file of 32-bit floats, whatever chunks stand before them."""
    content = path.read_bytes()
    place = 12
    while content[place:place + 4] != b"data":
        place += 8 + struct.unpack_from("<I", content, place + 4)[0]
    size = struct.unpack_from("<I", content, place + 4)[0]
    return np.frombuffer(content, "<f4", size // 4, place + 8).reshape(-1, 2).T


def differences(case: str, results: dict[str, np.ndarray], expected: dict[str, np.ndarray],
                tolerance: float) -> Iterator[str]:
    """One sentence for every result that is off."""
    for name, wanted in expected.items():
        if results[name].shape != wanted.shape:
            yield f"{case}: {name} has {results[name].shape[1]} frames instead of {wanted.shape[1]}"
            continue
        error = np.abs(results[name] - wanted).max(axis=0)
        if not error.max() <= tolerance:
            first = np.flatnonzero(~(error <= tolerance))[0]
            yield (f"{case}: {name} is off by up to {error.max():.1e} (tolerance {tolerance:.0e}), "
                   f"first at frame {first}")


def compare_with_reference(host: list[str], models: Path, seed: int) -> Iterator[str]:
    for kind, length in CASES:
        signal = noise_with_impulses(length, seed)
        expected = offline_reference.separate(signal.astype(float), kind)
        results = stream(host, models / f"{kind}.onnx", signal)
        yield from differences(f"{kind}, {length} frames, seed {seed}", results, expected, ROUNDING)


def split_tones(host: list[str], models: Path) -> Iterator[str]:
    """The band-splitting model gives every tone to its stem. The stream's ends are left out: the mirror image
    there breaks a tone's phase, and the break is heard in all bands."""
    time = np.arange(60_000) / 44_100
    tones = {name: np.tile(TONE_LEVEL * np.sin(2 * np.pi * hertz * time), (2, 1)) for name, hertz in TONES.items()}
    results = stream(host, models / "band_split.onnx", np.sum(list(tones.values()), axis=0))
    inner = slice(8192, -8192)
    return differences("band_split, a tone per stem", {name: audio[:, inner] for name, audio in results.items()},
                       {name: audio[:, inner] for name, audio in tones.items()}, LEAKAGE)


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("models", type=Path)
    parser.add_argument("host", nargs="+")
    options = parser.parse_args()
    host = [*options.host[:-1], Path(options.host[-1]).resolve()]
    problems = [*compare_with_reference(host, options.models, options.seed), *split_tones(host, options.models)]
    for problem in problems:
        print(problem)
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
