#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Holds the parts of the training to what they stand for: the summaries to the audio, the loss's gradient to automatic
differentiation, the exported model to PyTorch, and what is loaded back from it to what was exported.

usage: check_parts.py TRAINING_FOLDER [unittest's arguments]
"""

import sys
import tempfile
import unittest
from pathlib import Path
from typing import Any

import numpy as np
import onnx
import torch

sys.path.insert(0, sys.argv[1])

from tonwerk_training.data import bands, chunkstore, stft
from tonwerk_training.model import adapting, exporting, importing, losses, network, optimizer, runtime
from tonwerk_training.synthesis import fluidsynth

TRAINING = Path(sys.argv.pop(1))


class Summaries(unittest.TestCase):
    def test_tell_the_error_of_any_mask(self) -> None:
        """In the spectra themselves, against sum P (m - R)^2 + rest."""
        random = np.random.default_rng(1)
        stems = random.standard_normal((7, 2, chunkstore.CHUNK_SAMPLES)).astype(np.float32)
        stems *= np.array([1, 0.3, 0, 0.1, 1, 0.01, 0.5], np.float32)[:, None, None]
        summary = chunkstore.summarise_chunk(stems)
        mixture = stft.stft(stems.sum(axis=0))
        power = 10.0 ** summary["power"][:2].astype(np.float32)
        for stem in (0, 1, 2, 5):
            spectra = stft.stft(stems[stem])
            for mask in (random.random((2, 256, 896)).astype(np.float32), np.zeros((2, 256, 896), np.float32)):
                exact = (np.abs(spectra - bands.expand(mask) * mixture) ** 2).sum()
                told = (power * (mask - chunkstore.dequantise(summary["ratio"][stem])) ** 2).sum()
                told += summary["rest"][stem].sum()
                # 8 bits hide 1e-5 of the mixture's energy, 16-bit logs a part in 100 of each band's
                self.assertAlmostEqual(told, exact, delta=0.01 * exact + 1e-4 * power.sum())
            np.testing.assert_allclose(summary["energy"][stem].sum(), (np.abs(spectra) ** 2).sum(), rtol=1e-4)


class Timbres(unittest.TestCase):
    def test_differ_at_the_same_pitch_and_last_for_one_part(self) -> None:
        renderer = fluidsynth.Renderer(fluidsynth.TRAINING_FONTS["csound"])
        self.play(renderer)  # FluidSynth begins its very first note a little differently
        plain = self.play(renderer)
        random = np.random.default_rng(1)
        for _ in range(8):
            part = fluidsynth.Part(25)
            fluidsynth.vary_timbre(part, random)
            varied = self.play(renderer, timbre=part.timbre, borrow=part.borrow)
            self.assertLess(self.likeness(plain, varied), 0.99)
            self.assertAlmostEqual(self.pitch(varied), self.pitch(plain), delta=0.02 * self.pitch(plain))
            np.testing.assert_array_equal(self.play(renderer), plain)

    @staticmethod
    def play(renderer: fluidsynth.Renderer, **how: Any) -> np.ndarray:
        notes = [fluidsynth.Note(0.1, 1.0, 57, 90)]
        return renderer.render(fluidsynth.Part(25, notes=notes, **how), 1.0).mean(axis=0)

    @staticmethod
    def likeness(one: np.ndarray, other: np.ndarray) -> float:
        return np.vdot(one, other) / np.sqrt(np.vdot(one, one) * np.vdot(other, other))

    @staticmethod
    def pitch(audio: np.ndarray) -> float:
        """Hz, from the highest peak of the autocorrelation between 150 and 350 Hz."""
        correlation = np.fft.irfft(np.abs(np.fft.rfft(audio, 2 * len(audio))) ** 2)
        lags = np.arange(stft.SAMPLE_RATE // 350, stft.SAMPLE_RATE // 150)
        return stft.SAMPLE_RATE / lags[np.argmax(correlation[lags])]


class Loss(unittest.TestCase):
    def test_gradient_is_the_derivative_of_the_terms(self) -> None:
        torch.manual_seed(1)
        logits = torch.randn(3, 7, 2, 50, dtype=torch.float64, requires_grad=True)
        data = {"power": torch.rand(3, 2, 50) ** 4, "rest": torch.rand(3, 6),
                "energy": torch.rand(3, 6) * 20}
        data = {name: value.double() for name, value in data.items()}
        data["codes"] = torch.randint(0, 256, (3, 6, 2, 50), dtype=torch.uint8)
        for progress in (0.1, 0.35, 0.9):
            weights = losses.weights_at(progress)
            values = losses.MaskLoss.apply(logits, data, weights)
            by_hand, = torch.autograd.grad(values[0], logits)
            total = self.total(logits, data, weights)
            automatic, = torch.autograd.grad(total, logits)
            torch.testing.assert_close(values[0], total)
            torch.testing.assert_close(by_hand, automatic)

    def test_a_silent_crop_among_others_is_no_number_but_nought(self) -> None:
        """The sampler draws some: whole sections without a stem."""
        torch.manual_seed(1)
        sizes = network.NetworkSettings(channels=(16, 16, 24, 24, 32), units=(1, 1, 1, 1, 1), bottom=32)
        small = network.MaskNetwork(sizes).train()
        seen = torch.rand(2, 3, 16, 896)
        seen[1] = 0
        data = {"power": network.fold(seen[:, :2]), "rest": torch.zeros(2, 6), "energy": torch.zeros(2, 6),
                "codes": torch.full((2, 6, 2, 8, 16, 112), 64, dtype=torch.uint8)}
        logits = small(seen)
        values = losses.MaskLoss.apply(logits, data, losses.weights_at(0.9))
        by_logits, = torch.autograd.grad(values[0], logits)
        self.assertTrue(torch.isfinite(values).all() and torch.isfinite(by_logits).all())
        self.assertTrue(by_logits[0].any())
        self.assertFalse(by_logits[1].any())

    @staticmethod
    def total(logits: torch.Tensor, data: dict[str, torch.Tensor], weights: losses.LossWeights) -> torch.Tensor:
        power, ratio = data["power"].unsqueeze(1), chunkstore.dequantise(data["codes"].double())
        target = torch.cat([ratio.clamp(0, 1), (1 - ratio.sum(1, keepdim=True)).clamp(0, 1)], 1)
        target = target / target.sum(1, keepdim=True)
        masks = torch.softmax(logits, 1)
        importance = power ** 0.4 / (power ** 0.4).sum()
        entropy = -(importance * target * torch.log(masks)).sum()
        squares = (masks[:, :6] - ratio) ** 2
        error = ((power * squares).sum((2, 3)) + data["rest"]) / power.sum((2, 3))
        energy = data["energy"] / power.sum((2, 3))
        decibel = 10 * torch.log10((error + weights.epsilon) / (energy + weights.epsilon)).mean()
        return (weights.entropy * entropy + weights.amplitude * 10 * (power.sqrt() * squares).mean()
                + weights.decibel * decibel)


class Steps(unittest.TestCase):
    def test_go_about_equally_far_in_all_directions_of_the_gradient(self) -> None:
        torch.manual_seed(1)
        for rows, columns in ((40, 300), (300, 40), (7, 14)):
            gradient = torch.randn(rows, columns) @ torch.diag(torch.logspace(-1, 1, columns)) * 1e-5
            left, _, right = torch.linalg.svd(gradient, full_matrices=False)
            turned = left.t() @ optimizer.orthogonalise(gradient) @ right.t()
            lengths = turned.diagonal()
            self.assertTrue(((lengths > 0.6) & (lengths < 1.25)).all(), lengths)
            self.assertLess((turned - torch.diag(lengths)).abs().max(), 0.01)


class Export(unittest.TestCase):
    network: network.MaskNetwork
    session: runtime.Runtime
    spectrum: np.ndarray

    @classmethod
    def setUpClass(cls) -> None:
        torch.manual_seed(1)
        sizes = network.NetworkSettings(channels=(16, 16, 24, 24, 32), units=(1, 2, 1, 1, 1), bottom=32)
        cls.network = network.MaskNetwork(sizes).eval()
        for value in cls.network.state_dict().values():  # all of them count, also those that begin at zero
            if value.is_floating_point():
                value += 0.03 * torch.randn_like(value)
        cls.session = runtime.Runtime(exporting.export(cls.network, "a test").SerializeToString())
        level = 10 ** np.random.default_rng(1).uniform(-4, 0, (1, 4, 32, 256))
        cls.spectrum = np.random.default_rng(2).standard_normal(runtime.SHAPE) * level.repeat(8, 2).repeat(8, 3)
        cls.spectrum = (cls.spectrum / np.abs(cls.spectrum).max()).astype(np.float32)

    @classmethod
    def tearDownClass(cls) -> None:
        cls.session.close()

    def test_the_shipped_model_says_whose_it_is(self) -> None:
        model = onnx.load(TRAINING.parent / "models/tonwerk-small.onnx")
        told = {entry.key: entry.value for entry in model.metadata_props}
        self.assertLessEqual(exporting.METADATA.items(), told.items())
        self.assertEqual(told["tonwerk.license"], "MIT")
        self.assertIn("MIT License", (TRAINING.parent / "models/LICENSE").read_text())

    def test_equals_the_network_at_any_level(self) -> None:
        expected = exporting.reference(self.network, self.spectrum)
        spread = max(np.abs(expected[stem] - expected["drum"]).max() for stem in expected)
        self.assertGreater(spread, 0.01)  # the masks do differ
        for level in np.array([1, 1e-36, 1e36], np.float32):
            results = self.session.run(self.spectrum * level)
            for stem, result in results.items():
                np.testing.assert_allclose(result / level, expected[stem], atol=2e-5)

    def test_masks_are_shares(self) -> None:
        results = self.session.run(self.spectrum)
        total = sum(results.values())
        self.assertTrue((np.abs(total) <= np.abs(self.spectrum)).all())
        for result in results.values():
            self.assertTrue((result * self.spectrum >= 0).all())

    def test_silence_gives_silence_and_no_input_gives_nan(self) -> None:
        for result in self.session.run(self.spectrum * 0).values():
            self.assertFalse(result.any())
        lone = np.zeros(runtime.SHAPE, np.float32)
        lone[0, 0, 255, 2047] = 1e-45
        full = np.full(runtime.SHAPE, np.finfo(np.float32).max)
        for spectrum in (self.spectrum * np.float32(1e-42), lone, lone * np.float32(1e35), full, -full):
            for result in self.session.run(spectrum).values():
                self.assertTrue(np.isfinite(result).all())


class Import(unittest.TestCase):
    """An exported model as the beginning of another run."""

    network: network.MaskNetwork
    folder: str
    path: Path
    crops: list[torch.Tensor]

    @classmethod
    def setUpClass(cls) -> None:
        torch.manual_seed(2)
        settings = network.NetworkSettings(channels=(16, 16, 24, 24, 32), units=(1, 2, 1, 1, 1), bottom=32)
        cls.network = network.MaskNetwork(settings).eval()
        for value in cls.network.state_dict().values():
            if value.is_floating_point():
                value += 0.05 * torch.randn_like(value).abs()
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.path = Path(cls.folder) / "model.onnx"
        cls.path.write_bytes(exporting.export(cls.network, "a test").SerializeToString())
        cls.crops = [torch.rand(1, 3, 32, 896) ** 6 for _ in range(4)]

    def test_gives_the_network_back(self) -> None:
        loaded = importing.load_model(self.path)
        self.assertEqual(loaded.settings.bottom, 32)
        with torch.no_grad():
            for crop in self.crops:
                torch.testing.assert_close(loaded(crop), self.network(crop), atol=1e-4, rtol=1e-4)

    def test_calibrated_it_computes_the_same_in_training_too(self) -> None:
        loaded = importing.load_start(self.path, self.crops)
        batch = torch.cat(self.crops)
        with torch.no_grad():
            expected = self.network(batch)
            torch.testing.assert_close(loaded.eval()(batch), expected, atol=1e-3, rtol=1e-3)
            torch.testing.assert_close(loaded.train()(batch), expected, atol=1e-3, rtol=1e-3)

    def test_refuses_what_is_no_network_of_its_settings(self) -> None:
        model = onnx.load(str(self.path))
        for row in model.metadata_props:
            if row.key == exporting.NETWORK_SETTINGS:
                row.value = "{}"
        other = Path(self.folder) / "other.onnx"
        onnx.save(model, str(other))
        with self.assertRaisesRegex(ValueError, "does not hold"):
            importing.load_model(other)


class Adapting(unittest.TestCase):
    """A network whose classes are out of balance for the chunks at hand."""

    def setUp(self) -> None:
        torch.manual_seed(3)
        settings = network.NetworkSettings(channels=(16, 16, 24, 24, 32), units=(1, 1, 1, 1, 1), bottom=32)
        self.network = network.MaskNetwork(settings).eval()
        torch.nn.init.normal_(self.network.head.weight, std=0.3)
        self.truth = self.network.head.weight.detach().clone()
        self.chunks = [self.chunk() for _ in range(15)]

    def chunk(self) -> adapting.Prepared:
        """One that the network as it is would get right."""
        maps = torch.randn(16, 6, 112).half()
        masks = adapting.Balance(self.network).masks(maps).detach()[:6]
        codes = torch.from_numpy(chunkstore.quantise(masks.numpy()))
        return adapting.Prepared(maps, (torch.rand(2, 8, 6, 112) ** 4).half(), codes)

    def unbalance(self) -> None:
        with torch.no_grad():
            self.network.head.weight.view(7, 16, -1)[4].mul_(1.8)
            self.network.head.bias.view(7, 16)[4].add_(1.0)

    def test_finds_the_balance_again(self) -> None:
        self.unbalance()
        history = adapting.fit(self.network, self.chunks, 40, 0.05, 1)
        self.assertGreater(max(sum(scores) for scores in history), sum(history[0]) + 30)  # dB over six stems
        weight = self.network.head.weight.detach()
        torch.testing.assert_close(weight, self.truth, atol=0.15, rtol=0.1)
        torch.testing.assert_close(weight[:16], self.truth[:16])  # the vocals' own

    def test_leaves_alone_what_cannot_be_bettered(self) -> None:
        history = adapting.fit(self.network, self.chunks, 40, 0.05, 1)
        torch.testing.assert_close(self.network.head.weight.detach(), self.truth)
        self.assertEqual(len(history), 1 + adapting.PATIENCE)


if __name__ == "__main__":
    torch.set_num_threads(1)
    unittest.main()
