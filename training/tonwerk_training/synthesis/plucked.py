# SPDX-License-Identifier: MIT
"""Plucked strings by physics: guitars, basses and clavinets without end, none of which can be learned by heart.

A string plucked at a share p of its length and heard at a share q of it has partials n with amplitudes
sin(pi n p) sin(pi n q) / n, each of which dies away by its own losses and lies a little above n times the fundamental
because the string is stiff (Fletcher & Rossing, "The Physics of Musical Instruments", chapter 2). The sound is built
period by period: a row of one period's samples for each, between which it fades.
"""

from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray

from ..data.stft import SAMPLE_RATE

Audio = NDArray[np.float32]
HIGHEST = 9000.0  # Hz; partials above it are left out
ATTACK = 0.0015  # seconds in which a pluck rises


@dataclass
class PluckedString:
    """A set of strings of one make. pluck, pickup: places as shares of the length; ring: seconds in which the
    fundamental of 110 Hz falls by 60 dB; damping: how much faster high partials die; hardness: of what plucks, 0 to 1;
    stiffness: of the string; noise: of the stroke, against the tone."""

    pluck: float
    pickup: float
    ring: float
    damping: float
    hardness: float
    stiffness: float
    noise: float

    def sound(self, pitch: float, velocity: float, seconds: float, rng: np.random.Generator) -> Audio:
        """A note at a MIDI pitch that rings freely: float32 [samples]. velocity: 1 to 127."""
        frequency = 440 * 2 ** ((pitch - 69) / 12)
        partials = partials_of(frequency)
        losses = np.log(1000) / (self.ring * frequency * np.sqrt(110 / frequency))
        per_period = -losses * (1 + self.damping * (partials * frequency / 1000) ** 1.5)
        turns = 2j * np.pi * partials * (np.sqrt(1 + self.stiffness * partials ** 2) - 1)
        periods = np.arange(int(seconds * frequency) + 2)[:, None]
        spectra = self._strengths(partials, frequency, velocity, rng) * np.exp(periods * (per_period + turns))
        return self._finish(from_spectra(spectra, frequency), velocity, rng)

    def _strengths(self, partials: NDArray[np.int64], frequency: float, velocity: float,
                   rng: np.random.Generator) -> NDArray[np.complex128]:
        """Complex amplitudes of the partials at the stroke."""
        place = float(np.clip(self.pluck * rng.uniform(0.85, 1.15), 0.03, 0.5))
        shape = np.sin(np.pi * partials * place) * np.sin(np.pi * partials * self.pickup) / partials
        edge = 600 + 6500 * self.hardness * (velocity / 127) ** 1.2
        soft = 1 / (1 + (partials * frequency / edge) ** 2)
        phases = np.exp(2j * np.pi * 0.03 * rng.standard_normal(len(partials)))
        return shape * soft * phases * -1j

    def _finish(self, audio: Audio, velocity: float, rng: np.random.Generator) -> Audio:
        """Level by velocity, the stroke's rise and its noise."""
        peak = np.abs(audio[:2000]).max() + 1e-9
        rise = int(ATTACK * SAMPLE_RATE)
        audio[:rise] *= np.linspace(0, 1, rise, dtype=np.float32)
        stroke = rng.standard_normal(min(len(audio), 900)) * np.exp(-np.arange(min(len(audio), 900)) / 150)
        audio[:len(stroke)] += (self.noise * peak * stroke).astype(np.float32)
        return audio * np.float32((velocity / 127) ** 1.3 / peak)


def partials_of(frequency: float) -> NDArray[np.int64]:
    """The numbers of the partials of a tone that are kept, from 1."""
    period = int(round(SAMPLE_RATE / frequency))
    return np.arange(1, max(2, min(period // 2, int(HIGHEST / frequency))))


def from_spectra(spectra: NDArray[np.complex128], frequency: float) -> Audio:
    """A tone from the complex amplitudes of its partials in every period: spectra [periods, partials] to float32
    [samples]. Between periods it fades; what the rounding of the period does to the pitch is undone at the end."""
    period = int(round(SAMPLE_RATE / frequency))
    rows = np.zeros((len(spectra), period // 2 + 1), complex)
    rows[:, 1:spectra.shape[1] + 1] = spectra
    waves = np.fft.irfft(rows, period, axis=1) * period
    share = np.linspace(0, 1, period, endpoint=False)
    audio = (waves[:-1] * (1 - share) + waves[1:] * share).ravel().astype(np.float32)
    ratio = period * frequency / SAMPLE_RATE
    return resample_curve(audio, np.full(int(len(audio) / ratio), ratio))


def resample_curve(audio: Audio, ratios: NDArray[np.float64]) -> Audio:
    """Audio [..., samples] played at a speed that changes from sample to sample."""
    places = np.cumsum(ratios) - ratios[0]
    grid = np.arange(audio.shape[-1])
    rows = np.atleast_2d(audio)
    played = np.stack([np.interp(places, grid, row, right=0.0) for row in rows]).astype(np.float32)
    return played if audio.ndim > 1 else played[0]


def electric_guitar(rng: np.random.Generator) -> PluckedString:
    """The strings of an electric guitar, anything from muffled to wiry, before its amplifier."""
    return PluckedString(rng.uniform(0.06, 0.3), rng.uniform(0.05, 0.26), float(np.exp(rng.uniform(1.0, 2.6))),
                         rng.uniform(0.4, 2.5), rng.uniform(0.3, 1.0), rng.uniform(0, 2e-4), rng.uniform(0, 0.06))


def acoustic_guitar(rng: np.random.Generator) -> PluckedString:
    """Steel or nylon strings on a body, which body() adds."""
    nylon = rng.random() < 0.4
    return PluckedString(rng.uniform(0.12, 0.35), rng.uniform(0.02, 0.08), rng.uniform(1.2, 3.5 if nylon else 6),
                         rng.uniform(0.8, 3) * (2 if nylon else 1), rng.uniform(0.15, 0.6) if nylon else
                         rng.uniform(0.4, 1.0), rng.uniform(0, 1.5e-4), rng.uniform(0.02, 0.12))


def bass_guitar(rng: np.random.Generator) -> PluckedString:
    """Finger or plectrum on bass strings, dull to bright."""
    return PluckedString(rng.uniform(0.08, 0.3), rng.uniform(0.08, 0.28), rng.uniform(2, 9), rng.uniform(0.5, 4),
                         rng.uniform(0.1, 0.9), rng.uniform(0, 2e-4), rng.uniform(0, 0.08))


def clavinet(rng: np.random.Generator) -> PluckedString:
    """Struck, damped strings with pickups: percussive and nasal."""
    return PluckedString(rng.uniform(0.04, 0.16), rng.uniform(0.08, 0.25), rng.uniform(1.5, 4), rng.uniform(0.2, 1),
                         rng.uniform(0.6, 1.0), rng.uniform(1e-5, 4e-4), rng.uniform(0.03, 0.15))
