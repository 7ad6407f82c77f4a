# SPDX-License-Identifier: MIT
"""What step, lookahead and blend of a stream cost and give: quality, joins, time."""

import time
from dataclasses import dataclass
from pathlib import Path

import numpy as np
from numpy.typing import NDArray
from stream_contract import HOP

from ..data.recordings import Multitrack
from ..data.stft import SAMPLE_RATE
from . import joins
from .clibrary import CModel, Geometry
from .metrics import decibels, energy

CHORD_SECONDS = 24.0
HEADER = ("| model | step, lookahead, blend | latency, s | runs a second | chord: level jump at joins, dB "
          "| chord: change at joins / elsewhere | songs: the same | {} |")


@dataclass(frozen=True)
class Figures:
    """Of a model in a geometry. jump, chord_ratio, song_ratio: see joins.py; the worst of the songs counts. sdr: mean
    over a track's parts in dB, by track."""

    model: str
    geometry: Geometry
    jump: float
    chord_ratio: float
    song_ratio: float
    sdr: dict[str, float]

    def row(self) -> str:
        """A line of the table that HEADER begins; what has no value is a dash."""
        geometry = self.geometry
        cells = [self.model, str(geometry), f"{geometry.latency:.2f}", f"{SAMPLE_RATE / HOP / geometry.step:.2f}",
                 _number(self.jump, 1), _number(self.chord_ratio, 2), _number(self.song_ratio, 2),
                 *(_number(value, 2) for value in self.sdr.values())]
        return "| " + " | ".join(cells) + " |"


def measure(model: CModel, name: str, geometry: Geometry, tracks: list[Multitrack]) -> Figures:
    """The figures of one model in one geometry."""
    chord = joins.steady_chord(CHORD_SECONDS)
    stems, positions = model.separate(chord, geometry)
    jump = joins.largest_at_joins(*joins.level_changes(stems, chord), positions, geometry.blend)
    ratio = _ratio(stems, chord, positions, geometry)
    sdr, ratios = {}, []
    for track in tracks:
        stems, positions = model.separate(track.mixture, geometry)
        sdr[track.name] = _mean_sdr(track, stems)
        ratios.append(_ratio(stems, track.mixture, positions, geometry))
    known = [value for value in ratios if not np.isnan(value)]
    return Figures(name, geometry, jump, ratio, max(known, default=float("nan")), sdr)


def excerpt(track: Multitrack, start: float, seconds: float) -> Multitrack:
    """A part of a track."""
    piece = slice(round(start * SAMPLE_RATE), round((start + seconds) * SAMPLE_RATE))
    parts = {group: audio[:, piece] for group, audio in track.parts.items()}
    return Multitrack(track.name, track.mixture[:, piece], parts, track.stems, track.absent)


def real_time_factor(library: Path, model: Path, threads: int, geometry: Geometry, seconds: float) -> float:
    """Time to separate noise of that length over its length, the middle of three runs; nothing else should run."""
    noise = np.random.default_rng(1).uniform(-0.3, 0.3, (2, round(seconds * SAMPLE_RATE))).astype(np.float32)
    loaded = CModel(library, model, threads)
    taken = []
    for _ in range(3):
        begin = time.perf_counter()
        loaded.separate(noise, geometry)
        taken.append(time.perf_counter() - begin)
    return sorted(taken)[1] / seconds


def _ratio(stems: dict[str, NDArray[np.float32]], mixture: NDArray[np.float32], positions: list[int],
           geometry: Geometry) -> float:
    changes, times = joins.spectral_changes(stems, mixture)
    return joins.ratio_to_elsewhere(changes, times, positions, geometry.blend)


def _mean_sdr(track: Multitrack, stems: dict[str, NDArray[np.float32]]) -> float:
    values = []
    for group, truth in track.parts.items():
        estimate = np.sum([stems[stem] for stem in track.stems[group]], axis=0)
        values.append(decibels(energy(truth), energy(truth - estimate)))
    return float(np.mean(values))


def _number(value: float, decimals: int) -> str:
    return "-" if np.isnan(value) else f"{value:.{decimals}f}"
