# SPDX-License-Identifier: MIT
"""The job as users of PyTorch write it, on one thread of the processor."""

from collections.abc import Callable

import numpy as np
import torch
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
    synthesis_window,
)

VERSION = f"PyTorch {torch.__version__}"

torch.set_num_threads(1)


class TorchPeer:
    """What both ways have in common."""

    name: str
    analyse: Callable[[], torch.Tensor]  # both are a way's own
    synthesise: Callable[..., None]

    def __init__(self) -> None:
        self.network = GainNetwork(torch.mul)
        self.window = torch.blackman_window(FFT_SIZE)
        self.samples = torch.zeros(CHANNELS, SEGMENT_SAMPLES)
        self.segment = torch.zeros(SEGMENT_SHAPE)
        self.outputs = [torch.zeros_like(self.segment) for _ in STEMS]
        # The last bin stays zero.
        self.spectra = torch.zeros(CHANNELS, KEPT_FRAMES, BINS + 1, dtype=torch.complex64)

    @torch.inference_mode()
    def process(self, block: np.ndarray) -> np.ndarray:
        """Block {channel, sample}, an array; returns {result, channel, sample}: the stems, the residual, the mix."""
        self.samples[:, :-BLOCK] = self.samples[:, BLOCK:]
        self.samples[:, -BLOCK:] = torch.from_numpy(block)
        spectra = self.analyse()[..., :BINS]
        self.segment[0, 0::2] = spectra.real
        self.segment[0, 1::2] = spectra.imag
        self.network(self.segment, self.outputs)
        results = torch.empty(RESULTS, CHANNELS, BLOCK)
        *stems, residual, mix = results
        for output, stem in zip(self.outputs, stems):
            torch.complex(output[0, 0::2, KEPT], output[0, 1::2, KEPT], out=self.spectra[..., :BINS])
            self.synthesise(stem)
        torch.sum(results[:len(STEMS)], 0, out=mix)
        torch.sub(self.samples[:, CONTEXT:CONTEXT + BLOCK], mix, out=residual)
        return results


class TorchStft(TorchPeer):
    name = "torch.stft and istft"

    def analyse(self) -> torch.Tensor:
        return torch.stft(self.samples, FFT_SIZE, HOP, window=self.window, center=False,
                          return_complex=True).transpose(1, 2)

    def synthesise(self, target: torch.Tensor) -> None:
        audio = torch.istft(self.spectra.transpose(1, 2), FFT_SIZE, HOP, window=self.window)
        target.copy_(audio[:, LIBRARY_OFFSET:LIBRARY_OFFSET + BLOCK])


class TorchFft(TorchPeer):
    name = "torch.fft, overlap-add by hand"

    def __init__(self) -> None:
        super().__init__()
        self.synthesis_window = torch.from_numpy(synthesis_window()).float()

    def analyse(self) -> torch.Tensor:
        return torch.fft.rfft(self.samples.unfold(1, FFT_SIZE, HOP) * self.window)

    def synthesise(self, target: torch.Tensor) -> None:
        frames = torch.fft.irfft(self.spectra, FFT_SIZE).view(CHANNELS, KEPT_FRAMES, FRAMES_PER_HOP, HOP)
        frames *= self.synthesis_window
        hops = target.view(CHANNELS, BLOCK_HOPS, HOP)
        torch.add(frames[:, 3:, 0], frames[:, 2:-1, 1], out=hops)
        hops += frames[:, 1:-2, 2]
        hops += frames[:, :-3, 3]


PEERS = [TorchFft, TorchStft]
