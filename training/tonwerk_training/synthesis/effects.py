# SPDX-License-Identifier: MIT
"""Effects that stems get before they are mixed: equaliser, drive, room, width. Audio is float32 [2, samples]."""

import numpy as np
import scipy.fft
import scipy.signal

from ..data.stft import SAMPLE_RATE


def shelf(frequency: float, gain_db: float, high: bool) -> np.ndarray:
    """Second-order section of a shelving filter, above (high) or below a frequency (the usual bilinear designs)."""
    amplitude = 10 ** (gain_db / 40)
    omega = 2 * np.pi * frequency / SAMPLE_RATE
    cosine = np.cos(omega) * (-1 if high else 1)  # a high shelf is a low shelf with the frequency axis reversed
    alpha = np.sin(omega) / np.sqrt(2) * 2 * np.sqrt(amplitude)
    sign = -1 if high else 1
    b = amplitude * np.array([amplitude + 1 - (amplitude - 1) * cosine + alpha,
                              sign * 2 * (amplitude - 1 - (amplitude + 1) * cosine),
                              amplitude + 1 - (amplitude - 1) * cosine - alpha])
    a = np.array([amplitude + 1 + (amplitude - 1) * cosine + alpha,
                  sign * -2 * (amplitude - 1 + (amplitude + 1) * cosine),
                  amplitude + 1 + (amplitude - 1) * cosine - alpha])
    return np.concatenate([b, a]) / a[0]


def peak(frequency: float, gain_db: float, quality: float) -> np.ndarray:
    """Second-order section of a peaking filter."""
    amplitude = 10 ** (gain_db / 40)
    omega = 2 * np.pi * frequency / SAMPLE_RATE
    alpha = np.sin(omega) / (2 * quality)
    b = np.array([1 + alpha * amplitude, -2 * np.cos(omega), 1 - alpha * amplitude])
    a = np.array([1 + alpha / amplitude, -2 * np.cos(omega), 1 - alpha / amplitude])
    return np.concatenate([b, a]) / a[0]


def equalise(audio: np.ndarray, rng: np.random.Generator) -> np.ndarray:
    """A random low shelf, peak and high shelf of a few decibels each."""
    sections = np.array([shelf(rng.uniform(90, 400), rng.normal(0, 2.5), False),
                         peak(np.exp(rng.uniform(np.log(250), np.log(5000))), rng.normal(0, 3), rng.uniform(0.5, 1.5)),
                         shelf(rng.uniform(2500, 8000), rng.normal(0, 3), True)])
    return scipy.signal.sosfilt(sections, audio).astype(np.float32)


def room(rng: np.random.Generator) -> np.ndarray:
    """A stereo impulse response without its direct sound: early reflections and a decaying, darkening tail."""
    seconds = float(np.exp(rng.uniform(np.log(0.15), np.log(1.4))))
    count = int(seconds * SAMPLE_RATE)
    times = np.arange(count) / SAMPLE_RATE
    tail = rng.standard_normal((2, count)).astype(np.float32) * np.exp(-6.9 * times / seconds)
    tail[:, :int(rng.uniform(0.002, 0.03) * SAMPLE_RATE)] = 0
    for delay in rng.uniform(0.004, 0.06, size=6):
        tail[rng.integers(2), int(delay * SAMPLE_RATE)] += rng.uniform(-6, 6)
    dark = scipy.signal.butter(1, rng.uniform(1800, 7000), "lowpass", fs=SAMPLE_RATE, output="sos")
    tail = scipy.signal.sosfilt(dark, tail)
    return (tail / np.sqrt((tail ** 2).sum(axis=1, keepdims=True))).astype(np.float32)


def reverberate(audio: np.ndarray, response: np.ndarray, amount: float) -> np.ndarray:
    """Adds a room to the sound; amount is the reverberation's level against the direct sound."""
    count = scipy.fft.next_fast_len(audio.shape[1] + response.shape[1] - 1, real=True)
    wet = scipy.fft.irfft(scipy.fft.rfft(audio, count) * scipy.fft.rfft(response, count), count)
    return audio + np.float32(amount) * wet[:, :audio.shape[1]].astype(np.float32)


def spread(audio: np.ndarray, width: float, pan: float) -> np.ndarray:
    """Scales the difference of the channels (0 is mono) and turns the balance, -1 to 1."""
    middle, side = audio.mean(axis=0), (audio[0] - audio[1]) * np.float32(0.5 * width)
    return np.stack([(middle + side) * np.float32(min(1, 1 - pan)), (middle - side) * np.float32(min(1, 1 + pan))])


def double_track(audio: np.ndarray, rng: np.random.Generator) -> np.ndarray:
    """A second, slightly later take on the other side, as of doubled guitars."""
    late = int(rng.uniform(0.008, 0.03) * SAMPLE_RATE)
    second = np.pad(audio.mean(axis=0), (late, 0))[:audio.shape[1]]
    return np.stack([audio.mean(axis=0), second]).astype(np.float32)
