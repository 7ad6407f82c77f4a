# SPDX-License-Identifier: MIT
"""Real multitrack recordings: TRACK/{vocals,drum,piano,acoustic_guitar,electric_guitar,bass,other}.wav, any subset."""

from math import gcd
from pathlib import Path

import numpy as np
import scipy.io.wavfile
import scipy.signal

from .chunkstore import SOURCES
from .stft import SAMPLE_RATE


def find_tracks(folder: Path) -> list[Path]:
    """The folders below `folder` that hold at least one stem, in order of their names."""
    if not folder.is_dir():
        raise ValueError(f"{folder} is no folder.")
    tracks = sorted(path for path in folder.iterdir() if any((path / f"{stem}.wav").exists() for stem in SOURCES))
    if not tracks:
        raise ValueError(f"No folder in {folder} holds a WAV file named after a stem ({', '.join(SOURCES)}).")
    return tracks


def _open(path: Path) -> tuple[int, np.ndarray]:
    """(sample rate, samples [frames, channels] as stored) of a WAV file, mapped where its format allows."""
    try:
        rate, audio = scipy.io.wavfile.read(path, mmap=True)
    except ValueError:  # 24 bits and the like cannot be mapped
        try:
            rate, audio = scipy.io.wavfile.read(path)
        except ValueError as problem:
            raise ValueError(f"{path} cannot be read as a WAV file: {problem}") from problem
    return rate, audio if audio.ndim == 2 else audio[:, None]


def _convert(audio: np.ndarray, rate: int, samples: int) -> np.ndarray:
    """Stored samples [frames, channels] as float32 [2, samples] at 44.1 kHz, full scale 1."""
    kind, whole = audio.dtype.kind, np.iinfo(audio.dtype).max if audio.dtype.kind in "iu" else 1
    audio = np.asarray(audio, np.float32).T
    audio = (audio - 128) / 128 if kind == "u" else audio / np.float32(whole)
    if rate != SAMPLE_RATE and audio.shape[1]:
        common = gcd(rate, SAMPLE_RATE)
        audio = scipy.signal.resample_poly(audio, SAMPLE_RATE // common, rate // common, axis=1).astype(np.float32)
    audio = np.pad(audio[:, :samples], ((0, 0), (0, max(0, samples - audio.shape[1]))))
    return np.ascontiguousarray(audio[[0, -1]] if len(audio) == 1 else audio[:2])


def excerpt(track: Path, samples: int, rng: np.random.Generator) -> dict[str, np.ndarray]:
    """A random stretch of a track: float32 [2, samples] by name, of the stems that sound in it."""
    opened = {stem: _open(track / f"{stem}.wav") for stem in SOURCES if (track / f"{stem}.wav").exists()}
    length = samples / SAMPLE_RATE
    longest = max(len(audio) / rate for rate, audio in opened.values())
    begin = rng.uniform(0, max(0.0, longest - length))
    stems = {}
    for stem, (rate, audio) in opened.items():
        first = int(begin * rate)
        piece = _convert(audio[first:first + int(np.ceil(length * rate)) + 1], rate, samples)
        if np.abs(piece).max() > 1e-4:
            stems[stem] = piece
    return stems
