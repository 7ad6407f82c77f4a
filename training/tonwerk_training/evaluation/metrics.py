# SPDX-License-Identifier: MIT
"""How close an estimated stem comes to the true one, and how smooth it is where chunks join.

SDR is 10 log10(|s|^2 / |s - e|^2) over both channels, SI-SDR the same after the best scaling of s (Le Roux et al. 2019,
"SDR - half-baked or well done?"). "Global" pools the energies of all songs before the logarithm, so that silent
passages count with the energy that the estimate puts there; the median is over segments of one second in which the
stem plays.
"""

from dataclasses import dataclass, field

import numpy as np
from stream_contract import FIRST_RESULT, NEXT_BLOCK

from ..data.stft import SAMPLE_RATE

SEGMENT = SAMPLE_RATE
ACTIVE_RANGE = 1e-4  # a segment counts as playing down to 40 dB below the stem's loudest one

# The library's results end here when it is fed in blocks of maxInputSize().
FIRST_JOIN = FIRST_RESULT
JOIN_DISTANCE = NEXT_BLOCK
JOIN_NEIGHBOURHOOD = SAMPLE_RATE // 2
SEAM_WINDOW = 2048
FAR_FROM_JOINS = SAMPLE_RATE


def decibels(signal: float, error: float) -> float:
    """10 log10(signal / error) of energies; 0 energies give infinities, both 0 gives not-a-number."""
    with np.errstate(divide="ignore", invalid="ignore"):
        return float(10 * np.log10(np.float64(signal) / np.float64(error)))


def energy(audio: np.ndarray) -> float:
    """Sum of squares in double precision."""
    return float(np.vdot(audio.astype(np.float64), audio.astype(np.float64)))


def join_positions(length: int) -> np.ndarray:
    """Sample positions inside a stream of this length at which one result ends and the next begins."""
    return np.arange(FIRST_JOIN, length, JOIN_DISTANCE)


def near_joins(length: int) -> np.ndarray:
    """Boolean [length]: within half a second of a join."""
    near = np.zeros(length, bool)
    for position in join_positions(length):
        near[max(0, position - JOIN_NEIGHBOURHOOD):position + JOIN_NEIGHBOURHOOD] = True
    return near


def spectral_jumps(audio: np.ndarray, positions: np.ndarray | list[int]) -> list[float]:
    """How much the spectrum changes across each position, 0 (not at all) to 1 (nothing in common).

    Compares the magnitudes of the 2048 samples before with those of the 2048 after, both channels together. Positions
    in silence or too close to an end are left out.
    """
    window = np.hanning(SEAM_WINDOW)
    jumps = []
    for position in positions:
        if not SEAM_WINDOW <= position <= audio.shape[1] - SEAM_WINDOW:
            continue
        before = np.abs(np.fft.rfft(audio[:, position - SEAM_WINDOW:position] * window))
        after = np.abs(np.fft.rfft(audio[:, position:position + SEAM_WINDOW] * window))
        total = np.sum(before ** 2 + after ** 2)
        if total > 1e-4:  # about -70 dBFS
            jumps.append(np.sum((before - after) ** 2) / total)
    return jumps


@dataclass
class StemScore:
    """Collects one stem over many songs."""

    energies: list[tuple[float, float]] = field(default_factory=list)  # per song (signal, error)
    scaled: list[tuple[float, float]] = field(default_factory=list)  # per song (scaled signal, its error)
    segments: list[tuple[float, float]] = field(default_factory=list)  # (SDR, SI-SDR) of playing segments
    joins: np.ndarray = field(default_factory=lambda: np.zeros((2, 2)))  # [near, elsewhere][signal, error]
    jumps: list[list[float]] = field(default_factory=lambda: [[], []])  # at joins, elsewhere

    def add(self, truth: np.ndarray, estimate: np.ndarray) -> None:
        """truth, estimate: float32 [2, samples] of one song."""
        if truth.shape != estimate.shape:
            raise ValueError(f"The estimate has the shape {estimate.shape} and the truth {truth.shape}.")
        self.energies.append((energy(truth), energy(truth - estimate)))
        self.scaled.append(_scaled_energies(truth, estimate))
        self._add_segments(truth, estimate)
        self._add_joins(truth, estimate)

    def _add_segments(self, truth: np.ndarray, estimate: np.ndarray) -> None:
        starts = range(0, truth.shape[1] - SEGMENT + 1, SEGMENT)
        parts = [(truth[:, start:start + SEGMENT], estimate[:, start:start + SEGMENT]) for start in starts]
        loudest = max((energy(part) for part, _ in parts), default=0.0)
        for part, guess in parts:
            if energy(part) > ACTIVE_RANGE * loudest:
                self.segments.append((decibels(energy(part), energy(part - guess)),
                                      decibels(*_scaled_energies(part, guess))))

    def _add_joins(self, truth: np.ndarray, estimate: np.ndarray) -> None:
        near = near_joins(truth.shape[1])
        for row, mask in enumerate((near, ~near)):
            self.joins[row] += energy(truth[:, mask]), energy(truth[:, mask] - estimate[:, mask])
        joins = join_positions(truth.shape[1])
        grid = np.arange(SEAM_WINDOW, truth.shape[1], SAMPLE_RATE // 4)
        far = [position for position in grid if not len(joins) or np.abs(joins - position).min() > FAR_FROM_JOINS]
        self.jumps[0] += spectral_jumps(estimate, joins)
        self.jumps[1] += spectral_jumps(estimate, far)

    def summary(self) -> dict[str, float]:
        """Every figure in decibels, but the seam: spectral jump at joins over the same elsewhere."""
        segments = np.array(self.segments).reshape(-1, 2)
        at_joins, elsewhere = ([np.mean(jumps) if jumps else np.nan for jumps in self.jumps])
        median = np.median(segments, axis=0) if len(segments) else (np.nan, np.nan)
        return {"sdr": float(decibels(*np.sum(self.energies, axis=0))),
                "si_sdr": float(decibels(*np.sum(self.scaled, axis=0))),
                "median_sdr": float(median[0]),
                "median_si_sdr": float(median[1]),
                "sdr_near_joins": float(decibels(*self.joins[0])),
                "sdr_elsewhere": float(decibels(*self.joins[1])),
                "seam": float(at_joins / elsewhere)}


def _scaled_energies(truth: np.ndarray, estimate: np.ndarray) -> tuple[float, float]:
    """Energies of the best scaled truth and of what the estimate has besides."""
    own = energy(truth)
    if own == 0:
        return 0.0, energy(estimate)
    scale = float(np.vdot(truth.astype(np.float64), estimate.astype(np.float64))) / own
    return scale ** 2 * own, energy(estimate - np.float32(scale) * truth)
