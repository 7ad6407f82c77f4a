# SPDX-License-Identifier: MIT
"""Mixes stems to chunks: which sound together, how loud, where in the room and through what."""

import numpy as np

from ..data.chunkstore import SOURCES
from ..data.stft import SAMPLE_RATE
from . import effects

# Level in decibels against the whole mix in which a stem sits. Piano and acoustic guitar are some 2.5 dB louder than
# in a usual mix: they are the hardest to learn.
LEVELS = {"vocals": -7.4, "drum": -6.8, "piano": -8.0, "acoustic_guitar": -7.7, "electric_guitar": -8.6, "bass": -8.0,
          "other": -9.3}
LEVEL_SPREAD = 3.5
OTHER_SHARE = 0.65
SPARSE_SHARE = 0.3
DROPOUT = 0.13
STRANGERS_SHARE = 0.3  # chunks whose stems come from different songs
GUITARS = ("acoustic_guitar", "electric_guitar")
PAN_WIDTH = {"vocals": 0.12, "bass": 0.05, "drum": 0.08}


def active_level(audio: np.ndarray) -> float:
    """RMS of the parts of a stem [2, samples] that sound; 0 for silence."""
    size = 4410
    frames = audio[:, :audio.shape[1] // size * size].reshape(2, -1, size)
    power = np.einsum("cts,cts->t", frames, frames) / (2 * size)
    loud = power > 1e-3 * power.max()
    return float(np.sqrt(power[loud].mean())) if power.max() > 1e-10 else 0.0


def choose_stems(rng: np.random.Generator) -> set[str]:
    """Which of SOURCES sound in a chunk: a set of names, 2 or 3 in a sparse mix."""
    stems = list(SOURCES[:-1])
    if rng.random() < SPARSE_SHARE:
        weights = np.array([0.9, 0.9, 1.6, 1.6, 1.2, 0.9])
        return set(rng.choice(stems, size=rng.integers(2, 4), replace=False, p=weights / weights.sum()))
    chosen = {stem for stem in stems if rng.random() > DROPOUT}
    if rng.random() < OTHER_SHARE:
        chosen.add("other")
    return chosen or {str(rng.choice(stems))}


def colour(audio: np.ndarray, stem: str, rng: np.random.Generator) -> np.ndarray:
    """A stem through the effects that change its sound: equaliser, doubled guitars."""
    if rng.random() < 0.6:
        audio = effects.equalise(audio, rng)
    if stem in GUITARS and rng.random() < 0.2:
        audio = effects.double_track(audio, rng)
    return audio


def treat(audio: np.ndarray, stem: str, rng: np.random.Generator, response: np.ndarray) -> np.ndarray:
    """A stem through all its effects: colour, place, room; level is set elsewhere."""
    audio = colour(audio, stem, rng)
    limit = PAN_WIDTH.get(stem, 0.6)
    audio = effects.spread(audio, rng.uniform(0.1, 1.25), float(np.clip(rng.normal(0, limit), -0.9, 0.9)))
    if rng.random() < (0.1 if stem == "bass" else 0.5):
        audio = effects.reverberate(audio, response, rng.uniform(0.05, 0.7) ** 1.5)
    return audio


def mix_chunk(sources: dict[str, np.ndarray], rng: np.random.Generator) -> np.ndarray:
    """The sources of a chunk at their places in the mix: float32 [7, 2, samples] whose sum does not clip.

    sources: audio [2, samples] by name; a name that is missing is a silent stem.
    """
    samples = next(iter(sources.values())).shape[1]
    mixed = np.zeros((len(SOURCES), 2, samples), np.float32)
    response = effects.room(rng)
    for index, stem in enumerate(SOURCES):
        if stem not in sources:
            continue
        audio = treat(sources[stem], stem, rng, response)
        level = active_level(audio)
        if level > 1e-5:
            gain = 10 ** ((LEVELS[stem] + rng.normal(0, LEVEL_SPREAD)) / 20) / level
            mixed[index] = audio * np.float32(gain)
    if rng.random() < 0.5:
        mixed = mixed[:, ::-1]
    return set_level(mixed, rng.uniform(-26, -11))


# An ordinary dense mix, as the held-out songs are: levels in dB. Over all of those together, the mixture taken as the
# estimate of a stem is at -6.7, -5.4, -9.8, -10.0, -8.2 and -7.3 dB.
ORDINARY_LEVELS = {"vocals": -6.6, "drum": -5.8, "piano": -11.3, "acoustic_guitar": -9.9, "electric_guitar": -9.7,
                   "bass": -7.6, "other": -6.5}
ORDINARY_SPREAD = 1.3
ORDINARY_LEVEL = -16.0  # RMS of the whole in dB of full scale


def mix_ordinary(sources: dict[str, np.ndarray], rng: np.random.Generator,
                 spread: float = ORDINARY_SPREAD) -> np.ndarray:
    """A conventional mix of a whole song: moderate room and places, levels as above. float32 [7, 2, samples].

    sources: audio [2, samples] by name; a name that is missing is a silent stem, for which the same numbers are drawn,
    so that two renditions with different vocals share their backing.
    """
    samples = next(iter(sources.values())).shape[1]
    mixed = np.zeros((len(SOURCES), 2, samples), np.float32)
    response = effects.room(rng)
    for index, stem in enumerate(SOURCES):
        pan = float(np.clip(rng.normal(0, 0.6 * PAN_WIDTH.get(stem, 0.6)), -0.7, 0.7))
        gain, wet, width = rng.normal(0, spread), rng.uniform(0.05, 0.35), rng.uniform(0.5, 1.1)
        audio = sources.get(stem)
        if audio is None:
            continue
        audio = effects.reverberate(effects.spread(audio, width, pan), response, 0.05 if stem == "bass" else wet)
        level = 10 ** ((ORDINARY_LEVELS[stem] + gain) / 20) / max(active_level(audio), 1e-6)
        mixed[index] = audio * np.float32(level)
    return set_level(mixed, ORDINARY_LEVEL)


def set_level(mixed: np.ndarray, level_db: float) -> np.ndarray:
    """Scales a mix to an RMS level in dB of full scale, or less if it would clip."""
    mixture = mixed.sum(axis=0)
    level = np.sqrt((mixture ** 2).mean())
    peak = np.abs(mixture).max()
    if peak < 1e-9:
        return np.ascontiguousarray(mixed)
    return np.ascontiguousarray(mixed * np.float32(min(10 ** (level_db / 20) / level, 0.99 / peak)))


def fade_edges(audio: np.ndarray, seconds: float = 0.005) -> np.ndarray:
    """Short fades at both ends of a cut-out stem [2, samples], against clicks."""
    count = int(seconds * SAMPLE_RATE)
    audio = audio.copy()
    ramp = np.linspace(0, 1, count, dtype=np.float32)
    audio[:, :count] *= ramp
    audio[:, -count:] *= ramp[::-1]
    return audio
