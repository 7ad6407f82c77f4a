# SPDX-License-Identifier: MIT
"""What scripts must know of the library: the sizes of a stream, the names of the stems, the interface of its networks.

The sources have the same in include/tonwerk/StreamGeometry.h and src/common/Stems.h. Lengths are in frames: samples per
channel.
"""

CHANNELS = 2
FFT_SIZE = 4096
HOP = 1024
SEGMENT_FRAMES = 256  # frames of the transform that a network sees at a time
BINS = FFT_SIZE // 2  # without the Nyquist bin

OVERLAP = FFT_SIZE  # what a chunk keeps for the next one
FIRST_BLOCK = (SEGMENT_FRAMES - 1) * HOP - OVERLAP  # maxInputSize() before the first run
NEXT_BLOCK = FIRST_BLOCK - 2 * HOP  # and after it
FIRST_RESULT = FIRST_BLOCK - OVERLAP  # what the first block completes; each later one completes its own length

STEMS = ("vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass")  # in the order of the outputs
ALL_STEMS = (*STEMS, "residual", "mix")  # of a result
FLAGS = ("vocals", "drum", "bass", "piano", "acoustic_guitar", "electric_guitar")  # in the order of the inputs

INPUT = "unified_input"
PLANES = 2 * CHANNELS  # left real, left imaginary, right real, right imaginary
SHAPE = (1, PLANES, SEGMENT_FRAMES, BINS)  # of the network's input and of each of its outputs
