# SPDX-License-Identifier: MIT
"""How much is heard of the places where a stream goes over from one run of the model to the next.

A model says something else of a frame at the edge of its window than of the same frame in the middle. Where two runs
meet, a stem's level may therefore jump or dip for some ten milliseconds. The figures here look at spans of that length;
both are in decibels of a stem against the mixture, so that what the music itself does is left out.
"""

from collections.abc import Sequence

import numpy as np
from numpy.typing import NDArray
from stream_contract import FFT_SIZE, HOP, STEMS

from ..data.stft import SAMPLE_RATE

SPAN = round(0.06 * SAMPLE_RATE)  # a change counts if it happens within this time
WINDOW = 1024  # of a level: a period of steady_chord()
WINDOW_HOP = 256
FLOOR = 1e-3  # 30 dB below the mixture a stem hardly counts
AUDIBLE = 1.0  # dB: about the least change of a steady sound's level that is heard (Zwicker and Fastl, Psychoacoustics)
SPECTRUM = 2048  # of a spectral change
BAND_EDGES = np.geomspace(80.0, 16000.0, 25)
STRETCH = SAMPLE_RATE // 5
EDGE = 3 * SAMPLE_RATE // 2  # the ends of a signal are left out
STEMS_AND_REST = (*STEMS, "residual")


def steady_chord(seconds: float) -> NDArray[np.float32]:
    """A major triad with its octave, float32 [2, samples], of periods that divide the hop: all frames of its transform
    are the same, so every change of a stem's level is the network's doing."""
    time = np.arange(int(seconds * SAMPLE_RATE))
    random = np.random.default_rng(3)
    sound = np.zeros(time.size)
    for note in (4, 5, 6, 8):  # multiples of 43.07 Hz
        for partial in range(1, 13):
            turn = (note * partial * time % HOP) / HOP
            sound += np.sin(2 * np.pi * turn + random.uniform(0, 2 * np.pi)) / partial
    sound *= 0.5 / np.abs(sound).max()
    return np.stack([sound, sound]).astype(np.float32)


def positions(step: int, held: int, length: int) -> list[int]:
    """Where, in samples, the result of one run ends and that of the next begins, in a signal of that length. held:
    lookahead + blend of the stream. A run completes what lies under none but the frames that it gives out."""
    covering = FFT_SIZE // HOP
    first = max(held + step + 1, held + covering, covering + 1)
    return list(range((first - held - covering + 1) * HOP, length, step * HOP))


def at_joins(times: NDArray[np.intp], joins: Sequence[int], blend: int) -> NDArray[np.bool_]:
    """Which of the positions a join has to do with: the frames that a run alone decides about overlap those of the
    next one by three hops, and the fade begins where the former result ends."""
    near = np.zeros(len(times), bool)
    for join in joins:
        near |= (times > join - 3 * HOP - SPAN) & (times < join + (blend + 3) * HOP + SPAN)
    return near


def level_changes(stems: dict[str, NDArray[np.float32]], mixture: NDArray[np.float32]
                  ) -> tuple[NDArray[np.float64], NDArray[np.intp]]:
    """The change of each stem's level within SPAN, in dB against the mixture: ([stems, positions], positions)."""
    starts = np.arange(0, mixture.shape[1] - WINDOW + 1, WINDOW_HOP)

    def powers(audio: NDArray[np.float32]) -> NDArray[np.float64]:
        total = np.concatenate([[0.0], np.cumsum((audio.astype(np.float64) ** 2).sum(axis=0))])
        return total[starts + WINDOW] - total[starts]

    whole = powers(mixture)
    levels = np.stack([_decibels(powers(stems[stem]), whole) for stem in STEMS_AND_REST])
    return _changes(levels, starts + WINDOW // 2, WINDOW_HOP)


def spectral_changes(stems: dict[str, NDArray[np.float32]], mixture: NDArray[np.float32]
                     ) -> tuple[NDArray[np.float64], NDArray[np.intp]]:
    """The same, band by band: the mean over third octaves, weighted with the stem's power in them."""
    starts = np.arange(0, mixture.shape[1] - SPECTRUM + 1, WINDOW_HOP)
    whole = _band_powers(mixture, starts)
    changes = []
    for stem in STEMS_AND_REST:
        powers = _band_powers(stems[stem], starts)
        by_band, times = _changes(_decibels(powers, whole), starts + SPECTRUM // 2, WINDOW_HOP)
        shift = len(starts) - len(times)
        weights = powers[:, shift:] + powers[:, :-shift]
        changes.append((by_band * weights).sum(axis=0) / (weights.sum(axis=0) + 1e-12))
    return np.stack(changes), times


def largest_at_joins(changes: NDArray[np.float64], times: NDArray[np.intp], joins: Sequence[int], blend: int) -> float:
    """The largest change of any stem at any join, away from the signal's ends; not-a-number without joins."""
    inside = at_joins(times, joins, blend) & (times > EDGE) & (times < times[-1] - EDGE)
    return float(changes[:, inside].max()) if inside.any() else float("nan")


def ratio_to_elsewhere(changes: NDArray[np.float64], times: NDArray[np.intp], joins: Sequence[int],
                       blend: int) -> float:
    """How the changes at joins compare with those elsewhere: the largest one in each fifth of a second, its mean over
    those at joins over its mean over the others. The stem that fares worst decides. Changes that are not heard, below
    AUDIBLE, are alike. Not-a-number without joins, or with joins all over."""
    near = at_joins(times, joins, blend)
    length = round(STRETCH / (times[1] - times[0]))
    peaks: tuple[list[NDArray[np.float64]], list[NDArray[np.float64]]] = ([], [])
    for start in range(0, len(times) - length, length // 4):
        stretch = slice(start, start + length)
        if times[start] < EDGE or times[start + length] > times[-1] - EDGE:
            continue
        if near[start + length // 2]:
            peaks[0].append(changes[:, stretch].max(axis=1))
        elif not near[stretch].any():
            peaks[1].append(changes[:, stretch].max(axis=1))
    if not peaks[0] or not peaks[1]:
        return float("nan")
    joined, elsewhere = (np.maximum(np.mean(found, axis=0), AUDIBLE) for found in peaks)
    return float((joined / elsewhere).max())


def _decibels(power: NDArray[np.float64], whole: NDArray[np.float64]) -> NDArray[np.float64]:
    silence = 1e-9 * WINDOW
    return 10 * np.log10((power + silence) / (whole + silence) + FLOOR)


def _changes(levels: NDArray[np.float64], times: NDArray[np.intp], hop: int
             ) -> tuple[NDArray[np.float64], NDArray[np.intp]]:
    shift = SPAN // hop
    return np.abs(levels[:, shift:] - levels[:, :-shift]), (times[shift:] + times[:-shift]) // 2


def _band_powers(audio: NDArray[np.float32], starts: NDArray[np.intp]) -> NDArray[np.float64]:
    window = np.hanning(SPECTRUM).astype(np.float32)
    frequencies = np.fft.rfftfreq(SPECTRUM, 1 / SAMPLE_RATE)
    edges = np.searchsorted(frequencies, BAND_EDGES)
    powers = np.zeros((len(BAND_EDGES) - 1, len(starts)))
    for channel in audio:
        frames = np.lib.stride_tricks.sliding_window_view(channel, SPECTRUM)[starts]
        cumulated = np.cumsum(np.abs(np.fft.rfft(frames * window, axis=1)) ** 2, axis=1)
        powers += (cumulated[:, edges[1:]] - cumulated[:, edges[:-1]]).T
    return powers
