#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checkpoints of Spleeter, as TensorFlow writes them, become models that compute what the authors' networks compute."""

import unittest

import numpy as np
import spleeter_reference as reference
import tensorflow_files as files
from support import TOLERANCE, ConverterTest, contract, error, frames_of_sound, planes, spectrum_of, stems_of
from tonwerk_converters import crc32c
from tonwerk_converters.errors import ConversionError
from tonwerk_converters.passport import Passport
from tonwerk_converters.spleeter.checkpoint import read_checkpoint

NAMES = {2: {0: "vocals"}, 4: {0: "vocals", 1: "drum", 2: "bass"}, 5: {0: "vocals", 1: "piano", 2: "drum", 3: "bass"}}
LIVE_ROWS = 64


class SpleeterTest(ConverterTest):
    def setUp(self) -> None:
        super().setUp()
        self.checkpoint = self.folder / "checkpoint"

    def write_networks(self, stems: int, seed: int) -> dict[str, np.ndarray]:
        variables = reference.random_variables(stems, seed)
        files.write_checkpoint(self.checkpoint, variables)
        return variables


class Networks(SpleeterTest):
    def test_stems_are_those_of_the_networks_in_double_precision(self) -> None:
        frames = frames_of_sound()
        spectrum = spectrum_of(frames)
        for stems, names in NAMES.items():
            with self.subTest(stems=stems):
                variables = self.write_networks(stems, seed=stems)
                model = self.converted("spleeter", self.checkpoint)
                results, = stems_of(model, planes(spectrum))
                masks = reference.masks(variables, stems, frames).transpose(0, 3, 1, 2)
                for number, name in names.items():
                    self.assertLess(error(results[name], planes(masks[number] * spectrum)), TOLERANCE, name)
                for name in set(contract.STEMS) - set(names.values()):
                    self.assertFalse(results[name].any(), name)
                passport = Passport.read(model)
                self.assertEqual(set(passport.stems), set(names.values()))
                self.assertEqual(len(passport.converted_from), 2)

    def test_a_live_model_works_as_if_there_were_only_its_rows(self) -> None:
        frames = frames_of_sound()
        variables = self.write_networks(4, seed=6)
        whole = self.folder / "whole.onnx"
        self.assertEqual(self.convert("spleeter", self.checkpoint)[0], 0)
        self.model.rename(whole)
        model = self.converted("live", whole, "--rows", LIVE_ROWS)
        results, = stems_of(model, planes(spectrum_of(frames)))
        newest = frames[-LIVE_ROWS:]
        masks = reference.masks(variables, 4, newest).transpose(0, 3, 1, 2)
        for number, name in NAMES[4].items():
            self.assertFalse(results[name][:, :, :-LIVE_ROWS].any())
            expected = planes(masks[number] * spectrum_of(newest))
            self.assertLess(error(results[name][:, :, -LIVE_ROWS:], expected), TOLERANCE, name)
        self.assertEqual(Passport.read(model).rows, LIVE_ROWS)
        self.model.rename(whole)
        self.assert_refused("already computes its newest 64 rows only", "live", whole, "--rows", 32)

    def test_level_does_not_matter_and_nothing_gives_nan(self) -> None:
        self.write_networks(2, seed=9)
        spectrum = planes(spectrum_of(frames_of_sound()))
        square = np.sign(np.sin(np.arange(contract.FFT_SIZE) / 9.0))[None, :, None] * np.ones((contract.FRAMES, 1, 2))
        broken = spectrum.copy()
        broken[0, :, 40] = np.nan
        broken[0, 0, 50, :9] = np.inf
        factors = [np.float32(10 ** (decibels / 20)) for decibels in (-60, -20, 20)]
        plain, silent, *others = (
            results["vocals"] for results in stems_of(
                self.converted("spleeter", self.checkpoint), spectrum, np.zeros_like(spectrum),
                *(spectrum * factor for factor in factors), planes(spectrum_of(square)), broken,
                spectrum * np.float32(1e-35), spectrum * np.float32(1e15)))
        self.assertTrue(plain.any())
        self.assertFalse(silent.any())
        for factor, result in zip(factors, others):
            self.assertLess(error(result / factor, plain), TOLERANCE, f"at {factor}")
        for result in others:
            self.assertTrue(np.isfinite(result).all())

    def test_the_same_checkpoint_gives_the_same_bytes(self) -> None:
        self.write_networks(2, seed=3)
        self.converted("spleeter", self.checkpoint)
        first = self.model.read_bytes()
        self.converted("spleeter", self.checkpoint)
        self.assertEqual(self.model.read_bytes(), first)

    def test_options_decide_where_the_number_of_stems_does_not(self) -> None:
        self.write_networks(3, seed=1)
        self.assert_refused("--stems", "spleeter", self.checkpoint)
        model = self.converted("spleeter", self.checkpoint, "--stems", "bass,other,drums", "--activation", "leaky",
                               "--output-layer", "softmax")
        self.assertEqual(Passport.read(model).stems, ["drum", "bass"])


class Checkpoints(SpleeterTest):
    VARIABLES = {f"layer_{number}/kernel": np.full((number, 3), number, np.float32) for number in range(1, 101)}

    def write(self, **altered: bytes) -> None:
        files.write_checkpoint(self.checkpoint, self.VARIABLES, altered)

    def test_checksums_of_many_lengths(self) -> None:
        random = np.random.default_rng(1)
        self.assertEqual(crc32c.crc32c(b"123456789"), 0xE3069283)  # the standard's check value
        for length in (0, 1, 5, 4 * crc32c.LANES - 1, 4 * crc32c.LANES, 12 * crc32c.LANES + 3):
            data = random.bytes(length)
            self.assertEqual(crc32c.masked(crc32c.crc32c(data)), files.checksum(data))

    def test_all_variables_come_back(self) -> None:
        self.write()
        tensors, _ = read_checkpoint(self.checkpoint)
        self.assertEqual(set(tensors), set(self.VARIABLES))
        for name, values in self.VARIABLES.items():
            np.testing.assert_array_equal(tensors[name], values)

    def test_no_flipped_bit_goes_unnoticed(self) -> None:
        """A flip is refused, or it lies where nothing is read from."""
        random = np.random.default_rng(2)
        for suffix in ("index", "data-00000-of-00001"):
            self.write()
            path = self.checkpoint / f"model.{suffix}"
            whole = path.read_bytes()
            refused = 0
            for place in random.integers(0, len(whole), 60):
                data = bytearray(whole)
                data[place] ^= 1 << random.integers(8)
                path.write_bytes(data)
                try:
                    tensors, _ = read_checkpoint(self.checkpoint)
                except ConversionError:
                    refused += 1
                else:
                    for name, values in self.VARIABLES.items():
                        np.testing.assert_array_equal(tensors[name], values)
            self.assertGreater(refused, 50, suffix)

    def test_no_cut_goes_unnoticed(self) -> None:
        for suffix in ("index", "data-00000-of-00001"):
            self.write()
            path = self.checkpoint / f"model.{suffix}"
            whole = path.read_bytes()
            for length in (0, 1, 47, 48, 100, len(whole) // 2, len(whole) - 1):
                path.write_bytes(whole[:length])
                with self.assertRaises(ConversionError, msg=f"{suffix} cut to {length}"):
                    read_checkpoint(self.checkpoint)

    def test_entries_that_lie_are_refused(self) -> None:
        size = 3 * 4
        lies = {"beyond the end": files.entry((1, 3), 1 << 40, size, 0),
                "shape": files.entry((1, 1 << 62), 0, size, 0),
                "does not fit": files.entry((2, 3), 0, size, 0),
                "slices": files.entry((1, 3), 0, size, 0) + b"\x3a\x00",
                "data file": files.entry((1, 3), 0, size, 0) + b"\x18\x07",
                "cut off": files.entry((1, 3), 0, size, 0)[:-2],
                "no end": b"\x20" + b"\xff" * 12}
        for words, lie in lies.items():
            self.write(**{"layer_1/kernel": lie})
            with self.assertRaisesRegex(ConversionError, words):
                read_checkpoint(self.checkpoint)

    def test_networks_that_do_not_fit_end_in_a_sentence(self) -> None:
        good = reference.random_variables(2, seed=1)
        nan = good["conv2d_3/kernel"].copy()
        nan[0, 0, 0, 0] = np.nan
        wrong = {"numbers that are not finite": {"conv2d_3/kernel": nan},
                 "conv2d_2/kernel has the shape": {"conv2d_2/kernel": good["conv2d_2/kernel"][:3]},
                 "conv2d_9/bias has the shape": {"conv2d_9/bias": good["conv2d_6/bias"][:1]},
                 "moving_variance is negative": {"batch_normalization_3/moving_variance":
                                                 -np.ones_like(good["batch_normalization_3/gamma"])}}
        for words, change in wrong.items():
            files.write_checkpoint(self.checkpoint, {**good, **change})
            self.assert_refused(words, "spleeter", self.checkpoint)
        for missing, words in (("batch_normalization_20/beta", "no variable batch_normalization_20/beta"),
                               ("conv2d_transpose_3/kernel", "does not hold U-Nets")):
            files.write_checkpoint(self.checkpoint, {key: value for key, value in good.items() if key != missing})
            self.assert_refused(words, "spleeter", self.checkpoint)
        self.assert_refused("no folder", "spleeter", self.folder / "nowhere")
        self.assert_refused("has no checkpoints", "spleeter", self.folder)


if __name__ == "__main__":
    unittest.main()
