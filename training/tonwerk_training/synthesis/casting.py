# SPDX-License-Identifier: MIT
"""Which instrument plays a part: recorded notes, strings and synthesisers computed here, or a soundfont.

Soundfonts alone taught little about real guitars, and that brass, organs and clavinets are guitars: so most guitars
here are strings through amplifiers that are never the same twice, and what is none of the six stems is of many kinds.
"""

from collections.abc import Callable, Mapping
from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray

from ..data.stft import SAMPLE_RATE
from . import amplifier, plucked, styles, styles_guitar, styles_keys, synthesiser
from .fluidsynth import Note, Part, Renderer
from .playing import Instrument, Manner, pedalled, perform
from .recorded import RecordedNotes
from .songs import Song

Audio = NDArray[np.float32]
Random = np.random.Generator
ACOUSTIC_PIANOS = 3  # programs below this are pianos with strings
DOUBLED = 0.35  # share of the distorted guitars of which there are two takes, left and right
GAIN_OF = {styles_guitar.JAZZ: ("clean",), styles_guitar.CLEAN: ("clean", "clean", "crunch"),
           styles_guitar.MUTED: ("clean", "crunch"), styles_guitar.OVERDRIVEN: ("crunch", "crunch", "high"),
           styles_guitar.DISTORTED: ("high",)}
# Kinds for which there must be recorded notes.
RECORDED = {"grand piano", "upright piano", "acoustic guitar", "electric guitar", "bass guitar", "horns", "soloist",
            "violins", "tuned percussion"}
HORNS_DIVIDE = 62  # MIDI pitch from which notes go to the high ones
HORNS_HIGH, HORNS_LOW = ("trumpet", "saxophone"), ("trombone", "saxophone", "french horn")
SOLOISTS = ("trumpet", "saxophone", "trombone", "violin", "flute", "french horn", "bassoon")


def choose(rng: Random, table: Mapping[str, float]) -> str:
    """A key of a table of weights."""
    weights = np.array(list(table.values()))
    return list(table)[rng.choice(len(table), p=weights / weights.sum())]


@dataclass
class Casting:
    """Plays parts. banks: the recorded instruments by name; without any, all is computed or a soundfont's."""

    banks: dict[str, RecordedNotes]

    def _choose(self, rng: Random, table: Mapping[str, float]) -> str:
        """A key of a table of weights, of those that can be had."""
        return choose(rng, {kind: weight for kind, weight in table.items() if self.banks or kind not in RECORDED})

    def play(self, stem: str, part: Part, seconds: float, font: Renderer, rng: Random) -> tuple[Audio, str]:
        """(audio float32 [2, samples] of a part, on what it was played)."""
        players: dict[str, Callable[[Part, float, Renderer, Random], tuple[Audio, str]]] = {
            "piano": self._piano, "acoustic_guitar": self._acoustic, "electric_guitar": self._electric,
            "bass": self._bass}
        return players[stem](part, seconds, font, rng)

    def _font(self, part: Part, seconds: float, font: Renderer) -> tuple[Audio, str]:
        return font.render(part, seconds), f"font {part.bank}:{part.program}"

    def _piano(self, part: Part, seconds: float, font: Renderer, rng: Random) -> tuple[Audio, str]:
        kinds = {"grand piano": 0.45, "upright piano": 0.2, "tine": 0.03, "font": 0.32} \
            if part.program < ACOUSTIC_PIANOS else {"tine": 0.5, "font": 0.5}
        kind = self._choose(rng, kinds)
        if kind == "font":
            return self._font(part, seconds, font)
        notes = pedalled(part.notes, part.controls)
        if kind != "tine":
            return perform(self.banks[kind], notes, seconds, rng, Manner(rng.uniform(0.08, 0.3))), kind
        audio = perform(synthesiser.tine_piano(rng), notes, seconds, rng, Manner(rng.uniform(0.05, 0.2)))
        if rng.random() < 0.6:
            audio[:] = amplifier.amplify(audio.mean(axis=0), "clean", rng)
        return audio, kind

    def _acoustic(self, part: Part, seconds: float, font: Renderer, rng: Random) -> tuple[Audio, str]:
        kind = self._choose(rng, {"acoustic guitar": 0.3, "plucked strings": 0.4, "font": 0.3})
        if kind == "font":
            return self._font(part, seconds, font)
        strings: Instrument = self.banks[kind] if kind in self.banks else plucked.acoustic_guitar(rng)
        manner = Manner(rng.uniform(0.03, 0.25), expressive=rng.random() < 0.15)
        audio = perform(strings, part.notes, seconds, rng, manner)
        return amplifier.body(audio.mean(axis=0), rng), kind

    def _electric(self, part: Part, seconds: float, font: Renderer, rng: Random) -> tuple[Audio, str]:
        kind = self._choose(rng, {"electric guitar": 0.35, "plucked strings": 0.4, "font": 0.17, "font as it is": 0.08})
        if kind == "font as it is":
            return self._font(part, seconds, font)
        gain = str(rng.choice(GAIN_OF[part.program]))
        doubled = gain == "high" and rng.random() < DOUBLED
        takes = []
        same_amplifier, seed = rng.random() < 0.7, int(rng.integers(2 ** 32))
        for take in range(1 + doubled):
            dry = self._dry_guitar(kind, part, seconds, font, rng)
            takes.append(amplifier.amplify(dry, gain, np.random.default_rng(seed if same_amplifier else seed + take)))
        audio = np.stack(takes if doubled else takes * 2)
        return audio.astype(np.float32), f"{kind}, {gain}{', doubled' * doubled}"

    def _dry_guitar(self, kind: str, part: Part, seconds: float, font: Renderer, rng: Random) -> Audio:
        """An electric guitar before its amplifier, mono. Every take is a little differently timed."""
        notes = [Note(note.start + rng.normal(0, 0.006), note.length, note.pitch, note.velocity)
                 for note in part.notes]
        if kind == "font":
            clean = Part(int(rng.choice([styles_guitar.JAZZ, styles_guitar.CLEAN, styles_guitar.STEEL])), notes=notes,
                         bends=part.bends)
            return font.render(clean, seconds).mean(axis=0)
        strings: Instrument = self.banks[kind] if kind in self.banks else plucked.electric_guitar(rng)
        muted = rng.uniform(0.04, 0.25) if part.program == styles_guitar.MUTED or rng.random() < 0.08 else 0.0
        manner = Manner(rng.uniform(0.02, 0.15), muted, bool(part.bends) or rng.random() < 0.1)
        return perform(strings, notes, seconds, rng, manner).mean(axis=0)

    def _bass(self, part: Part, seconds: float, font: Renderer, rng: Random) -> tuple[Audio, str]:
        kind = self._choose(rng, {"bass guitar": 0.35, "plucked strings": 0.22, "synthesiser": 0.13, "font": 0.3})
        if kind == "font":
            audio = self._font(part, seconds, font)[0]
        else:
            player: Instrument = self.banks[kind] if kind in self.banks else \
                plucked.bass_guitar(rng) if kind == "plucked strings" else synthesiser.synthesiser_bass(rng)
            manner = Manner(rng.uniform(0.02, 0.1), expressive=rng.random() < 0.25)
            audio = perform(player, part.notes, seconds, rng, manner)
        if rng.random() < 0.5:
            gain = choose(rng, {"clean": 0.6, "crunch": 0.3, "high": 0.1})
            wet = amplifier.amplify(audio.mean(axis=0), gain, rng)
            audio = rng.uniform(0.3, 1) * wet + rng.uniform(0, 1) * audio  # the amplifier, and the bass itself beside
        return audio.astype(np.float32), kind

    def other(self, song: Song, activity: float, seconds: float, font: Renderer) -> tuple[Audio, str]:
        """An instrument, or a section, that is none of the six stems: (audio float32 [2, samples], what it is)."""
        rng = song.rng
        kind = self._choose(rng, {"horns": 0.24, "soloist": 0.1, "clavinet": 0.14, "organ": 0.13, "synthesiser": 0.17,
                            "violins": 0.04, "tuned percussion": 0.03, "font": 0.15})
        if kind == "font":
            part = styles.other(song, activity)
            return self._font(part, seconds, font)
        notes = styles.play(song, STRANGERS[kind], activity)[0]
        players = {"horns": self._horns, "soloist": self._soloist, "clavinet": self._clavinet, "organ": self._organ,
                   "synthesiser": self._synthesiser, "violins": self._violins,
                   "tuned percussion": self._tuned_percussion}
        return players[kind](notes, seconds, rng)

    def _horns(self, notes: list[Note], seconds: float, rng: Random) -> tuple[Audio, str]:
        """A section: high notes and low ones on different horns, each part on one or two of them."""
        out = np.zeros((2, int(round(seconds * SAMPLE_RATE))), np.float32)
        high, low = ([note for note in notes if (note.pitch >= HORNS_DIVIDE) == upper] for upper in (True, False))
        for own, horns in ((high, HORNS_HIGH), (low, HORNS_LOW)):
            for horn in rng.choice(horns, size=int(rng.integers(1, 3)), replace=False):
                manner = Manner(rng.uniform(0.03, 0.12), expressive=rng.random() < 0.4, detune=8)
                late = [Note(note.start + abs(rng.normal(0, 0.012)), note.length, note.pitch, note.velocity)
                        for note in own]
                out += perform(self.banks[horn], late, seconds, rng, manner)
        return out, "horns"

    def _soloist(self, notes: list[Note], seconds: float, rng: Random) -> tuple[Audio, str]:
        name = str(rng.choice(SOLOISTS))
        return perform(self.banks[name], notes, seconds, rng, Manner(0.08, expressive=rng.random() < 0.7)), name

    def _violins(self, notes: list[Note], seconds: float, rng: Random) -> tuple[Audio, str]:
        """A section: several takes of the same part."""
        takes = [perform(self.banks["violin"], notes, seconds, rng, Manner(0.15, expressive=True, detune=12))
                 for _ in range(3)]
        return np.sum(takes, axis=0), "violins"

    def _tuned_percussion(self, notes: list[Note], seconds: float, rng: Random) -> tuple[Audio, str]:
        name = str(rng.choice(["harp", "xylophone"]))
        high = [Note(note.start, note.length, note.pitch + 12 * (name == "xylophone"), note.velocity) for note in notes]
        return perform(self.banks[name], high, seconds, rng, Manner(0.4)), name

    def _clavinet(self, notes: list[Note], seconds: float, rng: Random) -> tuple[Audio, str]:
        audio = perform(plucked.clavinet(rng), notes, seconds, rng, Manner(rng.uniform(0.01, 0.05)))
        amplified = amplifier.amplify(audio.mean(axis=0), choose(rng, {"clean": 0.7, "crunch": 0.3}), rng)
        return np.stack([amplified, amplified]), "clavinet"

    def _organ(self, notes: list[Note], seconds: float, rng: Random) -> tuple[Audio, str]:
        player: Instrument = self.banks["organ"] if self.banks and rng.random() < 0.25 else synthesiser.organ(rng)
        audio = perform(player, notes, seconds, rng, Manner(0.03)).mean(axis=0)
        if rng.random() < 0.6:
            audio = amplifier.amplify(audio, choose(rng, {"clean": 0.6, "crunch": 0.4}), rng)
        turning = [amplifier.modulate(audio, rng) for _ in range(2)] if rng.random() < 0.6 else [audio, audio]
        return np.stack(turning).astype(np.float32), "organ"

    def _synthesiser(self, notes: list[Note], seconds: float, rng: Random) -> tuple[Audio, str]:
        held = np.median([note.length for note in notes]) > 0.7 if notes else False
        audio = perform(synthesiser.synthesiser(rng, bool(held)), notes, seconds, rng, Manner(rng.uniform(0.03, 0.4)))
        return audio, "synthesiser"


# What each kind of stranger plays.
STRANGERS = {
    "horns": (styles_keys.stabs, styles_keys.stabs, styles_keys.line, styles_keys.riff),
    "soloist": (styles_keys.line,),
    "violins": (styles_keys.pad, styles_keys.line),
    "tuned percussion": (styles_keys.arpeggios, styles_keys.riff, styles_keys.line),
    "clavinet": (styles_keys.comping, styles_keys.riff, styles_guitar.funk, styles_keys.block_chords),
    "organ": (styles_keys.pad, styles_keys.block_chords, styles_keys.comping, styles_keys.line),
    "synthesiser": (styles_keys.pad, styles_keys.line, styles_keys.riff, styles_keys.arpeggios, styles_keys.stabs),
}
