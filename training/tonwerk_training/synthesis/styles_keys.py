# SPDX-License-Identifier: MIT
"""Piano styles, and the styles of sustained "other" instruments that play chords."""

import numpy as np

from .fluidsynth import Note
from .melody import write_melody
from .songs import BEATS, Song, Span, Style

PIANOS = ((0, 0.42), (1, 0.24), (2, 0.1), (3, 0.06), (4, 0.1), (5, 0.08))
PEDAL = 64


def block_chords(song: Song, span: Span) -> list[Note]:
    """Chords in the right hand on a repeated rhythm, octaves in the left."""
    rng, notes = song.rng, []
    rhythm = [(0, 1), (1, 1), (2, 1), (3, 1)] if rng.random() < 0.4 else \
        [(0, 1.5), (1.5, 1.5), (3, 1)] if rng.random() < 0.5 else [(0, 2), (2, 2)]
    low, left = rng.integers(53, 65), rng.random() < 0.7
    for bar in range(*span):
        for offset, beats in rhythm:
            beat = bar * BEATS + offset
            chord = song.chord(beat)
            notes += [song.note(beat, beats * 0.95, pitch, 72) for pitch in chord.stack(low, 3 + (rng.random() < 0.3))]
            if left and offset in (0, 2):
                root = chord.near(40, (chord.root,))
                notes += [song.note(beat, beats, root, 70), song.note(beat, beats, root - 12, 62)]
    return notes


def arpeggios(song: Song, span: Span) -> list[Note]:
    """Broken chords up, up and down, or in an Alberti figure."""
    rng, notes = song.rng, []
    order = [(0, 1, 2, 3, 4, 5, 4, 3), (0, 1, 2, 3, 2, 1, 2, 1), (0, 2, 1, 2), (0, 1, 2, 4)][rng.integers(4)]
    step = float(rng.choice([0.5, 0.5, 0.25, 1 / 3]))
    low = rng.integers(45, 62)
    for bar in range(*span):
        for index in range(int(round(BEATS / step))):
            beat = bar * BEATS + index * step
            pitches = song.chord(beat).stack(low, 6)
            notes.append(song.note(beat, step * rng.uniform(1, 3), pitches[order[index % len(order)]], 66))
        if rng.random() < 0.6:
            chord = song.chord(bar * BEATS)
            notes.append(song.note(bar * BEATS, BEATS, chord.near(38, (chord.root,)), 68))
    return notes


def ballad(song: Song, span: Span) -> list[Note]:
    """Long chords, slightly broken, a low root and a few melody notes on top."""
    rng, notes = song.rng, []
    for bar in range(*span):
        for half in (0, 2):
            beat = bar * BEATS + half
            chord = song.chord(beat)
            roll = rng.uniform(0, 0.03)
            pitches = chord.stack(rng.integers(52, 60), 4)
            notes += [song.note(beat, 2, pitch, 58, index * roll) for index, pitch in enumerate(pitches)]
            notes.append(song.note(beat, 2, chord.near(36, (chord.root,)), 62))
    notes += [song.note(beat, beats, pitch, 78) for beat, beats, pitch in write_melody(song, span, 67, 86, 0.6)]
    return notes


def stride(song: Song, span: Span) -> list[Note]:
    """Low roots and fifths on the beat, chords after it."""
    rng, notes = song.rng, []
    for bar in range(*span):
        for index in range(4):
            beat = bar * BEATS + index
            chord = song.chord(beat)
            if index % 2 == 0:
                tone = chord.root if index == 0 else chord.tones[2]
                notes.append(song.note(beat, 0.8, chord.near(38, (tone,)), 74))
            else:
                notes += [song.note(beat, 0.6, pitch, 64) for pitch in chord.stack(54, 3)]
    if rng.random() < 0.7:
        notes += [song.note(beat, beats, pitch, 80) for beat, beats, pitch in write_melody(song, span, 65, 88, 0.8)]
    return notes


def comping(song: Song, span: Span) -> list[Note]:
    """Short syncopated chords without a root, as in jazz and funk."""
    rng, notes = song.rng, []
    pattern = sorted(rng.choice(np.arange(0, 4, 0.5), size=rng.integers(2, 6), replace=False))
    for bar in range(*span):
        for offset in pattern:
            if rng.random() < 0.12:
                continue
            beat = bar * BEATS + float(offset)
            chord = song.chord(beat)
            beats = rng.choice([0.3, 0.5, 1.0], p=[0.5, 0.3, 0.2])
            notes += [song.note(beat, beats, pitch, 74) for pitch in chord.stack(57, 4)[1:]]
    return notes


def solo(song: Song, span: Span) -> list[Note]:
    """A melody in single notes or octaves over sparse chords."""
    rng, notes = song.rng, []
    octave = rng.random() < 0.3
    for beat, beats, pitch in write_melody(song, span, 62, 88, 0.95):
        notes.append(song.note(beat, beats * 0.95, pitch, 84))
        if octave:
            notes.append(song.note(beat, beats * 0.95, pitch - 12, 74))
    for bar in range(*span):
        notes += [song.note(bar * BEATS, 3.5, pitch, 56) for pitch in song.chord(bar * BEATS).stack(48, 3)]
    return notes


def riff(song: Song, span: Span) -> list[Note]:
    """A repeated figure of eighths and sixteenths on chord tones."""
    rng, notes = song.rng, []
    places = sorted(rng.choice(np.arange(0, 4, 0.25), size=rng.integers(5, 10), replace=False))
    tones = rng.integers(0, 5, size=len(places))
    low = rng.integers(55, 72)
    for bar in range(*span):
        for offset, tone in zip(places, tones):
            beat = bar * BEATS + float(offset)
            notes.append(song.note(beat, 0.4, song.chord(beat).stack(low, 5)[tone], 78))
    return notes


PIANO_STYLES: tuple[Style, ...] = (block_chords, arpeggios, ballad, stride, comping, solo, riff)
PEDALLED = (block_chords, arpeggios, ballad, solo)


def pedal(song: Song, span: Span) -> list[tuple[float, int, int]]:
    """Sustain pedal changed with every half bar: (seconds, controller, value)."""
    changes = []
    for bar in range(*span):
        for half in (0, 2):
            beat = bar * BEATS + half
            changes += [(song.time(beat) + 0.005, PEDAL, 0), (song.time(beat) + 0.06, PEDAL, 127)]
    return changes + [(song.time(span[1] * BEATS) + 0.005, PEDAL, 0)]


def pad(song: Song, span: Span) -> list[Note]:
    """Held chords with little movement."""
    rng, notes = song.rng, []
    low, count = rng.integers(48, 65), rng.integers(2, 5)
    for bar in range(*span):
        for half in (0, 2):
            beat = bar * BEATS + half
            if half == 2 and song.chord(beat) == song.chord(beat - 2):
                continue
            beats = 4 if song.chord(beat) == song.chord(beat + 2) and half == 0 else 2
            notes += [song.note(beat, beats, pitch, 64) for pitch in song.chord(beat).stack(low, count)]
    return notes


def stabs(song: Song, span: Span) -> list[Note]:
    """Short chords on a few places of the bar, as brass or synthesisers play them."""
    rng, notes = song.rng, []
    pattern = sorted(rng.choice(np.arange(0, 4, 0.5), size=rng.integers(1, 4), replace=False))
    low = rng.integers(55, 67)
    for bar in range(*span):
        for offset in pattern:
            beat = bar * BEATS + float(offset)
            notes += [song.note(beat, rng.choice([0.3, 0.7]), pitch, 88) for pitch in song.chord(beat).stack(low, 3)]
    return notes


def line(song: Song, span: Span) -> list[Note]:
    """A melody."""
    low = song.rng.integers(55, 68)
    melody = write_melody(song, span, low, low + 19, 0.9)
    return [song.note(beat, beats * 0.97, pitch, 82) for beat, beats, pitch in melody]


# Programs of the seventh stem and the styles that suit them.
OTHERS: tuple[tuple[tuple[int, ...], tuple[Style, ...]], ...] = (
    ((48, 49, 50, 51, 44, 45), (pad, line, stabs)),            # strings
    ((16, 17, 18, 19, 20, 21, 22, 23), (pad, block_chords, comping, line)),  # organs, accordions, harmonica
    ((61, 62, 63, 56, 57, 60, 59), (stabs, line, pad)),        # brass
    ((64, 65, 66, 68, 70, 71, 73, 75, 79), (line,)),           # reeds and flutes
    ((88, 89, 90, 91, 92, 93, 94, 95), (pad,)),                # synthesiser pads
    ((80, 81, 82, 84, 87), (line, riff, arpeggios)),           # synthesiser leads
    ((8, 9, 11, 12, 13, 14, 46, 108), (arpeggios, riff, line)),  # mallets, bells, harp
    ((40, 41, 42, 110, 104, 105), (line,)),                    # solo strings, sitar, banjo
)
