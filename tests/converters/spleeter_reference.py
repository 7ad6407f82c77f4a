# SPDX-License-Identifier: MIT
"""Spleeter's networks and masks in NumPy, in double precision and in TensorFlow's order of axes: rows, bins, channels."""

from collections.abc import Callable, Mapping

import numpy as np

WIDTHS = (3, 2, 4, 3, 2, 4)
FFT_SIZE, HOP, SEEN = 4096, 1024, 1024


def random_variables(stems: int, seed: int) -> dict[str, np.ndarray]:
    """The variables of small U-Nets, and one that training leaves behind."""
    random = np.random.default_rng(seed)
    variables: dict[str, np.ndarray] = {"global_step": np.array(7, np.int64)}

    def numbers(shape: tuple[int, ...], scale: float = 1.0) -> np.ndarray:
        return (scale * random.standard_normal(shape)).astype(np.float32)

    def put(kind: str, number: int, **parts: np.ndarray) -> None:
        variables.update({f"{kind}{f'_{number}' if number else ''}/{name}": value for name, value in parts.items()})

    for stem in range(stems):
        channels, outs = [2, *WIDTHS], [*WIDTHS[-2::-1], 1]
        for level, out in enumerate(WIDTHS):
            put("conv2d", 7 * stem + level, bias=numbers((out,), 0.1),
                kernel=numbers((5, 5, channels[level], out), (25 * channels[level]) ** -0.5 * (1 if level else 0.05)))
        ins = [WIDTHS[-1], *(2 * width for width in WIDTHS[-2::-1])]
        for level, out in enumerate(outs):
            put("conv2d_transpose", 6 * stem + level, bias=numbers((out,), 0.1),
                kernel=numbers((5, 5, out, ins[level]), (6 * ins[level]) ** -0.5))
        put("conv2d", 7 * stem + 6, kernel=numbers((4, 4, 1, 2), 0.5), bias=numbers((2,)))
        for level, out in enumerate((*WIDTHS, *outs)):
            put("batch_normalization", 12 * stem + level, gamma=1 + numbers((out,), 0.5), beta=numbers((out,)),
                moving_mean=numbers((out,)), moving_variance=np.exp(numbers((out,), 0.5)))
    return variables


def unet(variables: Mapping[str, np.ndarray], number: int, magnitudes: np.ndarray, elu: bool) -> np.ndarray:
    """Logits of the U-Net with a number, both [rows, bins, 2]."""

    def of(kind: str, place: int, part: str) -> np.ndarray:
        return variables[f"{kind}{f'_{place}' if place else ''}/{part}"].astype(np.float64)

    def norm(x: np.ndarray, level: int) -> np.ndarray:
        gamma, beta, mean, variance = (of("batch_normalization", 12 * number + level, part)
                                       for part in ("gamma", "beta", "moving_mean", "moving_variance"))
        return (x - mean) / np.sqrt(variance + 1e-3) * gamma + beta

    def rise(leak: float) -> Callable[[np.ndarray], np.ndarray]:
        return lambda x: np.where(x > 0, x, np.expm1(np.minimum(x, 0)) if elu else leak * x)

    value, skips = magnitudes, []
    for level in range(6):
        kernel, bias = of("conv2d", 7 * number + level, "kernel"), of("conv2d", 7 * number + level, "bias")
        padded = np.pad(value, ((1, 2), (1, 2), (0, 0)))
        rows, bins = value.shape[0] // 2, value.shape[1] // 2
        kept = bias + sum(padded[i:i + 2 * rows:2, j:j + 2 * bins:2] @ kernel[i, j]
                          for i in range(5) for j in range(5))
        skips.append(kept)
        value = rise(0.2)(norm(kept, level))
    value = skips.pop()
    for level in range(6):
        kernel, bias = (of("conv2d_transpose", 6 * number + level, part) for part in ("kernel", "bias"))
        rows, bins = value.shape[:2]
        whole = np.zeros((2 * rows + 3, 2 * bins + 3, kernel.shape[2]))
        for i in range(5):
            for j in range(5):
                whole[i:i + 2 * rows:2, j:j + 2 * bins:2] += value @ kernel[i, j].T
        value = norm(rise(0.0)(whole[1:-2, 1:-2] + bias), 6 + level)
        if skips:
            value = np.concatenate([skips.pop(), value], axis=2)
    kernel, bias = of("conv2d", 7 * number + 6, "kernel"), of("conv2d", 7 * number + 6, "bias")
    padded = np.pad(value, ((3, 3), (3, 3), (0, 0)))
    rows, bins = value.shape[:2]
    return bias + sum(padded[2 * i:2 * i + rows, 2 * j:2 * j + bins] @ kernel[i, j]
                      for i in range(4) for j in range(4))


def masks(variables: Mapping[str, np.ndarray], stems: int, frames: np.ndarray) -> np.ndarray:
    """Masks [stems, rows, 2048, 2] for frames of sound, [rows, 4096, 2], of which some at the start may be silent."""
    hann = 0.5 - 0.5 * np.cos(2 * np.pi * np.arange(FFT_SIZE) / FFT_SIZE)
    magnitudes = np.abs(np.fft.rfft(frames * hann[:, None], axis=1))[:, :SEEN]
    sounding = magnitudes[magnitudes.mean(axis=(1, 2)) > 0]
    magnitudes *= 4 / sounding.mean()
    logits = np.stack([unet(variables, number, magnitudes, elu=stems != 2) for number in range(stems)])
    if stems == 5:
        parts = np.exp(logits - logits.max(axis=0))
        parts /= parts.sum(axis=0)
    else:
        parts = 1 / (1 + np.exp(-logits))
    squares = (parts * magnitudes) ** 2
    low = (squares + 1e-10 / stems) / (squares.sum(axis=0) + 1e-10)
    high = np.broadcast_to(low.mean(axis=2, keepdims=True), low.shape)
    return np.concatenate([low, high], axis=2)
