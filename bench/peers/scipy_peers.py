# SPDX-License-Identifier: MIT
"""The job as users of NumPy and SciPy write it."""

from collections.abc import Callable

import numpy as np
import scipy
import scipy.fft
import scipy.signal
from job import (
    BINS,
    BLOCK,
    BLOCK_HOPS,
    CHANNELS,
    CONTEXT,
    FFT_SIZE,
    FRAMES_PER_HOP,
    HOP,
    KEPT,
    KEPT_FRAMES,
    LIBRARY_OFFSET,
    RESULTS,
    SEGMENT_SAMPLES,
    SEGMENT_SHAPE,
    STEMS,
    GainNetwork,
    analysis_window,
    synthesis_window,
)
from numpy.lib.stride_tricks import sliding_window_view

VERSION = f"NumPy {np.__version__}, SciPy {scipy.__version__}"


class NumpyPeer:
    """What both ways have in common. The stems are transformed back one channel at a time: on larger batches the
    arrays in between leave the processor's cache, and it takes longer."""

    name: str
    analyse: Callable[[], None]  # both are a peer's own
    synthesise: Callable[..., None]

    def __init__(self) -> None:
        self.network = GainNetwork(np.multiply)
        self.samples = np.zeros((CHANNELS, SEGMENT_SAMPLES), np.float32)
        self.segment = np.zeros(SEGMENT_SHAPE, np.float32)
        self.outputs = [np.zeros_like(self.segment) for _ in STEMS]
        self.spectrum = np.zeros((KEPT_FRAMES, BINS + 1), np.complex64)  # the last bin stays zero

    def process(self, block: np.ndarray) -> np.ndarray:
        """Block {channel, sample}; returns {result, channel, sample}: the stems, the residual, the mix."""
        self.samples[:, :-BLOCK] = self.samples[:, BLOCK:]
        self.samples[:, -BLOCK:] = block
        self.analyse()
        self.network(self.segment, self.outputs)
        results = np.empty((RESULTS, CHANNELS, BLOCK), np.float32)
        *stems, residual, mix = results
        for output, stem in zip(self.outputs, stems):
            for channel in range(CHANNELS):
                self.synthesise(*output[0, 2 * channel:2 * channel + 2, KEPT], stem[channel])
        np.sum(results[:len(STEMS)], axis=0, out=mix)
        np.subtract(self.samples[:, CONTEXT:CONTEXT + BLOCK], mix, out=residual)
        return results


class ScipyFft(NumpyPeer):
    name = "scipy.fft, overlap-add by hand"

    def __init__(self) -> None:
        super().__init__()
        self.frames = sliding_window_view(self.samples, FFT_SIZE, axis=-1)[:, ::HOP]
        self.window = analysis_window().astype(np.float32)
        self.synthesis_window = synthesis_window().astype(np.float32)

    def analyse(self) -> None:
        spectra = scipy.fft.rfft(self.frames * self.window, overwrite_x=True)[..., :BINS]
        self.segment[0, 0::2] = spectra.real
        self.segment[0, 1::2] = spectra.imag

    def synthesise(self, real: np.ndarray, imaginary: np.ndarray, target: np.ndarray) -> None:
        self.spectrum.real[:, :BINS] = real
        self.spectrum.imag[:, :BINS] = imaginary
        frames = scipy.fft.irfft(self.spectrum, FFT_SIZE).reshape(KEPT_FRAMES, FRAMES_PER_HOP, HOP)
        frames *= self.synthesis_window
        hops = target.reshape(BLOCK_HOPS, HOP)
        np.add(frames[3:, 0], frames[2:-1, 1], out=hops)
        hops += frames[1:-2, 2]
        hops += frames[:-3, 3]


class ScipySignal(NumpyPeer):
    name = "scipy.signal.stft and istft"

    def __init__(self) -> None:
        super().__init__()
        window = analysis_window().astype(np.float32)
        self.settings = {"window": window, "nperseg": FFT_SIZE, "noverlap": FFT_SIZE - HOP}
        self.scale = float(window.sum())  # SciPy divides spectra by it

    def analyse(self) -> None:
        _, _, spectra = scipy.signal.stft(self.samples, boundary=None, padded=False, **self.settings)
        spectra = spectra.swapaxes(1, 2)[..., :BINS]
        np.multiply(spectra.real, self.scale, out=self.segment[0, 0::2])
        np.multiply(spectra.imag, self.scale, out=self.segment[0, 1::2])

    def synthesise(self, real: np.ndarray, imaginary: np.ndarray, target: np.ndarray) -> None:
        np.multiply(real, 1 / self.scale, out=self.spectrum.real[:, :BINS])
        np.multiply(imaginary, 1 / self.scale, out=self.spectrum.imag[:, :BINS])
        _, audio = scipy.signal.istft(self.spectrum, time_axis=0, freq_axis=1, **self.settings)
        target[:] = audio[LIBRARY_OFFSET:LIBRARY_OFFSET + BLOCK]


PEERS = [ScipyFft, ScipySignal]
