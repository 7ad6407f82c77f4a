#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checkpoints of Open-Unmix become models that compute what the authors' networks compute."""

import unittest
from collections.abc import Mapping

import numpy as np
import torch_files
from support import HANN, TOLERANCE, ConverterTest, contract, error, frames_of_sound, planes, spectrum_of, stems_of
from tonwerk_converters.passport import Passport

HIDDEN, BINS = 8, contract.BINS + 1
SEEN = 1487  # bins


def random_weights(seed: int, hidden: int = HIDDEN, layers: int = 2, directions: int = 2,
                   seen: int = SEEN) -> dict[str, np.ndarray]:
    """A state dict of one target."""
    random = np.random.default_rng(seed)
    weights: dict[str, np.ndarray] = {}

    def put(name: str, *shape: int, scale: float = 0.3, around: float = 0.0) -> None:
        weights[name] = (around + scale * random.standard_normal(shape)).astype(np.float32)

    for name, size in (("input_mean", seen), ("output_scale", BINS), ("output_mean", BINS)):
        put(name, size, around=-1.0 if name == "input_mean" else 1.0)
    put("input_scale", seen, around=0.5, scale=0.1)
    put("fc1.weight", hidden, 2 * seen, scale=0.05)
    put("fc2.weight", hidden, 2 * hidden)
    put("fc3.weight", 2 * BINS, hidden)
    for number, size in ((1, hidden), (2, hidden), (3, 2 * BINS)):
        for part in ("weight", "bias", "running_mean"):
            put(f"bn{number}.{part}", size, around=float(part == "weight"))
        weights[f"bn{number}.running_var"] = np.exp(0.3 * random.standard_normal(size)).astype(np.float32)
    units = hidden // directions
    for layer in range(layers):
        for end in ("", "_reverse")[:directions]:
            put(f"lstm.weight_ih_l{layer}{end}", 4 * units, hidden)
            put(f"lstm.weight_hh_l{layer}{end}", 4 * units, units)
            put(f"lstm.bias_ih_l{layer}{end}", 4 * units)
            put(f"lstm.bias_hh_l{layer}{end}", 4 * units)
    return weights


def estimate(weights: Mapping[str, np.ndarray], magnitudes: np.ndarray) -> np.ndarray:
    """What the network makes of magnitudes [rows, 2, 2049], in double precision and in PyTorch's order of gates."""
    weights = {name: values.astype(np.float64) for name, values in weights.items()}

    def norm(x: np.ndarray, name: str) -> np.ndarray:
        gamma, beta, mean, variance = (weights[f"{name}.{part}"]
                                       for part in ("weight", "bias", "running_mean", "running_var"))
        return (x - mean) / np.sqrt(variance + 1e-5) * gamma + beta

    def sigmoid(x: np.ndarray) -> np.ndarray:
        return 1 / (1 + np.exp(-x))

    def lstm(x: np.ndarray, name: str) -> np.ndarray:
        inner, outer, bias = (weights[f"lstm.weight_ih_{name}"], weights[f"lstm.weight_hh_{name}"],
                              weights[f"lstm.bias_ih_{name}"] + weights[f"lstm.bias_hh_{name}"])
        state = cell = np.zeros(outer.shape[1])
        results = []
        for row in x:
            first, forget, new, out = np.split(inner @ row + outer @ state + bias, 4)
            cell = sigmoid(forget) * cell + sigmoid(first) * np.tanh(new)
            state = sigmoid(out) * np.tanh(cell)
            results.append(state)
        return np.array(results)

    seen = magnitudes[:, :, :len(weights["input_mean"])]
    x = ((seen + weights["input_mean"]) * weights["input_scale"]).reshape(len(seen), -1)
    x = short = np.tanh(norm(x @ weights["fc1.weight"].T, "bn1"))
    layer = 0
    while f"lstm.weight_ih_l{layer}" in weights:
        parts = [lstm(x, f"l{layer}")]
        if f"lstm.weight_ih_l{layer}_reverse" in weights:
            parts.append(lstm(x[::-1], f"l{layer}_reverse")[::-1])
        x, layer = np.concatenate(parts, axis=1), layer + 1
    x = np.maximum(norm(np.concatenate([short, x], axis=1) @ weights["fc2.weight"].T, "bn2"), 0)
    x = norm(x @ weights["fc3.weight"].T, "bn3").reshape(magnitudes.shape)
    return np.maximum(x * weights["output_scale"] + weights["output_mean"], 0) * magnitudes


class OpenUnmix(ConverterTest):
    def setUp(self) -> None:
        super().setUp()
        bins = np.fft.rfft(30 * frames_of_sound(), axis=1)  # as loud as music
        bins[:, -40:] = 0  # near the Nyquist bin, which the library has not, Hann frames are not exact
        self.frames = np.fft.irfft(bins, axis=1)
        self.spectrum = spectrum_of(self.frames)
        hann = spectrum_of(self.frames, HANN)
        nyquist = np.zeros((2, contract.FRAMES, 1))  # unknown to the library, and masks of it are not used
        self.magnitudes = np.concatenate([np.abs(hann), nyquist], axis=2).transpose(1, 0, 2)

    def write(self, **targets: Mapping[str, np.ndarray]) -> None:
        for number, (name, weights) in enumerate(targets.items()):
            torch_files.save(self.folder / f"{name}-{number}b62c91ce.pth", weights,
                             under="state_dict" if number else None)

    def expected(self, estimates: Mapping[str, np.ndarray], stem: str) -> np.ndarray:
        """The stem's planes by a ratio of squares; what the targets leave over takes part unless all four are there."""
        squares = [values ** 2 for values in estimates.values()]
        if len(estimates) < 4:
            squares.append(np.maximum(self.magnitudes - sum(estimates.values()), 0) ** 2)
        mask = estimates[stem] ** 2 / (sum(squares) + 1e-10)
        return planes(mask.transpose(1, 0, 2)[..., :contract.BINS] * self.spectrum)

    def test_all_targets_share_the_sound_by_their_squares(self) -> None:
        targets = {"vocals": random_weights(1), "drums": random_weights(2, hidden=12, layers=1),
                   "bass": random_weights(3, directions=1, layers=3), "other": random_weights(4, seen=BINS)}
        self.write(**targets)
        model = self.converted("open-unmix", self.folder)
        results, silent = stems_of(model, planes(self.spectrum), np.zeros(contract.SHAPE, np.float32))
        estimates = {name: estimate(weights, self.magnitudes) for name, weights in targets.items()}
        for name in ("vocals", "drums", "bass"):
            stem = contract.stem_of(name)
            result, expected = (values[..., :2030] for values in (results[stem], self.expected(estimates, name)))
            self.assertLess(error(result, expected), TOLERANCE, name)
            self.assertFalse(silent[stem].any())
        self.assertFalse(results["piano"].any())
        self.assertEqual(Passport.read(model).stems, ["vocals", "drum", "bass"])

    def test_a_missing_target_is_what_the_others_leave(self) -> None:
        targets = {"vocals": random_weights(5), "bass": random_weights(6)}
        self.write(**targets)
        (self.folder / "vocals.json").write_text("{}")
        results, = stems_of(self.converted("open-unmix", self.folder), planes(self.spectrum))
        estimates = {name: estimate(weights, self.magnitudes) for name, weights in targets.items()}
        for name in targets:
            result, expected = (values[..., :2030] for values in (results[name], self.expected(estimates, name)))
            self.assertLess(error(result, expected), TOLERANCE, name)

    def test_on_request_the_level_does_not_matter(self) -> None:
        self.write(vocals=random_weights(7))
        model = self.converted("open-unmix", self.folder, "--level", 1)
        factors = [1.0, 1e-3, 10.0]
        plain, *others = (results["vocals"] / factor for factor, results in zip(
            factors, stems_of(model, *(planes(self.spectrum * factor) for factor in factors))))
        for result in others:
            self.assertLess(error(result, plain), TOLERANCE)

    def test_checkpoints_that_do_not_fit_end_in_a_sentence(self) -> None:
        good = random_weights(8)
        self.assert_refused("has no checkpoint", "open-unmix", self.folder)
        self.assert_refused("is no folder", "open-unmix", self.folder / "nowhere")
        bad = {"it has no fc2.weight": {"fc2.weight": None},
               "fc3.weight has the shape": {"fc3.weight": good["fc3.weight"][:100]},
               "lstm.weight_hh_l1_reverse has the shape": {"lstm.weight_hh_l1_reverse": good["fc2.weight"]},
               "has not four gates": {"lstm.weight_ih_l0": good["lstm.weight_ih_l0"][:5]},
               "not finite": {"bn2.bias": np.full(HIDDEN, np.nan)},
               "bn3.running_var is negative": {"bn3.running_var": -good["bn3.running_var"]}}
        for words, change in bad.items():
            weights = {name: values for name, values in {**good, **change}.items() if values is not None}
            self.write(vocals=weights)
            self.assert_refused(words, "open-unmix", self.folder)
        whole = (self.folder / "vocals-0b62c91ce.pth").read_bytes()
        (self.folder / "vocals-0b62c91ce.pth").write_bytes(whole[:len(whole) // 2])
        self.assert_refused("vocals-0b62c91ce.pth", "open-unmix", self.folder)
        (self.folder / "vocals-1.pth").write_bytes(b"")
        self.assert_refused("several checkpoints", "open-unmix", self.folder)


if __name__ == "__main__":
    unittest.main()
