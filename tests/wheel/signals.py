# SPDX-License-Identifier: MIT
"""Sounds and models that the tests of the Python package share."""

import os
from pathlib import Path

import numpy as np

MODELS = Path(os.environ["TONWERK_TEST_MODELS"])
GAINS = dict(zip(("vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass"),
                 np.array([10, 8, 4, 3, 1, 6]) / 32))

# The ends of a stream are mirrored, and the bend is heard at half of the sample rate too, which no stem has. An
# exchange of stems, or a frame in the wrong place, is off by 1e-2 and more.
TOLERANCE = 5e-5

# The library computes in single precision, and samples are below 1.
ROUNDING = 2e-6


def noise(frames: int, channels: int = 2, seed: int = 1) -> np.ndarray:
    """{frame, channel}, float32, below full scale; next to nothing at half the sample rate, which no stem has."""
    white = np.random.default_rng(seed).uniform(-0.5, 0.5, (frames + 4, channels))
    return sum(weight * white[shift:shift + frames] for shift, weight in
               enumerate(np.array([1, 4, 6, 4, 1]) / 16)).astype(np.float32)


def tone(frames: int, hertz: float, rate: int) -> np.ndarray:
    """{frame, channel}: a sine at half of full scale."""
    wave = 0.5 * np.sin(2 * np.pi * hertz * np.arange(frames) / rate)
    return np.stack([wave, wave], axis=1).astype(np.float32)
