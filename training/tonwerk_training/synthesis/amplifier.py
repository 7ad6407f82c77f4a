# SPDX-License-Identifier: MIT
"""Amplifiers, loudspeakers and pedals for guitars and basses, with parameters as wide as records have them.

Audio is float32 [samples], the sum of all strings: what distorts is the chord and not each note.
"""

import numpy as np
import scipy.signal
from numpy.typing import NDArray

from ..data.stft import SAMPLE_RATE
from . import effects

Audio = NDArray[np.float32]
OVERSAMPLED = 2  # distortion makes partials above the highest frequency, which would fold back
GAINS = {"clean": (-12.0, 6.0), "crunch": (6.0, 22.0), "high": (20.0, 44.0)}  # dB into the clipping stage


def loudness(audio: Audio) -> float:
    """RMS with a floor that is no division by nought."""
    return float(np.sqrt((audio ** 2).mean()) + 1e-9)


def amplify(audio: Audio, gain: str, rng: np.random.Generator) -> Audio:
    """A dry guitar through pedals, amplifier and loudspeaker, at its own loudness. gain: one of GAINS."""
    level = loudness(audio)
    audio = audio / np.float32(level)
    if rng.random() < 0.35:
        audio = compress(audio, rng)
    if rng.random() < 0.12:
        audio = wah(audio, rng)
    audio = _distort(_tighten(audio, gain, rng), 10 ** (rng.uniform(*GAINS[gain]) / 20), rng)
    audio = scipy.signal.sosfilt(_tone_stack(rng), audio)
    if not (gain == "clean" and rng.random() < 0.2):  # straight into the desk
        audio = scipy.signal.sosfilt(_loudspeaker(rng), audio)
    if rng.random() < 0.25:
        audio = modulate(audio.astype(np.float32), rng)
    return (audio * (level / loudness(audio))).astype(np.float32)


def _tighten(audio: Audio, gain: str, rng: np.random.Generator) -> Audio:
    """Less bass before much distortion, or it becomes mud."""
    edge = rng.uniform(40, 120) if gain == "clean" else rng.uniform(60, 450)
    return scipy.signal.sosfilt(scipy.signal.butter(1, edge, "highpass", fs=SAMPLE_RATE, output="sos"), audio)


def _distort(audio: Audio, gain: float, rng: np.random.Generator) -> Audio:
    """Soft to hard, symmetric or not, in one stage or two."""
    fast = scipy.signal.resample_poly(audio, OVERSAMPLED, 1)
    bias, hardness = rng.uniform(0, 0.5) * (rng.random() < 0.6), rng.uniform(1, 4)
    for _ in range(1 + (gain > 3 and rng.random() < 0.5)):
        driven = fast * gain + bias
        fast = driven / (1 + np.abs(driven) ** hardness) ** (1 / hardness)
        fast = fast - fast.mean()
        gain = rng.uniform(1, 4)
    return scipy.signal.resample_poly(fast, 1, OVERSAMPLED)


def _tone_stack(rng: np.random.Generator) -> NDArray[np.float64]:
    """Bass, middle (often scooped) and treble."""
    return np.array([effects.shelf(rng.uniform(80, 250), rng.normal(0, 4), False),
                     effects.peak(np.exp(rng.uniform(np.log(300), np.log(1200))), rng.normal(-2, 5),
                                  rng.uniform(0.4, 1.2)),
                     effects.shelf(rng.uniform(1500, 4000), rng.normal(0, 4), True)])


def _loudspeaker(rng: np.random.Generator) -> NDArray[np.float64]:
    """A cabinet before a microphone: a resonance at the bottom, presence, a steep end, and some peaks of its own."""
    low = scipy.signal.butter(2, rng.uniform(55, 130), "highpass", fs=SAMPLE_RATE, output="sos")
    high = scipy.signal.butter(int(rng.integers(2, 6)), rng.uniform(3000, 7500), "lowpass", fs=SAMPLE_RATE,
                               output="sos")
    peaks = [effects.peak(rng.uniform(90, 160), rng.uniform(0, 6), 1.5),
             effects.peak(rng.uniform(2000, 3800), rng.uniform(0, 8), rng.uniform(0.7, 1.5))]
    peaks += [effects.peak(np.exp(rng.uniform(np.log(250), np.log(5000))), rng.normal(0, 4), rng.uniform(1.5, 6))
              for _ in range(4)]
    return np.concatenate([low, np.array(peaks), high])


def compress(audio: Audio, rng: np.random.Generator) -> Audio:
    """A compressor with a random threshold below the mean level, ratio and times."""
    return audio * gain_curve(audio[None], rng.uniform(-14, 0), rng.uniform(2, 8), rng.uniform(0.001, 0.03),
                              rng.uniform(0.05, 0.4))


def gain_curve(audio: Audio, threshold_db: float, ratio: float, attack: float, release: float) -> Audio:
    """What a compressor multiplies its input [channels, samples] with: float32 [samples]. threshold_db is against the
    input's own RMS; attack and release are in seconds. Levels are followed in steps of 64 samples."""
    step = 64
    count = -(-audio.shape[-1] // step)
    padded = np.pad(np.abs(audio).max(axis=0), (0, count * step - audio.shape[-1]))
    level = 20 * np.log10(padded.reshape(count, step).max(axis=1) / loudness(audio) + 1e-5)
    wanted = np.minimum(0, (threshold_db - level) * (1 - 1 / ratio))
    keep_down, keep_up = (float(np.exp(-step / SAMPLE_RATE / seconds)) for seconds in (attack, release))
    gain, followed = np.empty(count), 0.0
    for index, target in enumerate(wanted.tolist()):
        keep = keep_down if target < followed else keep_up
        followed = target + keep * (followed - target)
        gain[index] = followed
    curve = np.interp(np.arange(audio.shape[-1]), np.arange(count) * step + step / 2, gain)
    return (10 ** (curve / 20)).astype(np.float32)


def wah(audio: Audio, rng: np.random.Generator) -> Audio:
    """A band that goes up and down, in blocks that fade into each other."""
    rate, low, high = rng.uniform(0.3, 4), rng.uniform(350, 600), rng.uniform(1200, 2400)
    centres = np.linspace(low, high, 6)
    bands = np.stack([scipy.signal.sosfilt(effects.peak(centre, 14, 3)[None], audio) for centre in centres])
    place = (0.5 + 0.5 * np.sin(2 * np.pi * (rate * np.arange(len(audio)) / SAMPLE_RATE + rng.random()))) * 4.999
    first = place.astype(int)
    grid = np.arange(len(audio))
    return (bands[first, grid] * (1 - place + first) + bands[first + 1, grid] * (place - first)).astype(np.float32)


def modulate(audio: Audio, rng: np.random.Generator) -> Audio:
    """Chorus or flanger, tremolo, or an echo."""
    kind, grid = rng.integers(3), np.arange(len(audio))
    if kind == 0:
        depth, base = rng.uniform(0.0005, 0.004), rng.uniform(0.001, 0.02)
        delay = base + depth * np.sin(2 * np.pi * rng.uniform(0.2, 3) * grid / SAMPLE_RATE)
        return audio + rng.uniform(0.3, 0.8) * np.interp(grid - delay * SAMPLE_RATE, grid, audio, left=0.0)
    if kind == 1:
        return audio * (1 - rng.uniform(0.2, 0.8) * (0.5 + 0.5 * np.sin(2 * np.pi * rng.uniform(2, 8) * grid
                                                                        / SAMPLE_RATE)))
    late, amount = int(rng.uniform(0.08, 0.5) * SAMPLE_RATE), rng.uniform(0.1, 0.5)
    echo = np.copy(audio)
    for repeat in range(1, 4):
        if late * repeat < len(audio):
            echo[late * repeat:] += amount ** repeat * audio[:-late * repeat]
    return echo


def body(audio: Audio, rng: np.random.Generator) -> Audio:
    """An acoustic guitar's body before two microphones: float32 [2, samples]."""
    shared = [effects.peak(rng.uniform(90, 125), rng.uniform(2, 9), rng.uniform(2, 6)),
              effects.peak(rng.uniform(170, 240), rng.uniform(0, 7), rng.uniform(2, 6))]
    sides = []
    for _ in range(2):
        own = [effects.peak(np.exp(rng.uniform(np.log(300), np.log(6000))), rng.normal(0, 4), rng.uniform(1.5, 6))
               for _ in range(6)]
        sides.append(scipy.signal.sosfilt(np.array(shared + own), audio))
    late = int(rng.integers(0, 30))
    sides[1] = np.pad(sides[1], (late, 0))[:len(audio)]
    return np.stack(sides).astype(np.float32)
