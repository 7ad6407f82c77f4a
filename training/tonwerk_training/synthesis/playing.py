# SPDX-License-Identifier: MIT
"""How notes are played: on what, and with which bends, slides, vibrato, mutes and pedal."""

from collections.abc import Sequence
from dataclasses import dataclass
from typing import Protocol

import numpy as np
from numpy.typing import NDArray

from ..data.stft import SAMPLE_RATE
from .fluidsynth import Note
from .plucked import resample_curve

Audio = NDArray[np.float32]
LONGEST = 5.5  # seconds of a note
TAKES = 2  # different sounds of a note that comes back


class Instrument(Protocol):
    """What gives the sound of a single note: float32 [samples] or [2, samples], beginning at once, ringing freely."""

    def sound(self, pitch: float, velocity: float, seconds: float, rng: np.random.Generator) -> Audio: ...


@dataclass
class Manner:
    """release: seconds in which a note ends; muted: seconds in which a damped note dies, 0 for none; expressive: notes
    are slid into, bent and given vibrato; detune: cents by which notes are off."""

    release: float = 0.05
    muted: float = 0.0
    expressive: bool = False
    detune: float = 3.0


def perform(instrument: Instrument, notes: Sequence[Note], seconds: float, rng: np.random.Generator,
            manner: Manner) -> Audio:
    """Audio float32 [2, samples] of Notes; those before 0 are left out, those that sound at the end cut."""
    out = np.zeros((2, int(round(seconds * SAMPLE_RATE))), np.float32)
    takes: dict[tuple[int, int, int], list[Audio]] = {}
    for note in notes:
        begin = int(note.start * SAMPLE_RATE)
        length = min(note.length + 3 * manner.release, LONGEST)
        if not 0 <= begin < out.shape[1] or not 20 <= note.pitch <= 110:
            continue
        known = takes.setdefault((note.pitch, note.velocity // 12, int(length * 2)), [])
        if len(known) < TAKES:
            pitch = note.pitch + rng.normal(0, manner.detune) / 100
            known.append(np.atleast_2d(instrument.sound(pitch, note.velocity, int(length * 2 + 1.01) / 2, rng)))
        audio = _shape(known[rng.integers(len(known))], note, length, rng, manner)
        audio = audio[:, :out.shape[1] - begin]
        out[:, begin:begin + audio.shape[1]] += audio
    return out


def _shape(audio: Audio, note: Note, length: float, rng: np.random.Generator, manner: Manner) -> Audio:
    """A note's own sound, cut to its length with its release, bent and muted."""
    count = min(audio.shape[1], int(length * SAMPLE_RATE))
    audio = audio[:, :count]
    if manner.expressive and note.length > 0.12:
        audio = resample_curve(audio, 2 ** (expression(note.length, count, rng) / 12))
        count = audio.shape[1]
    times = np.arange(count, dtype=np.float32) / SAMPLE_RATE
    envelope = np.exp(-np.maximum(0, times - np.float32(note.length)) * np.float32(4 / manner.release))
    if manner.muted:
        envelope *= np.exp(-times / np.float32(manner.muted))
    return audio * envelope


def expression(length: float, count: int, rng: np.random.Generator) -> NDArray[np.float64]:
    """Semitones above the written pitch over a note: slid into from below or above, bent up, with vibrato once it is
    held; for `count` samples."""
    times = np.arange(count) / SAMPLE_RATE
    curve = np.zeros(count)
    if rng.random() < 0.3:
        curve += rng.choice([-3, -2, -1, 1, 2]) * np.exp(-times / rng.uniform(0.015, 0.06))
    if length > 0.3 and rng.random() < 0.25:
        begin = rng.uniform(0.03, 0.3) * length
        curve += rng.choice([1, 2, 2, 3]) * (np.clip((times - begin) / rng.uniform(0.06, 0.25), 0, 1) - 1)
    if length > 0.25 and rng.random() < 0.7:
        growth = np.clip((times - rng.uniform(0.05, 0.3)) / 0.3, 0, 1)
        curve += rng.uniform(0.05, 0.5) * growth * np.sin(2 * np.pi * rng.uniform(4.2, 7) * times)
    return curve


def pedalled(notes: Sequence[Note], controls: Sequence[tuple[float, int, int]]) -> list[Note]:
    """Notes as long as a sustain pedal makes them. controls: (seconds, controller, value), as of a Part."""
    lifts = np.sort([seconds for seconds, _, value in controls if value == 0])
    longer = []
    for note in notes:
        end = note.start + note.length
        place = int(np.searchsorted(lifts, end))
        lifted = float(lifts[place]) if place < len(lifts) else end
        longer.append(Note(note.start, max(note.length, min(lifted - note.start, LONGEST)), note.pitch, note.velocity))
    return longer
