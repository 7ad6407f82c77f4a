# SPDX-License-Identifier: MIT
"""Sound inside a graph: from the library's frames to samples, from samples to frames of any window, and back.

Inside, time in hops is the last axis: sound is [channels, 1024, hops] (sample within the hop, hop), a spectrum
[channels, 2, bins, frames] (real and imaginary part), so that transforms are products of matrices with thousands of
columns. A transform of 4,096 samples is two products with matrices of 64 x 64 (Cooley and Tukey 1965): with
n = 64 a + b and k = c + 64 d,

    X[k] = sum_b exp(-2 pi i b k / 4096) sum_a exp(-2 pi i a c / 64) x[n].
"""

import numpy as np

from .contract import BINS, CHANNELS, FFT_SIZE, HOP, PLANES
from .graph import Graph

RADIX = 64
ROWS = BINS // RADIX + 1  # of 64 bins: the Nyquist bin begins the last one
OVERLAP = FFT_SIZE // HOP  # frames over each sample
SMALLEST_WEIGHT = 1e-6  # of the squared window; less is only found within 100 samples of the ends

RECTANGLE = np.ones(FFT_SIZE)
_ANGLES = 2 * np.pi * np.arange(FFT_SIZE) / FFT_SIZE
BLACKMAN = 0.42 - 0.5 * np.cos(_ANGLES) + 0.08 * np.cos(2 * _ANGLES)


def frames_to_wave(graph: Graph, spectrum: str, frames: int) -> str:
    """Sound from the library's own frames: [1, 4, frames, 2048] -> [2, 1024, frames + 3].

    Least-squares overlap-add (Griffin and Lim 1984). The frames lack their Nyquist bins; because each sample lies in
    four frames, these follow from the others (see _nyquist_bins). So the sound is exact, but for the first and the
    last 100 samples, where the only frame that has them is next to zero.
    """
    parts = graph.reshape(graph.transpose(spectrum, 0, 1, 3, 2), CHANNELS, 2, BINS, frames)
    samples = inverse_transform(graph, parts, CHANNELS, BINS, frames)
    wave = overlap_add(graph, samples, CHANNELS, frames, BLACKMAN)
    return graph.add("Add", wave, _nyquist_bins(graph, wave, frames))


def wave_to_frames(graph: Graph, wave: str, channels: int, frames: int) -> list[str]:
    """The library's frames of sound, by pairs of channels: [channels, 1024, frames + 3] -> [1, 4, frames, 2048]
    each."""
    parts = transform(graph, wave, channels, frames, BLACKMAN, BINS)
    stems = channels // CHANNELS
    spectra = graph.reshape(parts, stems, PLANES, BINS, frames)
    return [graph.transpose(spectrum, 0, 1, 3, 2) for spectrum in graph.split(spectra, 0, [1] * stems)]


def transform(graph: Graph, wave: str, channels: int, frames: int, window: np.ndarray, bins: int) -> str:
    """The spectra of all frames of sound: [channels, 1024, frames + 3] -> [channels, 2, bins, frames]; 2,048 bins, or
    2,049 with the Nyquist bin."""
    cut = graph.concat(1, *(graph.slice(wave, 2, place, place + frames) for place in range(OVERLAP)))
    if window is not RECTANGLE:
        cut = graph.add("Mul", cut, graph.table(window.reshape(1, FFT_SIZE, 1)))
    first = graph.add("MatMul", graph.table(_first_stage()), graph.reshape(cut, channels, RADIX, RADIX * frames))
    joined = graph.reshape(first, channels, RADIX, 2 * RADIX, frames)
    second = graph.add("MatMul", graph.table(_second_stage()), joined)
    ordered = graph.transpose(graph.reshape(second, channels, RADIX, 2, ROWS, frames), 0, 2, 3, 1, 4)
    return graph.slice(graph.reshape(ordered, channels, 2, ROWS * RADIX, frames), 2, 0, bins)


def inverse_transform(graph: Graph, spectrum: str, channels: int, bins: int, frames: int) -> str:
    """The samples of frames from their spectra: [channels, 2, bins, frames] -> [channels, 4096, frames]. The imaginary
    parts of the first and of the Nyquist bin do not count."""
    padded = graph.pad(spectrum, (0, 0, 0, 0), (0, 0, ROWS * RADIX - bins, 0))
    ordered = graph.transpose(graph.reshape(padded, channels, 2, ROWS, RADIX, frames), 0, 3, 1, 2, 4)
    parts = graph.reshape(ordered, channels, RADIX, 2 * ROWS, frames)
    first = graph.add("MatMul", graph.table(_inverse_first_stage()), parts)
    joined = graph.reshape(first, channels, 2 * RADIX, RADIX * frames)
    second = graph.add("MatMul", graph.table(_inverse_second_stage()), joined)
    return graph.reshape(second, channels, FFT_SIZE, frames)


def overlap_add(graph: Graph, samples: str, channels: int, frames: int, window: np.ndarray) -> str:
    """Sound from frames that were cut with a window: [channels, 4096, frames] -> [channels, 1024, frames + 3]."""
    if window is not RECTANGLE:
        samples = graph.add("Mul", samples, graph.table(window.reshape(1, FFT_SIZE, 1)))
    quarters = graph.split(samples, 1, [HOP] * OVERLAP)
    shifted = (graph.pad(quarter, (0, 0, place), (0, 0, OVERLAP - 1 - place))
               for place, quarter in enumerate(quarters))
    return graph.add("Mul", graph.add("Sum", *shifted), graph.table(1 / _weights(window, frames)[None]))


def _nyquist_bins(graph: Graph, wave: str, frames: int) -> str:
    """What sound from frames without Nyquist bins lacks: [2, 1024, frames + 3], the same shape.

    Let N be the true bins and A the linear map from Nyquist bins to those of the sound that they alone make. The sound
    at hand has the Nyquist bins M = N - A N, so N = (I - A)^-1 M.
    """
    tone = _nyquist_tone()
    inverse_weights = 1 / _weights(BLACKMAN, frames)
    coupling = np.zeros((frames, frames))
    for row in range(OVERLAP):  # how a tone of one frame, overlap-added, is heard by another, hop by hop of the former
        for other in range(OVERLAP):
            heard = (tone[row] * tone[other]) @ inverse_weights[:, row:row + frames] / FFT_SIZE
            for frame in range(max(0, other - row), min(frames, frames + other - row)):
                coupling[frame, frame + row - other] += heard[frame]
    solved = np.linalg.inv(np.eye(frames) - coupling)
    by_hop = graph.add("MatMul", graph.table(tone), wave)
    measured = graph.add("Sum", *(
        graph.slice(quarter, 2, place, place + frames)
        for place, quarter in enumerate(graph.split(by_hop, 1, [1] * OVERLAP))))
    bins = graph.add("MatMul", measured, graph.table(solved.T))
    shifted = graph.concat(1, *(graph.pad(bins, (0, 0, place), (0, 0, OVERLAP - 1 - place))
                                for place in range(OVERLAP)))
    lacking = graph.add("MatMul", graph.table(tone.T / FFT_SIZE), shifted)
    return graph.add("Mul", lacking, graph.table(inverse_weights[None]))


def _nyquist_tone() -> np.ndarray:
    """The tone of half the sample rate under the Blackman window, hop by hop: [4, 1024]."""
    signs = 1 - 2 * (np.arange(FFT_SIZE) % 2)
    return (BLACKMAN * signs).reshape(OVERLAP, HOP)


def _weights(window: np.ndarray, frames: int) -> np.ndarray:
    """The sum of the squared windows over each sample: [1024, frames + 3]."""
    squares = (window ** 2).reshape(OVERLAP, HOP)
    total = np.zeros((HOP, frames + OVERLAP - 1))
    for place in range(OVERLAP):
        total[:, place:place + frames] += squares[place, :, None]
    return np.maximum(total, SMALLEST_WEIGHT)


def _first_stage() -> np.ndarray:
    """[(c, part), a]: exp(-2 pi i a c / 64)."""
    turns = np.exp(-2j * np.pi * np.outer(np.arange(RADIX), np.arange(RADIX)) / RADIX)
    return np.stack([turns.real, turns.imag], axis=1).reshape(2 * RADIX, RADIX)


def _second_stage() -> np.ndarray:
    """[c, (part, d), (part, b)]: exp(-2 pi i b (c + 64 d) / 4096) as real matrices."""
    return _real(np.exp(-2j * np.pi * _bins() * np.arange(RADIX) / FFT_SIZE))


def _inverse_first_stage() -> np.ndarray:
    """[c, (part, b), (part, d)]: exp(2 pi i b (c + 64 d) / 4096), with the weight of a bin and its mirror."""
    bins = _bins()
    weights = np.where(bins > BINS, 0, np.where(bins % BINS == 0, 1, 2)) / FFT_SIZE
    return _real((weights * np.exp(2j * np.pi * bins * np.arange(RADIX) / FFT_SIZE)).transpose(0, 2, 1))


def _inverse_second_stage() -> np.ndarray:
    """[a, (c, part)]: the real part of a product with exp(2 pi i a c / 64)."""
    turns = np.exp(2j * np.pi * np.outer(np.arange(RADIX), np.arange(RADIX)) / RADIX)
    return np.stack([turns.real, -turns.imag], axis=2).reshape(RADIX, 2 * RADIX)


def _bins() -> np.ndarray:
    """The bins, k = c + 64 d, as [c, d, 1]."""
    return (np.arange(RADIX)[:, None] + RADIX * np.arange(ROWS))[:, :, None]


def _real(matrices: np.ndarray) -> np.ndarray:
    """Complex matrices [.., i, j] as real ones [.., 2 i, 2 j] on real parts before imaginary parts."""
    return np.concatenate([np.concatenate([matrices.real, -matrices.imag], axis=-1),
                           np.concatenate([matrices.imag, matrices.real], axis=-1)], axis=-2)
