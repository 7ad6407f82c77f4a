# SPDX-License-Identifier: MIT
"""What is measured of each stem while it is made."""

import math
from typing import Any

import numpy as np
import scipy.signal
from numpy.typing import NDArray

from tonwerk.streams import Samples

_QUIETEST_ACTIVE = 10.0 ** (-50 / 20)
_WINDOW_SECONDS = 0.05
_LONGEST_PAUSE = 0.5


def decibels(amplitude: float) -> float | None:
    """In dBFS, to a thousandth; None for silence, as JSON has no infinity."""
    return round(20 * math.log10(amplitude), 3) if amplitude > 0 else None


def k_weighting(rate: int) -> NDArray[np.float64]:
    """The filter of ITU-R BS.1770-4 for any rate, as two second-order sections. The recommendation has coefficients for
    48 kHz; these are the analogue prototypes that give them (De Man, "Evaluation of implementations of the EBU R128
    loudness measurement", AES convention 145, 2018)."""
    k = math.tan(math.pi * 1681.974450955533 / rate)
    quality, gain = 0.7071752369554196, 10 ** (3.999843853973347 / 20)
    root = gain ** 0.4996667741545416
    over = 1 + k / quality + k * k
    shelf = [(gain + root * k / quality + k * k) / over, 2 * (k * k - gain) / over,
             (gain - root * k / quality + k * k) / over, 1, 2 * (k * k - 1) / over, (1 - k / quality + k * k) / over]
    k, quality = math.tan(math.pi * 38.13547087602444 / rate), 0.5003270373238773
    over = 1 + k / quality + k * k
    high_pass = [1, -2, 1, 1, 2 * (k * k - 1) / over, (1 - k / quality + k * k) / over]
    return np.array([shelf, high_pass])


class _Windows:
    """Sums the squares of windows of equal length, over blocks of any size."""

    def __init__(self, frames: int) -> None:
        self._frames = frames
        self._rest: NDArray[np.float64] = np.zeros(0)
        self.sums: list[NDArray[np.float64]] = []

    def feed(self, squares: NDArray[np.float64]) -> None:
        joined = np.concatenate([self._rest, squares])
        whole = len(joined) // self._frames * self._frames
        self.sums.append(joined[:whole].reshape(-1, self._frames).sum(axis=1))
        self._rest = joined[whole:].copy()

    def all(self, with_rest: bool) -> NDArray[np.float64]:
        rest = [np.array([self._rest.sum()])] if with_rest and len(self._rest) else []
        return np.concatenate([*self.sums, *rest]) if self.sums or rest else np.zeros(0)


class Meter:
    """Peak, integrated loudness (ITU-R BS.1770-4) and active parts (RMS of 50 ms above -50 dBFS, shorter pauses than
    half a second bridged) of one stem. Keeps 240 bytes for each second."""

    def __init__(self, rate: int, channels: int) -> None:
        self._rate, self._channels = rate, channels
        self._filter = k_weighting(rate)
        self._state = np.zeros((2, 2, channels))
        self._loudness = _Windows(max(1, rate // 10))
        self._activity = _Windows(max(1, round(rate * _WINDOW_SECONDS)))
        self.peak = 0.0

    def feed(self, block: Samples) -> None:
        """Takes the next frames, of shape (n, channels)."""
        if not len(block):
            return
        samples = block.astype(np.float64)
        self.peak = max(self.peak, float(np.abs(block).max()))
        self._activity.feed((samples**2).mean(axis=1))
        weighted, self._state = scipy.signal.sosfilt(self._filter, samples, axis=0, zi=self._state)
        self._loudness.feed((weighted**2).sum(axis=1))

    def integrated(self, gain: float) -> float | None:
        """Loudness in LUFS to a hundredth, of blocks of 0.4 s that overlap by three quarters, gated at -70 LUFS and at
        10 LU below the mean of what that leaves; None where nothing passes the gate. A mono stem counts once."""
        tenths = self._loudness.all(with_rest=False) * gain**2
        if len(tenths) < 4:
            return None
        power = np.convolve(tenths, np.ones(4), "valid") / (4 * max(1, self._rate // 10))
        power = power[power > 10 ** ((-70 + 0.691) / 10)]
        if not len(power):
            return None
        power = power[power > 0.1 * power.mean()]
        return round(-0.691 + 10 * math.log10(power.mean()), 2)

    def active_seconds(self, gain: float) -> list[list[float]]:
        """The active parts: beginning and end in seconds, to a thousandth."""
        frames = max(1, round(self._rate * _WINDOW_SECONDS))
        loud = np.flatnonzero(np.sqrt(self._activity.all(with_rest=True) / frames) * gain > _QUIETEST_ACTIVE)
        window = frames / self._rate
        parts: list[list[float]] = []
        for place in loud:
            begin, end = float(place * window), float((place + 1) * window)
            if parts and begin - parts[-1][1] < _LONGEST_PAUSE:
                parts[-1][1] = end
            else:
                parts.append([begin, end])
        return [[round(begin, 3), round(end, 3)] for begin, end in parts]

    def described(self, gain: float) -> dict[str, Any]:
        """What a receipt says of the stem, written with that gain."""
        return {"peak_dbfs": decibels(gain * self.peak), "loudness_lufs": self.integrated(gain),
                "active_seconds": self.active_seconds(gain)}
