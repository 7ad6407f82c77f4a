# SPDX-License-Identifier: MIT
"""Stereo WAV files of 32-bit float samples at the one rate that the project knows."""

from pathlib import Path

import numpy as np
from scipy.io import wavfile

from .stft import SAMPLE_RATE


def read_wav(path: Path) -> np.ndarray:
    """float32 [2, samples], full scale 1. Integer samples and mono files are converted; other rates are refused."""
    rate, samples = wavfile.read(path)
    if rate != SAMPLE_RATE:
        raise ValueError(f"{path} has {rate} samples per second; {SAMPLE_RATE} are wanted.")
    if samples.dtype.kind == "i":
        samples = samples / np.float32(-np.iinfo(samples.dtype).min)
    elif samples.dtype.kind == "u":
        samples = (samples.astype(np.float32) - 128) / 128
    samples = samples.astype(np.float32)
    if samples.ndim == 1:
        samples = np.stack([samples, samples], axis=1)
    if samples.shape[1] != 2:
        raise ValueError(f"{path} has {samples.shape[1]} channels; mono and stereo are known.")
    return np.ascontiguousarray(samples.T)


def write_wav(path: Path, audio: np.ndarray) -> None:
    """Writes float32 [2, samples]."""
    wavfile.write(path, SAMPLE_RATE, np.ascontiguousarray(audio.T, dtype=np.float32))
