# SPDX-License-Identifier: MIT
"""What the library must return for a whole stereo signal, worked out at once instead of block by block.

The signal is mirrored at both ends and cut into one row of frames that spans the whole stream; a model's answer is
a function of these frames, and the audio is the least-squares overlap-add of all of them (Griffin & Lim 1984).
Runs of the model appear in one place only: a model may depend on where in its segment it sees a frame and on what
it knows of the frames to its right, and two runs may share a frame between them. So an error of the library in
joining chunks cannot be repeated here. Double precision throughout.
"""

import sys
from dataclasses import dataclass
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from stream_contract import BINS, FFT_SIZE, HOP, SEGMENT_FRAMES, STEMS

GAINS = np.array([10, 8, 4, 3, 1, 6]) / 32
TAPS = np.array([[4, 10, -2], [-3, 8, 1], [2, 4, 3], [-1, 3, -4], [-4, 1, 1], [2, 6, 1]]) / 32

# Samples of the longest chunks. An ordinary one leaves room for the first chunk's lead-in, or for the frames at the
# segment's edges; the last one has its lead-out added.
LONGEST_FIRST_CHUNK = (SEGMENT_FRAMES - 1) * HOP
LONGEST_CHUNK = (SEGMENT_FRAMES - 3) * HOP + FFT_SIZE
LONGEST_LAST_AND_FIRST_CHUNK = (SEGMENT_FRAMES - 1) * HOP - FFT_SIZE
LONGEST_LAST_CHUNK = (SEGMENT_FRAMES - 2) * HOP


@dataclass(frozen=True)
class Geometry:
    """How often the model runs and which of its frames are used; all in frames."""

    step: int = 249  # new frames per run
    lookahead: int = 1  # newest frames that wait for what is to their right
    blend: int = 0  # frames over which a run is faded into the next one

    @property
    def held(self) -> int:
        """Newest frames that a run does not give out."""
        return self.lookahead + self.blend

    @property
    def first_block(self) -> int:
        """Samples until the first run: the lead-in of four frames is complete, and its mirror image."""
        return max(self.held + max(self.step + 1, 4), 5) * HOP

    @property
    def next_block(self) -> int:
        return self.step * HOP

    @property
    def kept(self) -> int:
        """Samples that a chunk leaves for the next one: those of the frames that are held."""
        return FFT_SIZE + (self.held - 1) * HOP


ORDINARY = Geometry()


def runs_of(length: int, geometry: Geometry) -> tuple[list[int], int]:
    """(the stream's newest frame in every run, the samples of the last chunk before its lead-out)."""
    newest = []
    position = geometry.first_block  # where the newest frame of the next run ends
    while position <= length:
        newest.append(position // HOP)
        position += geometry.next_block
    taken = newest[-1] * HOP if newest else 0
    held = length - taken + (geometry.kept if newest else 0)
    while held > (LONGEST_LAST_CHUNK if newest else LONGEST_LAST_AND_FIRST_CHUNK):
        chunk = min(held, LONGEST_CHUNK if newest else LONGEST_FIRST_CHUNK) // HOP * HOP
        taken += chunk - (geometry.kept if newest else 0)
        newest.append(taken // HOP)
        held = length - taken + geometry.kept
    return newest, held


def mirrored_stream(signal: np.ndarray, last_chunk: int) -> tuple[np.ndarray, int]:
    """The signal between its lead-in and its lead-out, which ends where the last frame ends."""
    lead_out = FFT_SIZE + -last_chunk % HOP
    mirrored = min(lead_out, last_chunk - 1)  # a mirror image reaches no further back
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


def deciding_runs(frame_count: int, newest_frames: list[int],
                  geometry: Geometry) -> list[tuple[np.ndarray, np.ndarray]]:
    """For every frame of the stream, the runs that decide about it as [(newest frame, weight), (newest, weight)].

    A run gives out all frames but the newest `held`. The oldest `blend` of those it has an opinion on nevertheless,
    which fades into that of the next run. The stream's last run has nothing to wait for.
    """
    newest = np.array(newest_frames)
    frames = np.arange(frame_count)
    deciding = np.minimum(np.searchsorted(newest - geometry.held, frames), len(newest) - 1)
    before = np.maximum(deciding - 1, 0)
    faded = frames - (newest[before] - geometry.held)  # 1 for the first frame of the fade
    fading = (deciding > 0) & (faded >= 1) & (faded <= geometry.blend)
    weight = np.where(fading, faded / (geometry.blend + 1), 1.0)
    return [(newest[deciding], weight), (newest[before], 1 - weight)]


def cosine_masks(position: np.ndarray) -> np.ndarray:
    """{stem, position}: raised cosines a sixth of a period apart; position runs from 0 to 1."""
    return (1 + np.cos(2 * np.pi * (position + np.arange(6)[:, None] / 6))) / 6


def answer(kind: str, stem: int, spectra: np.ndarray, newest: np.ndarray) -> np.ndarray:
    """One stem's answer of the analytic model of that kind, for every frame by a run whose newest frame is given."""
    frames = np.arange(spectra.shape[1])
    if kind == "gains":
        return spectra * GAINS[stem]
    if kind == "bin_mask":
        return spectra * cosine_masks(np.arange(BINS) / BINS)[stem]
    if kind == "frame_mask":
        rows = SEGMENT_FRAMES - 1 - (newest - frames)
        return spectra * cosine_masks(rows / SEGMENT_FRAMES)[stem][:, None]
    if kind == "neighbours":
        before, at, after = TAPS[stem]
        padded = np.pad(spectra, ((0, 0), (1, 1), (0, 0)))  # silence beyond the stream, and beyond what a run knows
        known = (frames < newest)[:, None]
        return before * padded[:, :-2] + at * spectra + after * padded[:, 2:] * known
    raise ValueError(f"there is no model kind '{kind}'")


def stem_spectra(kind: str, stem: int, spectra: np.ndarray, runs: list[tuple[np.ndarray, np.ndarray]]) -> np.ndarray:
    """One stem's spectra, of the runs that decide about each frame."""
    return sum((answer(kind, stem, spectra, newest) * weight[:, None] for newest, weight in runs), np.zeros(()))


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


def separate(signal: np.ndarray, kind: str, geometry: Geometry = ORDINARY) -> dict[str, np.ndarray]:
    """The eight results as {name: {channel, sample}} for a {2, length} signal."""
    length = signal.shape[-1]
    newest, last_chunk = runs_of(length, geometry)
    stream, lead_in = mirrored_stream(signal, last_chunk)
    spectra = spectra_of(stream)
    runs = deciding_runs(spectra.shape[1], [*newest, spectra.shape[1] - 1], geometry)
    results = {}
    for index, stem in enumerate(STEMS):
        audio = overlap_add(stem_spectra(kind, index, spectra, runs))
        results[stem] = audio[:, lead_in:lead_in + length]
    mix = np.sum([results[stem] for stem in STEMS], axis=0)
    return {**results, "residual": signal - mix, "mix": mix}
