# SPDX-License-Identifier: MIT
"""Sound and its frames in double precision, cut and put together as the library does it."""

import numpy as np

FFT_SIZE = 4096
HOP = 1024
BINS = 2048
ANGLES = 2 * np.pi * np.arange(FFT_SIZE) / FFT_SIZE
BLACKMAN = 0.42 - 0.5 * np.cos(ANGLES) + 0.08 * np.cos(2 * ANGLES)


def length_of(frames: int) -> int:
    """The samples under so many frames."""
    return (frames + 3) * HOP


def noise(frames: int, seed: int = 1, color: float = 0.0) -> np.ndarray:
    """Sound [2, samples] under so many frames, of peak 1; the higher the color, the less treble."""
    random = np.random.default_rng(seed)
    spectrum = np.fft.rfft(random.standard_normal((2, length_of(frames))))
    sound = np.fft.irfft(spectrum / (200 + np.arange(spectrum.shape[1])) ** color)
    return sound / np.abs(sound).max()


def frames_of(sound: np.ndarray, window: np.ndarray | float) -> np.ndarray:
    """The windowed frames of sound [.., samples]: [.., frames, 4096]."""
    starts = np.arange(0, sound.shape[-1] - FFT_SIZE + 1, HOP)
    return sound[..., starts[:, None] + np.arange(FFT_SIZE)] * window


def spectrum_of(sound: np.ndarray) -> np.ndarray:
    """What the library gives a model: [1, 4, frames, 2048] in float32."""
    bins = np.fft.rfft(frames_of(sound, BLACKMAN))[..., :BINS]
    parts = np.stack([bins.real, bins.imag], axis=1)
    return parts.reshape(1, 4, -1, BINS).astype(np.float32)


def overlap_add(frames: np.ndarray, window: np.ndarray | float) -> np.ndarray:
    """Sound [.., samples] from windowed frames by least squares, zero where no frame reaches."""
    count = frames.shape[-2]
    sound, weights = np.zeros((*frames.shape[:-2], length_of(count))), np.zeros(length_of(count))
    for index in range(count):
        place = slice(index * HOP, index * HOP + FFT_SIZE)
        sound[..., place] += frames[..., index, :] * window
        weights[place] += window ** 2
    return sound / np.maximum(weights, 1e-12)


def decibels(error: np.ndarray, whole: np.ndarray) -> float:
    """How far the error lies below the whole, by their largest values."""
    return 20 * np.log10(np.abs(error).max() / np.abs(whole).max() + 1e-12)
