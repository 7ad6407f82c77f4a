# SPDX-License-Identifier: MIT
"""What the library must return for a whole stereo signal, worked out at once instead of block by block.

The signal is mirrored at both ends and cut into one row of frames that spans the whole stream; a model's answer is
a function of these frames, and the audio is the least-squares overlap-add of all of them (Griffin & Lim 1984).
Chunks appear in one place only: a model may depend on where in its segment it sees a frame. So an error of the
library in joining chunks cannot be repeated here. Double precision throughout.
"""

import numpy as np

FFT_SIZE = 4096
HOP = 1024
SEGMENT_FRAMES = 256
BINS = FFT_SIZE // 2
FIRST_BLOCK = 257024  # maxInputSize() before the first model run
NEXT_BLOCK = 254976  # and from then on
STEMS = ("vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass")

GAINS = np.array([10, 8, 4, 3, 1, 6]) / 32
TAPS = np.array([[4, 10, -2], [-3, 8, 1], [2, 4, 3], [-1, 3, -4], [-4, 1, 1], [2, 6, 1]]) / 32


def block_lengths(length: int) -> list[int]:
    """The blocks of a stream that is fed in maxInputSize() blocks."""
    blocks = [min(length, FIRST_BLOCK)]
    while sum(blocks) < length:
        blocks.append(min(length - sum(blocks), NEXT_BLOCK))
    return blocks


def mirrored_stream(signal: np.ndarray) -> tuple[np.ndarray, int]:
    """The signal between its lead-in and its lead-out, which ends where the last frame ends."""
    length = signal.shape[-1]
    blocks = block_lengths(length)
    # The last chunk holds the last block and the 4096 samples before it; a mirror image reaches no further back.
    last_chunk = blocks[-1] + (FFT_SIZE if len(blocks) > 1 else 0)
    lead_out = FFT_SIZE + -last_chunk % HOP
    mirrored = min(lead_out, last_chunk - 1)
    ended = np.pad(signal, ((0, 0), (0, mirrored)), "reflect")
    ended = np.pad(ended, ((0, 0), (0, lead_out - mirrored)))
    lead_in = min(FFT_SIZE, ended.shape[-1] - 1)
    return np.pad(ended, ((0, 0), (lead_in, 0)), "reflect"), lead_in


def analysis_window() -> np.ndarray:
    position = 2 * np.pi * np.arange(FFT_SIZE) / FFT_SIZE
    return 0.42 - 0.5 * np.cos(position) + 0.08 * np.cos(2 * position)


def spectra_of(stream: np.ndarray) -> np.ndarray:
    """{channel, frame, bin} without the Nyquist bin, which the pipeline drops."""
    frames = np.lib.stride_tricks.sliding_window_view(stream, FFT_SIZE, axis=-1)[:, ::HOP]
    return np.fft.rfft(frames * analysis_window())[..., :BINS]


def segment_positions(frame_count: int, length: int) -> np.ndarray:
    """For every frame of the stream, its row in the segment of the model run that decides about it.

    A chunk's newest frame stands in the last row. It is held back, as its right neighbour is not known yet, and
    decided with the next chunk; only the stream's very last frame has nothing to wait for.
    """
    fed = np.cumsum(block_lengths(length))[:-1]  # where the newest frames end, in all chunks but the last
    newest = np.append(fed // HOP, frame_count - 1)
    frames = np.arange(frame_count)
    deciding = np.minimum(np.searchsorted(newest, frames, side="right"), len(newest) - 1)
    return SEGMENT_FRAMES - 1 - (newest[deciding] - frames)


def cosine_masks(position: np.ndarray) -> np.ndarray:
    """{stem, position}: raised cosines a sixth of a period apart; position runs from 0 to 1."""
    return (1 + np.cos(2 * np.pi * (position + np.arange(6)[:, None] / 6))) / 6


def stem_spectra(kind: str, stem: int, spectra: np.ndarray, positions: np.ndarray) -> np.ndarray:
    """One stem's answer of the analytic model of that kind."""
    if kind == "gains":
        return spectra * GAINS[stem]
    if kind == "bin_mask":
        return spectra * cosine_masks(np.arange(BINS) / BINS)[stem]
    if kind == "frame_mask":
        return spectra * cosine_masks(positions / SEGMENT_FRAMES)[stem][:, None]
    if kind == "neighbours":
        before, at, after = TAPS[stem]
        padded = np.pad(spectra, ((0, 0), (1, 1), (0, 0)))  # silence beyond the stream
        return before * padded[:, :-2] + at * spectra + after * padded[:, 2:]
    raise ValueError(f"there is no model kind '{kind}'")


def overlap_add(spectra: np.ndarray) -> np.ndarray:
    """The audio whose windowed frames come closest to the given spectra in the least-squares sense."""
    window = analysis_window()
    with_nyquist = np.pad(spectra, ((0, 0), (0, 0), (0, 1)))
    frames = np.fft.irfft(with_nyquist, FFT_SIZE) * window
    length = (frames.shape[1] - 1) * HOP + FFT_SIZE
    audio = np.zeros((frames.shape[0], length))
    weight = np.zeros(length)
    for index in range(frames.shape[1]):
        span = slice(index * HOP, index * HOP + FFT_SIZE)
        audio[:, span] += frames[:, index]
        weight[span] += window**2
    return audio / np.maximum(weight, np.finfo(float).tiny)


def separate(signal: np.ndarray, kind: str) -> dict[str, np.ndarray]:
    """The eight results as {name: {channel, sample}} for a {2, length} signal."""
    stream, lead_in = mirrored_stream(signal)
    spectra = spectra_of(stream)
    length = signal.shape[-1]
    positions = segment_positions(spectra.shape[1], length)
    results = {}
    for index, stem in enumerate(STEMS):
        audio = overlap_add(stem_spectra(kind, index, spectra, positions))
        results[stem] = audio[:, lead_in:lead_in + length]
    mix = np.sum([results[stem] for stem in STEMS], axis=0)
    return {**results, "residual": signal - mix, "mix": mix}
