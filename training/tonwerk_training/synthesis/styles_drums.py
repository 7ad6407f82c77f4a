# SPDX-License-Identifier: MIT
"""Drum styles: grooves of 16 steps per bar, fills, and kits."""

import numpy as np

from .fluidsynth import Note
from .songs import BEATS, Song, Span, Style

KICK, STICK, SNARE, CLAP, SNARE2, CLOSED, PEDAL, OPEN = 36, 37, 38, 39, 40, 42, 44, 46
LOW_TOM, MID_TOM, HIGH_TOM, CRASH, RIDE, RIDE_BELL = 45, 47, 50, 49, 51, 53
TAMBOURINE, COWBELL, CRASH2, SHAKER = 54, 56, 57, 70
GM_KITS = ((0, 0.46), (8, 0.14), (16, 0.12), (24, 0.08), (25, 0.06), (32, 0.06), (40, 0.08))

# One character per sixteenth: X loud, x medium, o soft (ghost), . nothing.
GROOVES = (
    {KICK: "X.......X.x.....", SNARE: "....X.......X...", CLOSED: "x.o.x.o.x.o.x.o."},
    {KICK: "X.....x.X.......", SNARE: "....X.......X..o", CLOSED: "xoxoxoxoxoxoxoxo"},
    {KICK: "X...X...X...X...", SNARE: "....X.......X...", OPEN: "..x...x...x...x."},
    {KICK: "X...X...X...X...", CLAP: "....X.......X...", CLOSED: "xoxoxoxoxoxoxoxo", SHAKER: "o.o.o.o.o.o.o.o."},
    {KICK: "X..x..x...x.....", SNARE: "....X..o.o..X...", CLOSED: "xoxoxoxoxoxxxoxo"},
    {KICK: "X.........X.....", SNARE: "....X.......X...", RIDE: "x...x.x.x...x.x."},
    {KICK: "X.x.....X.x.....", SNARE: "....X.......X...", RIDE: "x.x.x.x.x.x.x.x.", RIDE_BELL: "........x......."},
    {KICK: "X...............", SNARE: "........X.......", CLOSED: "x.x.x.x.x.x.x.x."},
    {KICK: "X.......x.......", STICK: "....x..o....x...", CLOSED: "x.o.x.o.x.o.x.o."},
    {KICK: "X..X..X.X..X..X.", SNARE: "....X.......X...", CRASH: "X...x...X...x..."},
    {KICK: "X.xX.xX.X.xX.xX.", SNARE: "....X.......X...", CLOSED: "x.x.x.x.x.x.x.x."},
    {KICK: "..X.......X.....", SNARE: "....X..o.o..X..o", CLOSED: "x.x.x.x.x.x.x.x."},
    {KICK: "X.....X...X.....", SNARE: "....X.......X...", OPEN: "..............x.", CLOSED: "x.x.x.x.x.x.x...",
     TAMBOURINE: "..x...x...x...x."},
    {RIDE: "x...x..xx...x..x", PEDAL: "....x.......x...", KICK: "o.........o.....", SNARE: "......o....o...."},
    {KICK: "X.......X.......", LOW_TOM: "..x.x.x...x.x.x.", HIGH_TOM: "......x.......x.", SNARE: "............X..."},
    {KICK: "X...x...X...x...", COWBELL: "x...x...x...x...", SNARE: "....X.......X...", CLOSED: "x.x.x.x.x.x.x.x."},
)
LOUDNESS = {"X": 112, "x": 86, "o": 52}


def groove(song: Song, span: Span) -> list[Note]:
    """A groove that repeats with small changes, a fill at the end of the section and a crash at its beginning."""
    rng, notes = song.rng, []
    pattern = GROOVES[rng.integers(len(GROOVES))]
    busy = rng.uniform(0, 0.15)
    for bar in range(*span):
        fill = bar == span[1] - 1 and rng.random() < 0.6
        last = 16 if not fill else int(rng.choice([8, 12]))
        for drum, steps in pattern.items():
            notes += [_hit(song, bar, step, drum, LOUDNESS[mark]) for step, mark in enumerate(steps[:last])
                      if mark != "." and rng.random() > 0.03]
        if busy and rng.random() < 0.7:
            notes += [_hit(song, bar, int(step), KICK, 84) for step in np.flatnonzero(rng.random(last) < busy / 2)]
        if fill:
            notes += _fill(song, bar, last)
        if bar == span[0] and rng.random() < 0.6:
            notes.append(_hit(song, bar, 0, int(rng.choice([CRASH, CRASH2])), 108))
    return notes


def _fill(song: Song, bar: int, first: int) -> list[Note]:
    """Sixteenths or eighths going down the toms."""
    rng = song.rng
    drums = [SNARE, HIGH_TOM, MID_TOM, LOW_TOM]
    step = int(rng.choice([1, 2]))
    places = range(first, 16, step)
    return [_hit(song, bar, place, drums[min(3, (place - first) * 4 // (16 - first))], rng.uniform(80, 115))
            for place in places if rng.random() < 0.9]


def sparse(song: Song, span: Span) -> list[Note]:
    """Little else than a kick, a few hats or cymbals."""
    rng, notes = song.rng, []
    drum = int(rng.choice([CLOSED, RIDE, TAMBOURINE, SHAKER, PEDAL]))
    for bar in range(*span):
        notes += [_hit(song, bar, step, drum, 80) for step in range(0, 16, 4)]
        notes += [_hit(song, bar, step, KICK, 96) for step in rng.choice([0, 4, 8, 10, 12], size=2, replace=False)]
        if rng.random() < 0.3:
            notes.append(_hit(song, bar, 8, int(rng.choice([SNARE, STICK, CLAP])), 92))
    return notes


def _hit(song: Song, bar: int, step: int, drum: int, velocity: float) -> Note:
    return song.note(bar * BEATS + step / 4, 0.25, drum, velocity)


DRUM_STYLES: tuple[tuple[Style, float], ...] = ((groove, 0.9), (sparse, 0.1))
