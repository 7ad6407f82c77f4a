# SPDX-License-Identifier: MIT
"""What no network can beat, and what needs none: the references beside which an evaluation stands."""

import numpy as np

from ..data.stft import FFT_SIZE, HOP, WINDOW, stft


def istft(spectra: np.ndarray, length: int) -> np.ndarray:
    """Least-squares overlap-add (Griffin & Lim 1984) of spectra [..., frames, 2048]: float32 [..., length]."""
    frames = np.fft.irfft(np.concatenate([spectra, np.zeros_like(spectra[..., :1])], axis=-1), FFT_SIZE) * WINDOW
    audio = np.zeros((*frames.shape[:-2], (frames.shape[-2] - 1) * HOP + FFT_SIZE))
    weight = np.zeros(audio.shape[-1])
    for index in range(frames.shape[-2]):
        span = slice(index * HOP, index * HOP + FFT_SIZE)
        audio[..., span] += frames[..., index, :]
        weight[span] += WINDOW.astype(np.float64) ** 2
    return (audio / np.maximum(weight, 1e-8))[..., :length].astype(np.float32)


def _padded(audio: np.ndarray) -> np.ndarray:
    """One frame of silence before, and after it up to a whole number of hops and one frame more."""
    end = FFT_SIZE + -audio.shape[-1] % HOP
    return np.pad(audio, [(0, 0)] * (audio.ndim - 1) + [(FFT_SIZE, end)])


def ratio_mask_estimates(sources: np.ndarray) -> np.ndarray:
    """The ideal ratio mask's estimates: masks |S|^2 / sum |S_j|^2 over all sources, times the mixture.

    sources: float32 [n, 2, samples], all of the mixture. Returns float32 of the same shape.
    """
    length = sources.shape[-1]
    spectra = np.stack([stft(_padded(source)) for source in sources])
    powers = spectra.real ** 2 + spectra.imag ** 2
    masks = powers / np.maximum(powers.sum(axis=0), 1e-20)
    return _masked(masks, spectra.sum(axis=0), length)


def best_mask_estimates(sources: np.ndarray) -> np.ndarray:
    """The best real masks between 0 and 1, bin by bin: the most that this kind of network can reach.

    sources and result as in ratio_mask_estimates(). The squared error is least for Re(S conj X) / |X|^2.
    """
    length = sources.shape[-1]
    spectra = np.stack([stft(_padded(source)) for source in sources])
    mixture = spectra.sum(axis=0)
    power = np.maximum(mixture.real ** 2 + mixture.imag ** 2, 1e-20)
    masks = np.clip((spectra.real * mixture.real + spectra.imag * mixture.imag) / power, 0, 1)
    return _masked(masks, mixture, length)


def _masked(masks: np.ndarray, mixture: np.ndarray, length: int) -> np.ndarray:
    return np.stack([istft(mask * mixture, length + FFT_SIZE)[..., FFT_SIZE:] for mask in masks])
