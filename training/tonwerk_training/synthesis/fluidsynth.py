# SPDX-License-Identifier: MIT
"""Renders notes with soundfonts through FluidSynth's C interface: one process, every font loaded once.

Effects are off: reverberation and the like belong to the mixing stage, where they vary.
"""

import ctypes
import ctypes.util
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np

from ..data.stft import SAMPLE_RATE

BLOCK = 64  # FluidSynth computes in blocks of 64 samples, so events fall on multiples of 1.5 ms
FAILED = -1
TRAINING_FONTS = {
    "fluid": "/usr/share/sounds/sf2/FluidR3_GM.sf2",
    "musescore": "/usr/share/sounds/sf3/MuseScore_General_Full.sf3",
    "csound": "/usr/share/sounds/sf2/sf_GMbank.sf2",
}
HELD_OUT_FONTS = {"timgm": "/usr/share/sounds/sf2/TimGM6mb.sf2"}
DRUM_BANK = 128
MELODIC_CHANNEL, DRUM_CHANNEL = 0, 9
RESET_CONTROLLERS = 121
# Generators by their numbers in SoundFont 2.04, section 8.1.3; units in brackets. They are offsets to the font's own.
FILTER_CUTOFF, FILTER_RESONANCE = 8, 9  # [cents, centibels]
ATTACK, DECAY, RELEASE = 34, 36, 38  # of the volume's envelope [timecents]
COARSE_TUNE, FINE_TUNE = 51, 52  # [semitones, cents]


@dataclass
class Note:
    """One note: start and length in seconds, MIDI pitch, velocity 1 to 127."""

    start: float
    length: float
    pitch: int
    velocity: int


@dataclass
class Part:
    """What one instrument plays. controls: (seconds, controller, value); bends: (seconds, semitones, within 2).

    timbre: offsets of generators, by number. borrow: notes take the samples of the key so many semitones higher, tuned
    back: the same pitch from another string, so to say.
    """

    program: int
    bank: int = 0
    notes: list[Note] = field(default_factory=list)
    controls: list[tuple[float, int, int]] = field(default_factory=list)
    bends: list[tuple[float, float]] = field(default_factory=list)
    timbre: dict[int, float] = field(default_factory=dict)
    borrow: int = 0


def vary_timbre(part: Part, rng: np.random.Generator) -> None:
    """Makes a Part another instrument of its kind, so that a network does not learn a font's few samples by heart."""
    if rng.random() < 0.6:
        part.timbre[FILTER_CUTOFF] = -rng.uniform(0, 3200)
        part.timbre[FILTER_RESONANCE] = rng.uniform(0, 60)
    if rng.random() < 0.3:
        part.timbre[ATTACK] = rng.uniform(0, 5000)
    part.timbre[DECAY], part.timbre[RELEASE] = rng.normal(0, 700), rng.normal(0, 700)
    part.timbre[FINE_TUNE] = rng.normal(0, 8 if part.bank != DRUM_BANK else 120)
    if part.bank != DRUM_BANK and rng.random() < 0.7:
        part.borrow = int(rng.integers(-5, 6))


def _library() -> ctypes.CDLL:
    library = ctypes.CDLL(ctypes.util.find_library("fluidsynth") or "libfluidsynth.so.3")
    pointer, integer, text = ctypes.c_void_p, ctypes.c_int, ctypes.c_char_p
    signatures = {
        "new_fluid_settings": (pointer, []),
        "fluid_settings_setnum": (integer, [pointer, text, ctypes.c_double]),
        "fluid_settings_setint": (integer, [pointer, text, integer]),
        "new_fluid_synth": (pointer, [pointer]),
        "fluid_synth_sfload": (integer, [pointer, text, integer]),
        "fluid_synth_program_select": (integer, [pointer, integer, integer, integer, integer]),
        "fluid_synth_noteon": (integer, [pointer, integer, integer, integer]),
        "fluid_synth_noteoff": (integer, [pointer, integer, integer]),
        "fluid_synth_cc": (integer, [pointer, integer, integer, integer]),
        "fluid_synth_pitch_bend": (integer, [pointer, integer, integer]),
        "fluid_synth_set_gen": (integer, [pointer, integer, integer, ctypes.c_float]),
        "fluid_synth_all_sounds_off": (integer, [pointer, integer]),
        "fluid_synth_pin_preset": (integer, [pointer, integer, integer, integer]),
        "fluid_synth_write_float": (integer, [pointer, integer] + [pointer, integer, integer] * 2),
        "fluid_set_log_function": (pointer, [integer, pointer, pointer]),
    }
    for name, (result, arguments) in signatures.items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library


class Renderer:
    """One soundfont, ready to play. Not for use by several threads."""

    def __init__(self, path: str | Path) -> None:
        self._library = _library()
        for level in range(5):
            self._library.fluid_set_log_function(level, None, None)
        settings = self._library.new_fluid_settings()
        for name, value in ((b"synth.sample-rate", float(SAMPLE_RATE)), (b"synth.gain", 0.5)):
            self._library.fluid_settings_setnum(settings, name, value)
        for name, value in ((b"synth.reverb.active", 0), (b"synth.chorus.active", 0), (b"synth.polyphony", 200),
                            (b"synth.dynamic-sample-loading", 1)):
            self._library.fluid_settings_setint(settings, name, value)
        self._synth = self._library.new_fluid_synth(settings)
        self._font = self._library.fluid_synth_sfload(self._synth, str(path).encode(), 0)
        if self._font == FAILED:
            raise RuntimeError(f"FluidSynth cannot load the soundfont {path}.")

    def render(self, part: Part, seconds: float) -> np.ndarray:
        """Audio of a Part: float32 [2, samples]. Notes before 0 are left out, those that sound at the end cut."""
        channel = DRUM_CHANNEL if part.bank == DRUM_BANK else MELODIC_CHANNEL
        self._silence()
        # Pinned samples stay in memory: MuseScore's are compressed, and decoding them takes longer than playing them.
        self._library.fluid_synth_pin_preset(self._synth, self._font, part.bank, part.program)
        chosen = self._library.fluid_synth_program_select(self._synth, channel, self._font, part.bank, part.program)
        if chosen == FAILED:
            raise RuntimeError(f"The soundfont has no instrument {part.bank}:{part.program}.")
        for generator, offset in {**part.timbre, COARSE_TUNE: -part.borrow}.items():
            self._library.fluid_synth_set_gen(self._synth, channel, generator, float(offset))
        total = int(round(seconds * SAMPLE_RATE))
        audio = np.zeros((2, -(-total // BLOCK) * BLOCK), np.float32)
        position = 0
        for block, action in self._events(part, channel):
            block = min(block, audio.shape[1] // BLOCK)
            position = self._advance(audio, position, block * BLOCK)
            action()
        self._advance(audio, position, audio.shape[1])
        return audio[:, :total]

    def _silence(self) -> None:
        """Ends what still sounds of the last part and resets its controllers, its timbre and the pitch wheel.

        A reset of the whole synthesiser would let voices go on for half a second and load default instruments.
        """
        self._library.fluid_synth_all_sounds_off(self._synth, -1)
        self._advance(np.zeros((2, 4 * BLOCK), np.float32), 0, 4 * BLOCK)
        for channel in (MELODIC_CHANNEL, DRUM_CHANNEL):
            self._library.fluid_synth_cc(self._synth, channel, RESET_CONTROLLERS, 0)

    def _events(self, part: Part, channel: int) -> list[tuple[int, Callable[[], int]]]:
        """(block, call) in the order in which they happen; at one time ends of notes come before beginnings."""
        synth, library = self._synth, self._library
        events: list[tuple[int, int, int, Callable[[], int]]] = []

        def add(seconds: float, rank: int, function: Callable[..., int], *arguments: int) -> None:
            block = max(0, int(seconds * SAMPLE_RATE / BLOCK))
            events.append((block, rank, len(events), lambda: function(synth, channel, *arguments)))

        for seconds, controller, value in part.controls:
            add(seconds, 0, library.fluid_synth_cc, controller, int(np.clip(value, 0, 127)))
        for seconds, semitones in part.bends:
            add(seconds, 0, library.fluid_synth_pitch_bend, int(np.clip(8192 + semitones * 4096, 0, 16383)))
        for note in part.notes:
            key = int(note.pitch) + part.borrow
            if not 0 < key < 128 or note.start < 0:
                continue
            velocity = int(np.clip(note.velocity, 1, 127))
            add(note.start, 2, library.fluid_synth_noteon, key, velocity)
            add(note.start + max(note.length, 0.02), 1, library.fluid_synth_noteoff, key)
        return [(block, action) for block, _, _, action in sorted(events, key=lambda event: event[:3])]

    def _advance(self, audio: np.ndarray, position: int, end: int) -> int:
        """Renders up to the sample `end` and returns it."""
        if end > position:
            left, right = audio[0, position:end], audio[1, position:end]
            self._library.fluid_synth_write_float(self._synth, end - position, left.ctypes.data, 0, 1,
                                                  right.ctypes.data, 0, 1)
        return max(end, position)


def load_fonts(fonts: dict[str, str]) -> dict[str, Renderer]:
    """Renderers by name for a table such as TRAINING_FONTS."""
    return {name: Renderer(path) for name, path in fonts.items()}
