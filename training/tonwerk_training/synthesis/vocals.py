# SPDX-License-Identifier: MIT
"""The vocal stem of a song: sung by a voice, with harmonies or doubled, spoken, or a soundfont's choir."""

import numpy as np

from . import styles
from .fluidsynth import Note, Renderer
from .songs import Song
from .vocoder import Singer, speak
from .voices import Voice

KINDS = (("sung", 0.64), ("spoken", 0.21), ("choir", 0.15))


def make_vocals(song: Song, seconds: float, voices: list[Voice], font: Renderer, activity: float,
                kind: str | None = None) -> tuple[np.ndarray, str]:
    """(audio float32 [2, samples], what it is: a short description).

    voices: analysed voices; font: a Renderer for choirs. kind: one of KINDS, or None to draw one.
    """
    rng = song.rng
    kind = kind or str(rng.choice([name for name, _ in KINDS], p=[weight for _, weight in KINDS]))
    if kind == "choir":
        return font.render(styles.choir(song, activity), seconds), kind
    if kind == "spoken":
        voice = _choose(rng, voices, 0.85)
        return _place(speak(voice, song, seconds, rng), 0.0), f"spoken {voice.name}"
    voice = _choose(rng, voices, 0.55)
    return _sung(song, seconds, voice, activity), f"sung {voice.name}"


def _choose(rng: np.random.Generator, voices: list[Voice], recorded_share: float) -> Voice:
    """A voice, a recorded one with the given probability."""
    groups = [[voice for voice in voices if voice.recorded == recorded] for recorded in (True, False)]
    group = groups[0] if groups[0] and (rng.random() < recorded_share or not groups[1]) else groups[1]
    return group[rng.integers(len(group))]


def _sung(song: Song, seconds: float, voice: Voice, activity: float) -> np.ndarray:
    """A lead voice, sometimes doubled or with a second voice in thirds in parts of the song."""
    rng = song.rng
    low = int(rng.integers(45, 60))
    notes = styles.melody(song, activity, low, low + int(rng.integers(10, 17)))
    if not notes:
        notes = styles.melody(song, 1.0, low, low + 12)
    audio = _place(Singer(voice, rng).sing(notes, seconds), 0.0)
    extra = rng.random()
    if extra < 0.15:
        audio += _place(Singer(voice, rng).sing(notes, seconds), rng.uniform(-0.7, 0.7)) * 0.6
    elif extra < 0.35:
        steps = int(rng.choice([2, -2, 4]))
        upper = [Note(note.start, note.length, _third(song, note, steps), note.velocity) for note in notes]
        audio += _place(Singer(voice, rng).sing(upper, seconds), rng.uniform(-0.8, 0.8)) * rng.uniform(0.35, 0.8)
    return audio


def _third(song: Song, note: Note, steps: int) -> int:
    beat = (note.start + song.lead) * song.tempo / 60
    return song.chord(max(beat, 0)).step(note.pitch, steps)


def _place(audio: np.ndarray, pan: float) -> np.ndarray:
    """Mono to stereo at a pan of -1 to 1, the middle unchanged."""
    return np.stack([audio * min(1, 1 - pan), audio * min(1, 1 + pan)]).astype(np.float32)

