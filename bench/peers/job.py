# SPDX-License-Identifier: MIT
"""The job that the peers and our pipeline do: everything around the network, block by block.

A peer is fed blocks of BLOCK frames, as our pipeline is from its second block on. For each block it transforms one
whole segment, which overlaps its neighbours by CONTEXT frames on either side, and returns the eight results of the
middle: the stream CONTEXT frames late. (Our pipeline keeps the spectra of the overlap instead of computing them
again: 249 new frames of 256.)
"""

import sys
import time
from pathlib import Path
from typing import Any

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tests" / "python"))

from offline_reference import GAINS, analysis_window
from stream_contract import ALL_STEMS, FFT_SIZE, HOP, NEXT_BLOCK, SEGMENT_FRAMES, SHAPE
from stream_contract import BINS as BINS
from stream_contract import CHANNELS as CHANNELS
from stream_contract import STEMS as STEMS

RESULTS = len(ALL_STEMS)
BLOCK = NEXT_BLOCK
BLOCK_HOPS = BLOCK // HOP
SEGMENT_SHAPE = SHAPE
SEGMENT_SAMPLES = (SEGMENT_FRAMES - 1) * HOP + FFT_SIZE
CONTEXT = (SEGMENT_SAMPLES - BLOCK) // 2

# The frames of a segment that reach into its middle: all others need not be transformed back.
FRAMES_PER_HOP = FFT_SIZE // HOP
FIRST_KEPT = CONTEXT // HOP - (FRAMES_PER_HOP - 1)
KEPT_FRAMES = BLOCK_HOPS + FRAMES_PER_HOP - 1
KEPT = slice(FIRST_KEPT, FIRST_KEPT + KEPT_FRAMES)

# STFT libraries cut half a window at both ends of what they transform back; where our block begins in the rest.
LIBRARY_OFFSET = CONTEXT - (FIRST_KEPT * HOP + FFT_SIZE // 2)


class GainNetwork:
    """Stands in for a model: every stem is the input times its gain. Keeps its own time, so that it can be left out.

    multiply: the array library's multiply(array, number, out=array).
    """

    def __init__(self, multiply: Any) -> None:
        self.multiply = multiply
        self.cpu = self.wall = 0.0

    def __call__(self, segment: Any, outputs: Any) -> None:
        wall, cpu = time.perf_counter(), time.process_time()
        for gain, output in zip(GAINS, outputs):
            self.multiply(segment, float(gain), out=output)
        self.wall += time.perf_counter() - wall
        self.cpu += time.process_time() - cpu


def synthesis_window() -> np.ndarray:
    """{quarter, sample}: the window over the sum of the squares of all windows at that place, so that the plain sum of
    the frames is their least-squares overlap-add. In the middle of a segment the sum is the same for every hop."""
    window = analysis_window().reshape(FRAMES_PER_HOP, HOP)
    return window / (window**2).sum(axis=0)
