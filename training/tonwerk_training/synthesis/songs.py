# SPDX-License-Identifier: MIT
"""Songs written by code: tempo, key, chords and form, on which the styles of the instruments build."""

from collections.abc import Callable
from dataclasses import dataclass, field

import numpy as np

from .fluidsynth import Note

MODES = {
    "major": (0, 2, 4, 5, 7, 9, 11),
    "minor": (0, 2, 3, 5, 7, 8, 10),
    "dorian": (0, 2, 3, 5, 7, 9, 10),
    "mixolydian": (0, 2, 4, 5, 7, 9, 10),
}
# Degrees counted from 0, one chord per bar unless a bar is a pair.
PROGRESSIONS: dict[str, list[tuple]] = {
    "major": [(0, 4, 5, 3), (0, 5, 3, 4), (0, 3, 4, 3), (5, 3, 0, 4), (1, 4, 0, 0), (0, 3, 0, 4), (0, 2, 3, 4),
              ((0, 5), (1, 4), (2, 5), (1, 4)), (0, 1, 3, 0), (3, 4, 5, 0), (0, 0, 3, 3, 0, 4, 0, 4)],
    "minor": [(0, 5, 2, 6), (0, 3, 4, 0), (0, 6, 5, 4), (0, 5, 3, 4), (0, 2, 6, 3), (0, 0, 3, 0), (0, 6, 0, 6),
              ((0, 6), (5, 4)), (5, 6, 0, 0)],
    "dorian": [(0, 3, 0, 3), (0, 6, 3, 0), (0, 1, 0, 3), (0, 2, 3, 3), ((0, 3), (0, 6))],
    "mixolydian": [(0, 6, 3, 0), (0, 3, 6, 3), (0, 0, 6, 3), (0, 4, 6, 3), ((0, 6), (3, 0))],
}
BEATS = 4

Span = tuple[int, int]  # first bar, bar after the last


@dataclass
class Chord:
    """Pitch classes of a chord, root first, and the mode's scale in which it stands."""

    tones: tuple[int, ...]
    scale: tuple[int, ...]

    @property
    def root(self) -> int:
        return self.tones[0]

    def near(self, pitch: float, tones: tuple[int, ...] | None = None) -> float:
        """The chord tone (or member of `tones`) closest to a MIDI pitch."""
        choices = self.tones if tones is None else tones
        return min((pitch - 6 + (tone - pitch + 6) % 12 for tone in choices), key=lambda tone: abs(tone - pitch))

    def stack(self, low: int, count: int) -> list[int]:
        """`count` chord tones going up from the first at or above a MIDI pitch."""
        pitches = [octave * 12 + tone for octave in range(11) for tone in self.tones]
        return sorted(pitch for pitch in pitches if pitch >= low)[:count]

    def step(self, pitch: float, steps: int) -> int:
        """A MIDI pitch moved by scale steps."""
        members = sorted(octave * 12 + tone for octave in range(11) for tone in self.scale)
        index = min(range(len(members)), key=lambda place: abs(members[place] - pitch))
        return members[int(np.clip(index + steps, 0, len(members) - 1))]


@dataclass
class Song:
    """A plan in beats; time() turns beats into seconds.

    chords: one Chord per half bar. energy: per bar, 0 to 1. lead: seconds of the beginning that are left out, so that
    songs do not all start on a downbeat.
    """

    rng: np.random.Generator
    tempo: float
    swing: float
    jitter: float
    lead: float
    chords: list[Chord]
    energy: list[float]
    sections: list[Span] = field(default_factory=list)

    @property
    def bars(self) -> int:
        return len(self.energy)

    def time(self, beat: float) -> float:
        """Seconds at a beat, swung: the second half of each beat comes late."""
        whole = np.floor(beat)
        part = beat - whole
        middle = 0.5 + self.swing
        part = part / 0.5 * middle if part < 0.5 else middle + (part - 0.5) / 0.5 * (1 - middle)
        return (whole + part) * 60 / self.tempo - self.lead

    def chord(self, beat: float) -> Chord:
        """The chord that sounds at a beat."""
        return self.chords[min(int(beat // 2), len(self.chords) - 1)]

    def note(self, beat: float, beats: float, pitch: float, velocity: float, delay: float = 0.0) -> Note:
        """A Note played by a person: a little early or late, a little louder or softer. delay in seconds."""
        start = self.time(beat) + delay + self.rng.normal(0, self.jitter)
        length = max(0.03, self.time(beat + beats) - self.time(beat) - delay)
        loud = velocity * (0.8 + 0.25 * self.energy[min(int(beat // BEATS), self.bars - 1)])
        return Note(start, length, int(pitch), int(np.clip(loud + self.rng.normal(0, 5), 15, 127)))


Style = Callable[[Song, Span], list[Note]]  # what an instrument plays in a section


def _chord(scale: tuple[int, ...], key: int, degree: int, colour: str) -> Chord:
    """A chord on a degree of a scale: thirds, with a seventh, ninth or suspension by `colour`."""
    steps = {"triad": (0, 2, 4), "seventh": (0, 2, 4, 6), "ninth": (0, 2, 4, 8), "suspended": (0, 3, 4)}[colour]
    return Chord(tuple((key + scale[(degree + step) % 7]) % 12 for step in steps),
                 tuple((key + tone) % 12 for tone in scale))


def _chords(rng: np.random.Generator, bars: int, key: int, mode: str) -> list[Chord]:
    """Half-bar chords for all bars: two progressions in turn."""
    options = PROGRESSIONS[mode]
    verse, chorus = (options[index] for index in rng.integers(len(options), size=2))
    colours = rng.choice(["triad", "seventh", "ninth"], size=7, p=rng.choice([[.9, .05, .05], [.3, .5, .2]]))
    chords = []
    for bar in range(bars):
        progression = verse if (bar // 8) % 2 == 0 else chorus
        degrees = progression[bar % len(progression)]
        for degree in degrees if isinstance(degrees, tuple) else (degrees, degrees):
            colour = "suspended" if rng.random() < 0.04 else str(colours[degree])
            chords.append(_chord(MODES[mode], key, degree, colour))
    return chords


def write_song(rng: np.random.Generator, seconds: float) -> Song:
    """A new song that is long enough for `seconds` of sound."""
    tempo = float(np.clip(rng.normal(112, 24), 68, 168))
    lead = float(rng.uniform(0, 4))
    bars = int(np.ceil((seconds + lead) * tempo / 60 / BEATS)) + 1
    mode = str(rng.choice(list(MODES), p=[0.45, 0.3, 0.12, 0.13]))
    swing = float(rng.choice([0, rng.uniform(0.03, 0.17)], p=[0.7, 0.3]))
    section = int(rng.choice([2, 3, 4]))
    levels = rng.uniform(0.25, 1, size=bars // section + 1)
    jitter, key = float(rng.uniform(0.003, 0.013)), int(rng.integers(12))
    energy = [float(levels[bar // section]) for bar in range(bars)]
    return Song(rng, tempo, swing, jitter, lead, _chords(rng, bars, key, mode), energy, _sections(bars, section))


def _sections(bars: int, length: int) -> list[Span]:
    """(first bar, bar after the last) of every section."""
    return [(bar, min(bar + length, bars)) for bar in range(0, bars, length)]
