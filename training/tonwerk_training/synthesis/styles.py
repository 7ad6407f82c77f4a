# SPDX-License-Identifier: MIT
"""Which instrument plays what in a song: one Part, or the notes of a voice, per stem."""

from collections.abc import Sequence
from typing import TypeVar

import numpy as np

from . import styles_drums, styles_guitar, styles_keys
from .fluidsynth import DRUM_BANK, Note, Part
from .melody import write_melody
from .songs import Song, Span, Style

CHOIRS = (52, 53, 54, 85, 91)

T = TypeVar("T")


def _weighted(rng: np.random.Generator, table: Sequence[tuple[T, float]]) -> T:
    weights = np.array([weight for _, weight in table])
    return table[rng.choice(len(table), p=weights / weights.sum())][0]


def play(song: Song, styles: Sequence[Style], activity: float) -> tuple[list[Note], list[tuple[Style, Span]]]:
    """Notes of a stem, with silent sections, in one or two styles that alternate; and what was played where."""
    chosen = [styles[song.rng.integers(len(styles))] for _ in range(1 if song.rng.random() < 0.5 else 2)]
    notes: list[Note] = []
    played: list[tuple[Style, Span]] = []
    for index, span in enumerate(song.sections):
        if song.rng.random() < activity:
            style = chosen[index % len(chosen)]
            notes += style(song, span)
            played.append((style, span))
    if not played:  # a stem that was asked for is heard somewhere
        span = song.sections[len(song.sections) // 2]
        notes, played = chosen[0](song, span), [(chosen[0], span)]
    return notes, played


def _styles_by_weight(rng: np.random.Generator, table: Sequence[tuple[Style, float]], count: int = 3) -> list[Style]:
    return [_weighted(rng, table) for _ in range(count)]


def piano(song: Song, activity: float) -> Part:
    """A piano part with sustain pedal where the style wants it."""
    notes, played = play(song, styles_keys.PIANO_STYLES, activity)
    part = Part(_weighted(song.rng, styles_keys.PIANOS), notes=notes)
    if song.rng.random() < 0.7:
        for style, span in played:
            part.controls += styles_keys.pedal(song, span) if style in styles_keys.PEDALLED else []
    return part


def acoustic_guitar(song: Song, activity: float) -> Part:
    """A nylon- or steel-string guitar."""
    notes, _ = play(song, _styles_by_weight(song.rng, styles_guitar.ACOUSTIC_STYLES), activity)
    return Part(styles_guitar.STEEL if song.rng.random() < 0.62 else styles_guitar.NYLON, notes=notes)


def electric_guitar(song: Song, activity: float) -> Part:
    """An electric guitar: style first, then a sound that suits it."""
    style, programs = styles_guitar.ELECTRIC_STYLES[song.rng.integers(len(styles_guitar.ELECTRIC_STYLES))]
    notes, _ = play(song, [style], activity)
    part = Part(int(song.rng.choice(programs)), notes=notes)
    if style is styles_guitar.lead:
        part.bends = styles_guitar.bends(song, notes)
    return part


def bass(song: Song, activity: float) -> Part:
    """Finger, picked, fretless, slapped, acoustic or synthesiser bass."""
    notes, _ = play(song, _styles_by_weight(song.rng, styles_guitar.BASS_STYLES), activity)
    return Part(_weighted(song.rng, styles_guitar.BASSES), notes=notes)


def drum(song: Song, activity: float) -> Part:
    """A drum kit of the soundfont."""
    notes, _ = play(song, _styles_by_weight(song.rng, styles_drums.DRUM_STYLES), activity)
    return Part(_weighted(song.rng, styles_drums.GM_KITS), DRUM_BANK, notes)


def other(song: Song, activity: float) -> Part:
    """Any instrument that is none of the six stems."""
    programs, styles = styles_keys.OTHERS[song.rng.integers(len(styles_keys.OTHERS))]
    notes, _ = play(song, styles, activity)
    return Part(int(song.rng.choice(programs)), notes=notes)


def melody(song: Song, activity: float, low: int, high: int) -> list[Note]:
    """Notes for a singer, a little early or late, at moderately different loudness."""
    notes = []
    for span in song.sections:
        if song.rng.random() < activity:
            notes += [song.note(beat, beats, pitch, 88)
                      for beat, beats, pitch in write_melody(song, span, low, high, 0.85)]
    return notes


def choir(song: Song, activity: float) -> Part:
    """Held chords or a line of a soundfont's choir."""
    notes, _ = play(song, (styles_keys.pad, styles_keys.line), activity)
    return Part(int(song.rng.choice(CHOIRS)), notes=notes)


STEM_STYLES = {"drum": drum, "piano": piano, "acoustic_guitar": acoustic_guitar, "electric_guitar": electric_guitar,
               "bass": bass, "other": other}
