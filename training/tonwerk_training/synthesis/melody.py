# SPDX-License-Identifier: MIT
"""Melodies in phrases: what singers, lead guitars and solo instruments play."""

import numpy as np

from .songs import BEATS, Chord, Song, Span

MelodyNote = tuple[float, float, int]  # beat, beats, MIDI pitch

RHYTHMS = (
    (1, 1, 1, 1), (0.5, 0.5, 1, 0.5, 0.5, 1), (1.5, 0.5, 1, 1), (2, 1, 1), (0.5, 0.5, 0.5, 0.5, 2), (1, 0.5, 0.5, 2),
    (0.75, 0.75, 0.5, 1, 1), (3, 1), (0.5, 1, 0.5, 1, 1), (0.25, 0.25, 0.5, 0.5, 0.5, 1, 1), (4,),
    (0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 1), (1.5, 1.5, 1),
)


def write_melody(song: Song, span: Span, low: int, high: int, density: float = 0.75) -> list[MelodyNote]:
    """(beat, beats, pitch) of a melody over a span of bars, within a range of MIDI pitches.

    density: share of the bars in which it plays. Two rhythms and a contour come back, so that it has a shape.
    """
    rng = song.rng
    motifs = [RHYTHMS[index] for index in rng.integers(len(RHYTHMS), size=2)]
    contours = rng.integers(-2, 3, size=(2, 8))
    pitch = rng.uniform(low + 0.3 * (high - low), low + 0.7 * (high - low))
    melody: list[MelodyNote] = []
    for bar in range(*span):
        if rng.random() > density:
            continue
        which = int(rng.random() < 0.35)
        beat = float(bar * BEATS) + rng.choice([0, 0, 0, 0.5, 1])
        for index, beats in enumerate(motifs[which]):
            if beat >= (bar + 1) * BEATS:
                break
            beats = min(beats, (bar + 1) * BEATS - beat)
            pitch = _next_pitch(rng, song.chord(beat), pitch, contours[which][index % 8], beat, low, high)
            if rng.random() > 0.06:
                melody.append((beat, beats, int(pitch)))
            beat += beats
    return melody


def _next_pitch(rng: np.random.Generator, chord: Chord, pitch: float, step: int, beat: float, low: int,
                high: int) -> int:
    """A step of the contour; on strong beats towards a chord tone; turned back at the edges of the range."""
    step = int(step) if rng.random() > 0.1 else int(rng.integers(-4, 5))
    pitch = chord.step(pitch, step)
    if beat % 1 == 0 and rng.random() < 0.7:
        pitch = chord.near(pitch)
    while pitch > high:
        pitch -= 12
    while pitch < low:
        pitch += 12
    return int(np.clip(pitch, low, high))
