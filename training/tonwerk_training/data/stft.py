# SPDX-License-Identifier: MIT
"""The library's short-time transform, for audio that training sees.

4096-point periodic Blackman window, hop of 1024 samples, unscaled transform, bins 0 to 2047: the library drops the
Nyquist bin, and so does this.
"""

import numpy as np
import scipy.fft
from stream_contract import BINS, FFT_SIZE, HOP

SAMPLE_RATE = 44100


def blackman() -> np.ndarray:
    """The periodic Blackman window, float32 [4096]."""
    phase = 2 * np.pi * np.arange(FFT_SIZE) / FFT_SIZE
    return (0.42 - 0.5 * np.cos(phase) + 0.08 * np.cos(2 * phase)).astype(np.float32)


WINDOW = blackman()


def sample_count(frames: int) -> int:
    """Samples that give exactly this number of frames."""
    return (frames - 1) * HOP + FFT_SIZE


def stft(audio: np.ndarray) -> np.ndarray:
    """Spectra of float32 audio [..., samples]: complex64 [..., frames, 2048], full scale 1.

    The first frame starts at the first sample and no frame reaches beyond the last one: nothing is padded.
    """
    audio = np.ascontiguousarray(audio, dtype=np.float32)
    frames = (audio.shape[-1] - FFT_SIZE) // HOP + 1
    if frames < 1:
        raise ValueError(f"{audio.shape[-1]} samples are less than one frame of {FFT_SIZE}.")
    rows = np.lib.stride_tricks.sliding_window_view(audio, FFT_SIZE, axis=-1)[..., ::HOP, :]
    return scipy.fft.rfft(rows * WINDOW, axis=-1)[..., :BINS]
