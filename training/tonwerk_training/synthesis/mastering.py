# SPDX-License-Identifier: MIT
"""What happens to a mix on its way to a record and after: the bus, the loudness, the coding.

Whatever multiplies the mixture (a compressor's gain, but also the clipping of a sample) multiplies each stem by the
same number, so the stems still add up. What coding and noise add belongs to no stem: it goes to the last source.
"""

import subprocess
import tempfile
from pathlib import Path

import numpy as np
import scipy.signal
from numpy.typing import NDArray

from ..data.stft import SAMPLE_RATE
from . import amplifier, effects

Audio = NDArray[np.float32]
Random = np.random.Generator
SECTION = 64  # samples over which a gain that falls at once is smoothed
# Encoder, container, and rates in kbit/s.
CODECS = (("libmp3lame", "mp3", (96, 128, 160, 192, 256, 320)), ("aac", "m4a", (96, 128, 192, 256)),
          ("libvorbis", "ogg", (80, 112, 160, 192)))
CODED_SHARE, FURTHEST_DELAY = 0.35, 3000


def master(mixed: Audio, rng: Random) -> Audio:
    """A finished record of a mix [7, 2, samples] of sources, which still add up to it."""
    if rng.random() < 0.6:
        sections = np.array([effects.shelf(rng.uniform(60, 200), rng.normal(0, 1.5), False),
                             effects.peak(np.exp(rng.uniform(np.log(300), np.log(4000))), rng.normal(0, 1.5), 0.7),
                             effects.shelf(rng.uniform(4000, 10000), rng.normal(0.5, 2), True)])
        mixed = scipy.signal.sosfilt(sections, mixed).astype(np.float32)
    if rng.random() < 0.5:
        mixed = _duck(mixed, rng)
    if rng.random() < 0.7:
        curve = amplifier.gain_curve(mixed.sum(axis=0), rng.uniform(-4, 6), rng.uniform(1.5, 6),
                                     rng.uniform(0.001, 0.05), rng.uniform(0.05, 0.5))
        mixed = mixed * curve
    mixed = limit(mixed, 10 ** (rng.uniform(-23, -7) / 20), rng)
    if rng.random() < CODED_SHARE:
        mixed = code(mixed, rng)
    if rng.random() < 0.2:
        mixed[-1] += (10 ** (rng.uniform(-90, -55) / 20) * rng.standard_normal(mixed.shape[1:])).astype(np.float32)
    return np.ascontiguousarray(mixed, dtype=np.float32)


def _duck(mixed: Audio, rng: Random) -> Audio:
    """The drums push down one of the other stems, as a compressor with a side chain does."""
    drums, pushed = mixed[1], int(rng.choice([2, 3, 4, 5, 6]))
    if rng.random() < 0.4 and drums.any():
        mixed = mixed.copy()
        mixed[pushed] *= amplifier.gain_curve(drums, rng.uniform(-3, 6), rng.uniform(2, 8), 0.003,
                                              rng.uniform(0.08, 0.3))
    return mixed


def limit(mixed: Audio, level: float, rng: Random) -> Audio:
    """Brings a mix to an RMS level and its peaks below full scale, by a limiter, by bending them or by clipping."""
    mixture = mixed.sum(axis=0)
    mixed = mixed * np.float32(level / amplifier.loudness(mixture))
    mixture = mixed.sum(axis=0)
    peak = float(np.abs(mixture).max())
    if peak < 0.99:
        return mixed
    kind = rng.random()
    if kind < 0.6:
        return mixed * _limiter(mixture)
    bent = np.tanh(mixture) if kind < 0.85 else np.clip(mixture, -0.99, 0.99)
    gain = np.where(np.abs(mixture) > 1e-4, bent / np.where(np.abs(mixture) > 1e-4, mixture, 1), 1)
    return (mixed * gain).astype(np.float32)


def _limiter(mixture: Audio) -> Audio:
    """The gain that keeps the peaks of a mixture below full scale: down ahead of them, up again in 50 ms."""
    count = -(-mixture.shape[1] // SECTION)
    peaks = np.pad(np.abs(mixture).max(axis=0), (0, count * SECTION - mixture.shape[1])).reshape(count, -1).max(axis=1)
    around = np.maximum(peaks, np.maximum(np.roll(peaks, 1), np.roll(peaks, -1)))
    wanted = np.minimum(0, np.log(0.98 / np.maximum(around, 1e-6)))
    followed, gain, keep = 0.0, np.empty(count), float(np.exp(-SECTION / SAMPLE_RATE / 0.05))
    for index, target in enumerate(wanted.tolist()):
        followed = min(target, followed * keep)
        gain[index] = followed
    curve = np.interp(np.arange(mixture.shape[1]), np.arange(count) * SECTION + SECTION / 2, np.exp(gain))
    return curve.astype(np.float32)


def code(mixed: Audio, rng: Random) -> Audio:
    """A mix whose mixture went through a lossy coder. What that changed is added to the last source."""
    encoder, ending, rates = CODECS[rng.integers(len(CODECS))]
    mixture = mixed.sum(axis=0)
    with tempfile.TemporaryDirectory() as scratch:
        coded = Path(scratch) / f"mix.{ending}"
        raw = ["-f", "f32le", "-ar", str(SAMPLE_RATE), "-ac", "2"]
        _ffmpeg([*raw, "-i", "pipe:0", "-c:a", encoder, "-b:a", f"{rng.choice(rates)}k", str(coded)],
                np.clip(mixture, -1, 1).T.tobytes())
        decoded = _ffmpeg(["-i", str(coded), *raw, "pipe:1"], b"")
    audio = np.frombuffer(decoded, np.float32).reshape(-1, 2).T
    audio = np.pad(audio, ((0, 0), (0, max(0, mixture.shape[1] - audio.shape[1]))))[:, :mixture.shape[1]]
    if abs(delay(mixture, audio)) > 0 or not mixture.any():
        return mixed  # a coder that shifts its sound would make every mask wrong
    mixed = mixed.copy()
    mixed[-1] += audio - mixture
    return mixed


def delay(one: Audio, other: Audio) -> int:
    """Samples by which `other` [2, samples] is later than `one`, FURTHEST_DELAY at most."""
    first, second = one.mean(axis=0), other.mean(axis=0)
    size = 2 * len(first)
    correlation = np.fft.irfft(np.fft.rfft(second, size) * np.conj(np.fft.rfft(first, size)), size)
    near = np.concatenate([correlation[-FURTHEST_DELAY:], correlation[:FURTHEST_DELAY + 1]])
    return int(np.argmax(near)) - FURTHEST_DELAY


def _ffmpeg(arguments: list[str], sound: bytes) -> bytes:
    run = subprocess.run(["ffmpeg", "-v", "error", *arguments], input=sound, capture_output=True, check=False)
    if run.returncode != 0:
        raise RuntimeError(f"ffmpeg: {run.stderr.decode(errors='replace').strip()}")
    return run.stdout
