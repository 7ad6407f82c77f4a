# SPDX-License-Identifier: MIT
"""Guitar styles, acoustic and electric, and bass styles."""

from collections.abc import Sequence

import numpy as np

from .fluidsynth import Note
from .melody import write_melody
from .songs import BEATS, Chord, Song, Span, Style

NYLON, STEEL = 24, 25
JAZZ, CLEAN, MUTED, OVERDRIVEN, DISTORTED = 26, 27, 28, 29, 30
OPEN_STRINGS = (40, 45, 50, 55, 59, 64)
Stroke = tuple[float, str, float]  # beat of the bar, d(own) or u(p), weight
STRUMS: tuple[tuple[Stroke, ...], ...] = (
    ((0, "d", 1), (1, "d", .8), (1.5, "u", .7), (2.5, "u", .7), (3, "d", .9), (3.5, "u", .7)),
    ((0, "d", 1), (1, "d", .8), (2, "d", .9), (3, "d", .8)),
    tuple((index * 0.5, "du"[index % 2], .95 if index % 4 == 0 else .7) for index in range(8)),
    ((0, "d", 1), (0.75, "u", .7), (1.5, "u", .8), (2, "d", .9), (2.75, "u", .7), (3.5, "u", .8)),
    tuple((index * 0.25, "du"[index % 2], .95 if index % 4 == 0 else .6) for index in range(16)),
    ((0, "d", 1), (2, "d", .85), (3, "d", .7), (3.5, "u", .7)),
    ((0, "d", 1),),
    ((0.5, "u", .8), (1.5, "u", .8), (2.5, "u", .8), (3.5, "u", .8)),
)


def fretted(chord: Chord, position: int = 0) -> list[int]:
    """Pitches of a chord on six strings near a fret position; the lowest is the root, strings below it are silent."""
    shape: list[int] = []
    for string in OPEN_STRINGS:
        frets = [fret for fret in range(position, position + 5) if (string + fret) % 12 in chord.tones]
        if frets and (shape or (string + frets[0]) % 12 == chord.root or string > 50):
            shape.append(string + frets[0])
    return shape


def strum(song: Song, span: Span, position: int = 0, velocity: float = 78,
          patterns: Sequence[tuple[Stroke, ...]] = STRUMS, ring: float = 1.0) -> list[Note]:
    """Strummed chords: each string a few milliseconds after the one before it, downwards or upwards."""
    rng, notes = song.rng, []
    pattern = patterns[rng.integers(len(patterns))]
    speed = rng.uniform(0.005, 0.022)
    for bar in range(*span):
        for index, (offset, direction, weight) in enumerate(pattern):
            if rng.random() < 0.04:
                continue
            beat = bar * BEATS + offset
            until = pattern[index + 1][0] if index + 1 < len(pattern) else BEATS + pattern[0][0]
            shape = fretted(song.chord(beat), position)
            shape = shape if direction == "d" else shape[::-1][:rng.integers(3, 6)]
            notes += [song.note(beat, (until - offset) * ring, pitch, velocity * weight - 2 * place,
                                place * speed * rng.uniform(0.8, 1.2)) for place, pitch in enumerate(shape)]
    return notes


def high_strum(song: Song, span: Span) -> list[Note]:
    """Strumming further up the neck."""
    return strum(song, span, position=int(song.rng.integers(3, 8)))


def fingerpick(song: Song, span: Span) -> list[Note]:
    """Thumb on alternating basses, fingers on the upper strings in a fixed pattern."""
    rng, notes = song.rng, []
    step = float(rng.choice([0.5, 0.25, 0.5, 1 / 3]))
    order = rng.permutation(np.array([[3, 5, 4, 5], [4, 3, 5, 4], [5, 4, 3, 4]][rng.integers(3)]))
    position = int(rng.choice([0, 0, 2, 5]))
    for bar in range(*span):
        for index in range(int(round(BEATS / step))):
            beat = bar * BEATS + index * step
            shape = fretted(song.chord(beat), position)
            if beat % 1 == 0:
                notes.append(song.note(beat, 1.5, shape[0 if beat % 2 == 0 else min(1, len(shape) - 1)], 76))
            string = order[index % len(order)] - (6 - len(shape))
            if rng.random() < 0.85:
                notes.append(song.note(beat, step * 3, shape[int(np.clip(string, 0, len(shape) - 1))], 68))
    return notes


def classical(song: Song, span: Span) -> list[Note]:
    """A slow melody over broken chords, as on a nylon-string guitar."""
    notes = [song.note(beat, beats * 1.1, pitch, 78) for beat, beats, pitch in write_melody(song, span, 60, 79, 0.8)]
    return notes + fingerpick(song, span)


def clean_arpeggio(song: Song, span: Span) -> list[Note]:
    """Picked broken chords that ring."""
    rng, notes = song.rng, []
    order = [(0, 2, 3, 4, 3, 2), (0, 1, 2, 3, 4, 3, 2, 1), (0, 3, 2, 4)][rng.integers(3)]
    step, position = float(rng.choice([0.5, 0.5, 0.25])), int(rng.choice([0, 3, 5, 7]))
    for bar in range(*span):
        for index in range(int(BEATS / step)):
            beat = bar * BEATS + index * step
            shape = fretted(song.chord(beat), position)
            notes.append(song.note(beat, step * 3, shape[order[index % len(order)] % len(shape)], 74))
    return notes


def power_chords(song: Song, span: Span) -> list[Note]:
    """Roots, fifths and octaves, held or in eighths."""
    rng, notes = song.rng, []
    steps = [[0, 2], [0, 1, 2, 3], list(np.arange(0, 4, 0.5)), [0, 1.5, 2, 3.5], [0], [0, 0.75, 1.5, 2.5, 3]]
    pattern = steps[rng.integers(len(steps))]
    full = rng.random() < 0.6
    for bar in range(*span):
        for index, offset in enumerate(pattern):
            beat = bar * BEATS + float(offset)
            until = pattern[index + 1] if index + 1 < len(pattern) else BEATS
            root = song.chord(beat).near(45, (song.chord(beat).root,))
            chord = [root, root + 7, root + 12] if full else [root, root + 7]
            notes += [song.note(beat, (until - offset) * 0.95, pitch, 86, place * 0.004)
                      for place, pitch in enumerate(chord)]
    return notes


def palm_mute(song: Song, span: Span) -> list[Note]:
    """Damped low eighths or sixteenths with accents."""
    rng, notes = song.rng, []
    step = float(rng.choice([0.5, 0.5, 0.25]))
    accents = set(rng.choice(int(BEATS / step), size=2))
    for bar in range(*span):
        for index in range(int(BEATS / step)):
            beat = bar * BEATS + index * step
            root = song.chord(beat).near(44, (song.chord(beat).root,))
            long = index in accents
            notes += [song.note(beat, step * (0.95 if long else 0.4), pitch, 92 if long else 72)
                      for pitch in ((root, root + 7, root + 12) if long else (root, root + 7))]
    return notes


def lead(song: Song, span: Span) -> list[Note]:
    """A solo line in the upper positions."""
    return [song.note(beat, beats * 0.98, pitch, 88) for beat, beats, pitch in write_melody(song, span, 59, 84, 0.95)]


def funk(song: Song, span: Span) -> list[Note]:
    """Short sixteenth strokes on the upper strings."""
    rng, notes = song.rng, []
    places = sorted(rng.choice(np.arange(0, 4, 0.25), size=rng.integers(5, 11), replace=False))
    position = int(rng.integers(4, 9))
    for bar in range(*span):
        for offset in places:
            beat = bar * BEATS + float(offset)
            shape = fretted(song.chord(beat), position)[-3:]
            notes += [song.note(beat, 0.18, pitch, 80, place * 0.003) for place, pitch in enumerate(shape)]
    return notes


def short_strum(song: Song, span: Span) -> list[Note]:
    """Chords damped soon after the stroke."""
    return strum(song, span, position=int(song.rng.integers(3, 8)), ring=0.5)


ACOUSTIC_STYLES: tuple[tuple[Style, float], ...] = (
    (strum, 0.34), (high_strum, 0.12), (fingerpick, 0.3), (classical, 0.14), (clean_arpeggio, 0.1))
# Programs that suit each electric style.
ELECTRIC_STYLES: tuple[tuple[Style, tuple[int, ...]], ...] = (
    (power_chords, (OVERDRIVEN, DISTORTED, DISTORTED)), (palm_mute, (OVERDRIVEN, DISTORTED, MUTED)),
    (clean_arpeggio, (CLEAN, JAZZ)), (lead, (OVERDRIVEN, DISTORTED, CLEAN, JAZZ)), (funk, (CLEAN, MUTED, JAZZ)),
    (short_strum, (CLEAN, OVERDRIVEN, JAZZ)),
)
BASSES = ((32, 0.1), (33, 0.34), (34, 0.2), (35, 0.1), (36, 0.05), (37, 0.03), (38, 0.1), (39, 0.08))


def bends(song: Song, notes: list[Note]) -> list[tuple[float, float]]:
    """Vibrato and slides into some long notes of a line: (seconds, semitones)."""
    rng, wheel = song.rng, []
    for note in notes:
        if note.length < 0.3:
            continue
        rate, depth = rng.uniform(4.5, 6.5), rng.uniform(0, 0.35)
        slide = rng.choice([0, 0, -1, -2]) * (rng.random() < 0.5)
        times = np.arange(0, min(note.length, 2.5), 0.02)
        growth = np.clip((times - 0.2) / 0.3, 0, 1)
        curve = slide * np.exp(-times / 0.05) + depth * growth * np.sin(2 * np.pi * rate * times)
        wheel += [(note.start + time, float(value)) for time, value in zip(times, curve)]
        wheel.append((note.start + note.length, 0.0))
    return wheel


def _bass_root(song: Song, beat: float) -> float:
    chord = song.chord(beat)
    return chord.near(35, (chord.root,))


def root_bass(song: Song, span: Span) -> list[Note]:
    """Roots in eighths, quarters, halves or a syncopation."""
    rng, notes = song.rng, []
    patterns = [list(np.arange(0, 4, 0.5)), [0, 1, 2, 3], [0, 2], [0, 1.5, 2, 3.5], [0, 1.5, 3],
                [0, 0.75, 1.5, 2.5, 3.25]]
    pattern, gate = patterns[rng.integers(len(patterns))], rng.choice([0.6, 0.95])
    fifth = rng.random() < 0.4
    for bar in range(*span):
        for index, offset in enumerate(pattern):
            beat = bar * BEATS + float(offset)
            until = pattern[index + 1] if index + 1 < len(pattern) else BEATS
            pitch = _bass_root(song, beat) + (7 if fifth and offset >= 3 else 0)
            notes.append(song.note(beat, (until - offset) * gate, pitch, 88))
    return notes


def walking_bass(song: Song, span: Span) -> list[Note]:
    """Quarter notes through the chord, the last one a step from the next root."""
    rng, notes = song.rng, []
    for bar in range(*span):
        for index in range(4):
            beat = bar * BEATS + index
            chord = song.chord(beat)
            pitch = _bass_root(song, beat) if index % 2 == 0 and index == 0 else \
                chord.near(38, (chord.tones[int(rng.integers(len(chord.tones)))],))
            if index == 3:
                pitch = _bass_root(song, beat + 1) + int(rng.choice([-1, 1, 2]))
            notes.append(song.note(beat, 0.95, pitch, 84))
    return notes


def groove_bass(song: Song, span: Span) -> list[Note]:
    """A repeated syncopated figure with octaves and passing notes."""
    rng, notes = song.rng, []
    places = sorted({0.0, *rng.choice(np.arange(0.5, 4, 0.25), size=rng.integers(3, 8), replace=False)})
    shifts = rng.choice([0, 0, 0, 12, 7, 10, -5], size=len(places))
    for bar in range(*span):
        for offset, shift in zip(places, shifts):
            beat = bar * BEATS + float(offset)
            pitch = _bass_root(song, beat) + int(shift)
            notes.append(song.note(beat, rng.choice([0.2, 0.4, 0.6]), pitch, 90))
    return notes


def long_bass(song: Song, span: Span) -> list[Note]:
    """Held roots."""
    return [song.note(bar * BEATS + half, 2, _bass_root(song, bar * BEATS + half), 84)
            for bar in range(*span) for half in (0, 2)]


BASS_STYLES = ((root_bass, 0.45), (walking_bass, 0.15), (groove_bass, 0.28), (long_bass, 0.12))
