# SPDX-License-Identifier: MIT
"""A sound to measure models with, and what models make of it."""

import wave
from pathlib import Path

import numpy as np
from numpy.typing import NDArray
from onnx import ModelProto

from . import contract
from .errors import ConversionError
from .session import Session

LENGTH = (contract.FRAMES - 1) * contract.HOP + contract.FFT_SIZE
TEMPO = 2.2  # beats per second

Sound = NDArray[np.float64]  # [channels, samples]
Spectrum = NDArray[np.float32]  # of the interface's shape


def spectrum(song: Path | None = None) -> Spectrum:
    """The spectrum of the middle of a song, or of a sound made here: a voice with vibrato, bass, drums and chords."""
    sound = _synthetic() if song is None else _middle(_read(song))
    window = 0.42 - 0.5 * np.cos(_angles(contract.FFT_SIZE)) + 0.08 * np.cos(2 * _angles(contract.FFT_SIZE))
    starts = contract.HOP * np.arange(contract.FRAMES)[:, None]
    bins = np.fft.rfft(sound[:, starts + np.arange(contract.FFT_SIZE)] * window)[..., :contract.BINS]
    return np.stack([bins.real, bins.imag], axis=1).reshape(contract.SHAPE).astype(np.float32)


def stems_of(model: ModelProto, given: Spectrum) -> dict[str, Spectrum]:
    """The six stems' spectra."""
    session = Session(model)
    results = session.run(**{contract.INPUT: given})
    session.close()
    return {stem: results[f"{stem}_output"] for stem in contract.STEMS}


def decibels(expected: Spectrum, result: Spectrum) -> float:
    """How far the error is below what is expected."""
    error = np.square((result - expected).astype(np.float64)).sum()
    return float(10 * np.log10(np.square(expected.astype(np.float64)).sum() / max(error, 1e-300)))


def _angles(length: int) -> NDArray[np.float64]:
    return 2 * np.pi * np.arange(length) / length


def _synthetic() -> Sound:
    time = np.arange(LENGTH) / contract.SAMPLE_RATE
    random = np.random.default_rng(1)
    beat = time * TEMPO % 1
    voice_phase = 2 * np.pi * np.cumsum(220 * 2 ** (np.floor(time) % 5 / 6 + 0.02 * np.sin(35 * time))) \
        / contract.SAMPLE_RATE
    voice = sum(np.sin(k * voice_phase) * np.exp(-((k * 220 - 900) / 900) ** 2) for k in range(1, 16))
    bass = sum(np.sin(2 * np.pi * 55 * k * time) / k for k in range(1, 5)) * np.exp(-2 * beat)
    chords = sum(np.sin(2 * np.pi * pitch * k * time) / k**2 for pitch in (262, 330, 392) for k in range(1, 6))
    drums = random.standard_normal((2, LENGTH)) * np.exp(-30 * beat)
    middle = 0.1 * voice * (np.sin(2 * time) > -0.5) + 0.15 * bass
    return np.stack([middle + 0.04 * chords, middle + 0.02 * chords]) + 0.1 * drums


def _read(path: Path) -> Sound:
    try:
        with wave.open(str(path), "rb") as file:
            if file.getnchannels() != contract.CHANNELS or file.getsampwidth() != 2:
                raise ConversionError(f"{path} is not stereo with 16 bits.")
            samples = np.frombuffer(file.readframes(file.getnframes()), "<i2")
    except (OSError, EOFError, wave.Error) as failure:
        raise ConversionError(f"{path} cannot be read as a WAV file: {failure}.") from failure
    return samples.reshape(-1, contract.CHANNELS).T / 32768


def _middle(sound: Sound) -> Sound:
    """As much as a model sees, out of the middle; short sounds get silence behind them."""
    first = max(0, (sound.shape[1] - LENGTH) // 2)
    part = sound[:, first:first + LENGTH]
    return np.pad(part, ((0, 0), (0, LENGTH - part.shape[1])))
