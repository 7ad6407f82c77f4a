# SPDX-License-Identifier: MIT
"""SCNet in double precision, operation by operation as the publication has it, and its authors' transforms."""

from collections.abc import Callable, Mapping

import numpy as np
from numpy.typing import NDArray
from sounds import frames_of, overlap_add

Values = NDArray[np.float64]
Weights = Mapping[str, NDArray[np.floating]]
Padding = tuple[tuple[int, int], tuple[int, int]]


def sigmoid(values: Values) -> Values:
    """The logistic function."""
    return 1 / (1 + np.exp(-values))


def erf(values: Values) -> Values:
    """Abramowitz and Stegun's series 7.1.5 up to 3, beyond which it is 1 to 2e-5; that is enough for norms of 1."""
    clipped = np.clip(values, -4, 4)
    total, term = np.zeros_like(clipped), clipped.copy()
    for index in range(60):
        total += term / (2 * index + 1)
        term *= -clipped ** 2 / (index + 1)
    return total * 2 / np.sqrt(np.pi)


def group_norm(values: Values, axes: tuple[int, ...], gain: Values, offset: Values) -> Values:
    """A norm over some axes together."""
    normed = (values - values.mean(axis=axes, keepdims=True)) / np.sqrt(values.var(axis=axes, keepdims=True) + 1e-5)
    return normed * gain + offset


def conv(values: Values, weight: Values, bias: Values, steps: int, padding: Padding) -> Values:
    """[channels, bins, frames] by [out, in, bins, frames]; padding: zeros before and after each axis."""
    padded = np.pad(values, ((0, 0), *padding))
    view = np.lib.stride_tricks.sliding_window_view(padded, weight.shape[2:], axis=(1, 2))
    return np.einsum("cftij,ocij->oft", view[:, ::steps], weight, optimize=True) + bias[:, None, None]


def spread(values: Values, weight: Values, bias: Values, step: int) -> Values:
    """A transposed convolution along bins, [channels, bins, frames] by [in, out, kernel, 1]."""
    kernel = weight.shape[2]
    result = np.zeros((weight.shape[1], (values.shape[1] - 1) * step + kernel, values.shape[2]))
    for place in range(kernel):
        result[:, place:place + values.shape[1] * step:step] += np.einsum("cft,co->oft", values, weight[:, :, place, 0])
    return result + bias[:, None, None]


def lstm(values: Values, weights: Weights, name: str) -> Values:
    """Both directions over [steps, others, channels]."""
    results = []
    for suffix, order in (("l0", 1), ("l0_reverse", -1)):
        w, r, b, c = (weights[f"{name}.{part}_{suffix}"] for part in ("weight_ih", "weight_hh", "bias_ih", "bias_hh"))
        hidden = cell = np.zeros((values.shape[1], r.shape[1]))
        outputs = []
        for step in (values @ w.T + b + c)[::order]:
            enter, forget, new, leave = np.split(step + hidden @ r.T, 4, axis=1)
            cell = sigmoid(forget) * cell + sigmoid(enter) * np.tanh(new)
            hidden = sigmoid(leave) * np.tanh(cell)
            outputs.append(hidden)
        results.append(np.stack(outputs[::order]))
    return np.concatenate(results, axis=2)


class Reference:
    """The network on spectra [4, bins, frames]."""

    def __init__(self, weights: Weights, shares: tuple[float, float]) -> None:
        self.weights = {name: values.astype(np.float64) for name, values in weights.items()}
        self.shares = shares

    def layer(self, name: str) -> tuple[Values, Values]:
        return self.weights[f"{name}.weight"], self.weights[f"{name}.bias"]

    def count(self, pattern: str) -> int:
        return next(count for count in range(100) if pattern.format(count) not in self.weights)

    def __call__(self, spectrum: np.ndarray) -> Values:
        mean, deviation = spectrum.mean(), spectrum.std(ddof=1)
        value = (spectrum - mean) / (1e-5 + deviation)
        blocks = self.count("encoder.{}.globalconv.weight")
        kept = []
        for block in range(blocks):
            value, *seen = self.down(block, value)
            kept.append(seen)
        for index in range(self.count("separation_net.dp_modules.{}.norm_layers.0.weight")):
            value = self.dual_path(f"separation_net.dp_modules.{index}", value)
            value = self.turn(value) if index % 2 == 0 else self.turn_back(value, spectrum.shape[2])
        for index in range(blocks):
            value = self.up(index, value, *kept.pop())
        return value * deviation + mean

    def down(self, block: int, value: Values) -> tuple[Values, Values, list[int], list[int]]:
        first, second = (int(np.ceil(value.shape[1] * share)) for share in np.cumsum(self.shares))
        done, before, after = [], [], []
        for band, piece in enumerate(np.split(value, [first, second], axis=1)):
            weight, bias = self.layer(f"encoder.{block}.SDlayer.convs.{band}")
            kernel, step = weight.shape[2], weight.shape[2] if band else 1
            zeros = -piece.shape[1] % step if band else kernel - 1
            thin = conv(piece, weight, bias, step, ((zeros // 2, zeros - zeros // 2), (0, 0)))
            part = f"encoder.{block}.conv_modules.{band}.layers"
            for depth in range(self.count(part + ".{}.0.weight")):
                thin = thin + self.residual(f"{part}.{depth}", thin)
            done.append(thin * (1 + erf(thin / np.sqrt(2))) / 2)
            before.append(piece.shape[1])
            after.append(thin.shape[1])
        skip = np.concatenate(done, axis=1)
        return conv(skip, *self.layer(f"encoder.{block}.globalconv"), 1, ((1, 1), (1, 1))), skip, before, after

    def residual(self, name: str, value: Values) -> Values:
        def along_frames(values: Values, part: int, groups: int = 1) -> Values:
            weight, bias = self.layer(f"{name}.{part}")
            if groups > 1:
                weight = weight * np.eye(groups)[:, :, None]
            ends = weight.shape[2] // 2
            return conv(values, weight[:, :, None], bias, 1, ((0, 0), (ends, ends)))

        def norm(values: Values, part: int) -> Values:
            return group_norm(values, (0, 2), *(each[:, None, None] for each in self.layer(f"{name}.{part}")))

        signal, gate = np.split(along_frames(norm(value, 0), 1), 2)
        gated = signal * sigmoid(gate)
        normed = norm(along_frames(gated, 3, len(gated)), 4)
        return along_frames(normed * sigmoid(normed), 6)

    def dual_path(self, name: str, value: Values) -> Values:
        for path, order in enumerate(((1, 2, 0), (2, 1, 0))):
            gain, offset = (each[:, None, None] for each in self.layer(f"{name}.norm_layers.{path}"))
            normed = group_norm(value, (0, 1, 2), gain, offset).transpose(order)
            weight, bias = self.layer(f"{name}.linear_layers.{path}")
            joined = lstm(normed, self.weights, f"{name}.lstm_layers.{path}") @ weight.T + bias
            value = value + joined.transpose(np.argsort(order))
        return value

    @staticmethod
    def turn(value: Values) -> Values:
        turned = np.fft.rfft(value, axis=2, norm="ortho")
        return np.concatenate([turned.real, turned.imag])

    @staticmethod
    def turn_back(value: Values, frames: int) -> Values:
        real, imaginary = np.split(value, 2)
        return np.fft.irfft(real + 1j * imaginary, frames, axis=2, norm="ortho")

    def up(self, index: int, value: Values, skip: Values, before: list[int], after: list[int]) -> Values:
        twice = np.concatenate([value + skip] * 2)
        signal, gate = np.split(conv(twice, *self.layer(f"decoder.{index}.0.conv"), 1, ((1, 1), (1, 1))), 2)
        gated = signal * sigmoid(gate)
        done = []
        for band, piece in enumerate(np.split(gated, np.cumsum(after)[:2], axis=1)):
            weight, bias = self.layer(f"decoder.{index}.1.convtrs.{band}")
            wide = spread(piece, weight, bias, weight.shape[2] if band else 1)
            first = abs(wide.shape[1] - before[band]) // 2
            done.append(wide[:, first:first + before[band]])
        return np.concatenate(done, axis=1)


def separate(network: Callable[[Values], Values], sound: np.ndarray) -> np.ndarray:
    """Sources [sources, 2, samples] of sound [2, samples] whose ends are those of the first and the last frame, by the
    transforms that the authors use."""
    bins = np.fft.rfft(frames_of(sound, 1.0)) / 64
    planes = np.stack([bins.real, bins.imag], axis=1).reshape(4, -1, 2049).transpose(0, 2, 1)
    results = network(planes).reshape(-1, 2, 2, 2049, planes.shape[2]).transpose(0, 1, 2, 4, 3) * 64
    return overlap_add(np.fft.irfft(results[:, :, 0] + 1j * results[:, :, 1], 4096), 1.0)
