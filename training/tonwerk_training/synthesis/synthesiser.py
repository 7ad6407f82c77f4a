# SPDX-License-Identifier: MIT
"""Synthesisers, organs and electric pianos: instruments whose tones are sums of partials by rule."""

from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray

from .plucked import from_spectra, partials_of

Audio = NDArray[np.float32]
DRAWBARS = (1, 3, 2, 4, 6, 8, 10, 12, 16)  # of an organ, as partials of the octave below the key


@dataclass
class Synthesiser:
    """Detuned oscillators through a filter that closes. odd: 1 is a square wave, 0 a saw; width: of a pulse; cutoff and
    opening: partial numbers at which the filter ends and begins; decay: seconds; attack: seconds."""

    voices: int
    detune: float
    odd: float
    width: float
    cutoff: float
    opening: float
    resonance: float
    decay: float
    attack: float

    def sound(self, pitch: float, velocity: float, seconds: float, rng: np.random.Generator) -> Audio:
        """A note at a MIDI pitch: float32 [2, samples]."""
        frequency = 440 * 2 ** ((pitch - 69) / 12)
        sides = [[self._oscillator(frequency * 2 ** (rng.normal(0, self.detune) / 12), velocity, seconds, rng)
                  for _ in range(self.voices)] for _ in range(2 if self.voices > 1 else 1)]
        count = min(len(voice) for side in sides for voice in side)
        audio = np.stack([np.sum([voice[:count] for voice in side], axis=0) for side in sides])
        rise = max(20, int(self.attack * 44100))
        audio[:, :rise] *= np.linspace(0, 1, rise)[:audio.shape[1]]
        return (audio * (velocity / 127 / self.voices ** 0.5)).astype(np.float32)

    def _oscillator(self, frequency: float, velocity: float, seconds: float, rng: np.random.Generator) -> Audio:
        partials = partials_of(frequency)
        shape = np.where(partials % 2 == 0, 1 - self.odd, 1.0) * np.sin(np.pi * partials * self.width) / partials
        phases = np.exp(2j * np.pi * partials * rng.random())
        times = np.arange(int(seconds * frequency) + 2)[:, None] / frequency
        edge = self.cutoff + self.opening * velocity / 127 * np.exp(-times / self.decay)
        ratio = (partials / edge) ** 2
        filtered = 1 / np.sqrt((1 - ratio) ** 2 + ratio / self.resonance ** 2)
        return from_spectra(shape * phases * np.minimum(filtered, 4), frequency)


@dataclass
class Organ:
    """A drawbar organ: levels of DRAWBARS, 0 to 1."""

    levels: NDArray[np.float64]

    def sound(self, pitch: float, velocity: float, seconds: float, _rng: np.random.Generator) -> Audio:
        """A note at a MIDI pitch, held: float32 [samples]. An organ does not know how hard a key is struck."""
        frequency = 220 * 2 ** ((pitch - 69) / 12)
        spectrum = np.zeros(max(DRAWBARS), complex)
        spectrum[np.array(DRAWBARS) - 1] = self.levels * -0.5j
        kept = spectrum[:len(partials_of(frequency))]
        return from_spectra(np.tile(kept, (int(seconds * frequency) + 2, 1)), frequency) * np.float32(0.5)


@dataclass
class TinePiano:
    """An electric piano: a tine's tone, warmer or sharper with the pickup's place, and its bell."""

    bite: float
    bell: float
    ring: float

    def sound(self, pitch: float, velocity: float, seconds: float, rng: np.random.Generator) -> Audio:
        """A note at a MIDI pitch that rings freely: float32 [samples]."""
        frequency = 440 * 2 ** ((pitch - 69) / 12)
        partials = partials_of(frequency)[:12]
        times = np.arange(int(seconds * frequency) + 2)[:, None] / frequency
        force = self.bite * (velocity / 127) ** 1.5
        shape = force ** (partials - 1.0) * rng.uniform(0.8, 1.2, len(partials))
        losses = np.log(1000) / self.ring * (0.7 + 0.3 * partials) * np.sqrt(frequency / 220)
        spectra = shape * np.exp(-times * losses) * -0.5j
        if len(partials) > 7:
            spectra[:, 6:7] += self.bell * velocity / 127 * np.exp(times * (2j * np.pi * 0.27 * frequency - 18))
        return from_spectra(spectra, frequency) * np.float32((velocity / 127) ** 1.2)


def synthesiser(rng: np.random.Generator, held: bool) -> Synthesiser:
    """A patch by chance: one for held chords, or one for lines and figures."""
    opening = float(np.exp(rng.uniform(0, 4)))
    odd = float(rng.choice([0, 0, 1, rng.random()]))
    return Synthesiser(int(rng.choice([1, 2, 3, 5])), rng.uniform(0.01, 0.2), odd, rng.uniform(0.1, 0.5),
                       float(np.exp(rng.uniform(0.3, 3.5))), opening, rng.uniform(0.6, 3),
                       rng.uniform(0.05, 0.8) * (4 if held else 1), rng.uniform(0.02, 0.5) if held else
                       rng.uniform(0.001, 0.03))


def synthesiser_bass(rng: np.random.Generator) -> Synthesiser:
    """A patch for basses: few voices, dark to biting."""
    return Synthesiser(int(rng.choice([1, 1, 2])), rng.uniform(0, 0.08), float(rng.choice([0, 1, rng.random()])),
                       rng.uniform(0.2, 0.5), rng.uniform(1, 8), float(np.exp(rng.uniform(0, 4))),
                       rng.uniform(0.6, 3), rng.uniform(0.04, 0.6), rng.uniform(0.001, 0.01))


def organ(rng: np.random.Generator) -> Organ:
    """Drawbars by chance, the lower ones further out."""
    return Organ(np.clip(rng.uniform(0, 1.3, 9) * np.array([1, .8, 1.2, .8, .6, .6, .4, .4, .6]), 0, 1))


def tine_piano(rng: np.random.Generator) -> TinePiano:
    """An electric piano by chance."""
    return TinePiano(rng.uniform(0.2, 0.75), rng.uniform(0, 0.5), rng.uniform(2, 8))
