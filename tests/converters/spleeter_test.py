#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checkpoints of Spleeter, as TensorFlow writes them, become models that compute what the authors' networks compute."""

import contextlib
import io
import sys
import tempfile
import unittest
from pathlib import Path

import numpy as np
import onnx

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "converters"))
import spleeter_reference as reference  # noqa: E402
import tensorflow_files as files  # noqa: E402
from session import Session  # noqa: E402
from tonwerk_converters import cli, contract, crc32c  # noqa: E402
from tonwerk_converters.errors import ConversionError  # noqa: E402
from tonwerk_converters.passport import Passport  # noqa: E402
from tonwerk_converters.spleeter.checkpoint import read_checkpoint  # noqa: E402

NAMES = {2: {0: "vocals"}, 4: {0: "vocals", 1: "drum", 2: "bass"}, 5: {0: "vocals", 1: "piano", 2: "drum", 3: "bass"}}
SILENT_ROWS = 20
TOLERANCE = 1e-4  # of the largest value


def frames_of_sound() -> np.ndarray:
    """Frames [256, 4096, 2] of noise whose spectrum falls like music's, after silence."""
    random = np.random.default_rng(5)
    noise = np.fft.rfft(random.standard_normal((contract.FRAMES * contract.HOP + contract.FFT_SIZE, 2)), axis=0)
    sound = np.fft.irfft(noise / (200 + np.arange(len(noise))[:, None]) ** 0.7, axis=0)
    sound[:SILENT_ROWS * contract.HOP + contract.FFT_SIZE] = 0
    starts = contract.HOP * np.arange(contract.FRAMES)[:, None]
    return sound[starts + np.arange(contract.FFT_SIZE)]


def spectrum_of(frames: np.ndarray) -> np.ndarray:
    """What the library gives a model for such frames, in double precision: [2 channels, 256, 2048] complex."""
    angles = 2 * np.pi * np.arange(contract.FFT_SIZE) / contract.FFT_SIZE
    blackman = 0.42 - 0.5 * np.cos(angles) + 0.08 * np.cos(2 * angles)
    return np.fft.rfft(frames * blackman[:, None], axis=1)[:, :contract.BINS].transpose(2, 0, 1)


def planes(spectrum: np.ndarray) -> np.ndarray:
    return np.stack([spectrum.real, spectrum.imag], axis=1).reshape(contract.SHAPE).astype(np.float32)


def convert(*arguments: str | Path) -> tuple[int, str]:
    """Runs the command; returns its status and what it wrote to standard error."""
    with contextlib.redirect_stderr(io.StringIO()) as errors, contextlib.redirect_stdout(io.StringIO()):
        status = cli.main([str(argument) for argument in arguments])
    return status, errors.getvalue()


class Folder(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = Path(scratch.name)
        self.checkpoint = self.folder / "checkpoint"
        self.model = self.folder / "model.onnx"


class Networks(Folder):
    def convert(self, stems: int, seed: int) -> tuple[dict[str, np.ndarray], onnx.ModelProto]:
        variables = reference.random_variables(stems, seed)
        files.write_checkpoint(self.checkpoint, variables)
        status, errors = convert("spleeter", self.checkpoint, "-o", self.model)
        self.assertEqual((status, errors), (0, ""))
        return variables, onnx.load(str(self.model))

    def test_stems_are_those_of_the_networks_in_double_precision(self):
        frames = frames_of_sound()
        spectrum = spectrum_of(frames)
        for stems, names in NAMES.items():
            with self.subTest(stems=stems):
                variables, model = self.convert(stems, seed=stems)
                session = Session(model)
                results = session.run(unified_input=planes(spectrum))
                session.close()
                masks = reference.masks(variables, stems, frames).transpose(0, 3, 1, 2)
                for number, name in names.items():
                    expected = planes(masks[number] * spectrum)
                    error = np.abs(results[f"{name}_output"] - expected).max() / np.abs(expected).max()
                    self.assertLess(error, TOLERANCE, name)
                for name in set(contract.STEMS) - set(names.values()):
                    self.assertFalse(results[f"{name}_output"].any(), name)
                passport = Passport.read(model)
                self.assertEqual(set(passport.stems), set(names.values()))
                self.assertEqual(len(passport.converted_from), 2)

    def test_level_does_not_matter_and_nothing_gives_nan(self):
        _, model = self.convert(2, seed=9)
        session = Session(model)
        spectrum = planes(spectrum_of(frames_of_sound()))
        plain = session.run(unified_input=spectrum)["vocals_output"]
        peak = np.abs(plain).max()
        self.assertGreater(peak, 0)
        for decibels in (-60, -20, 20):
            factor = np.float32(10 ** (decibels / 20))
            result = session.run(unified_input=spectrum * factor)["vocals_output"] / factor
            self.assertLess(np.abs(result - plain).max() / peak, TOLERANCE, f"{decibels} dB")
        self.assertFalse(session.run(unified_input=np.zeros(contract.SHAPE, np.float32))["vocals_output"].any())
        square = np.sign(np.sin(np.arange(contract.FFT_SIZE) / 9.0))[None, :, None] * np.ones((256, 1, 2))
        broken = spectrum.copy()
        broken[0, :, 40] = np.nan
        broken[0, 0, 50, :9] = np.inf
        for given in (planes(spectrum_of(square)), broken, spectrum * np.float32(1e-35), spectrum * np.float32(1e15)):
            self.assertTrue(np.isfinite(session.run(unified_input=given)["vocals_output"]).all())
        session.close()

    def test_the_same_checkpoint_gives_the_same_bytes(self):
        self.convert(2, seed=3)
        first = self.model.read_bytes()
        self.convert(2, seed=3)
        self.assertEqual(self.model.read_bytes(), first)

    def test_options_decide_where_the_number_of_stems_does_not(self):
        files.write_checkpoint(self.checkpoint, reference.random_variables(3, seed=1))
        status, errors = convert("spleeter", self.checkpoint, "-o", self.model)
        self.assertEqual(status, 1)
        self.assertIn("--stems", errors)
        status, _ = convert("spleeter", self.checkpoint, "--stems", "bass,other,drums", "--activation", "leaky",
                            "--output-layer", "softmax", "-o", self.model)
        self.assertEqual(status, 0)
        self.assertEqual(Passport.read(onnx.load(str(self.model))).stems, ["drum", "bass"])


class Checkpoints(Folder):
    VARIABLES = {f"layer_{number}/kernel": np.full((number, 3), number, np.float32) for number in range(1, 101)}

    def write(self, **altered: bytes) -> None:
        files.write_checkpoint(self.checkpoint, self.VARIABLES, altered)

    def test_checksums_of_many_lengths(self):
        random = np.random.default_rng(1)
        self.assertEqual(crc32c.crc32c(b"123456789"), 0xE3069283)  # the standard's check value
        for length in (0, 1, 5, 4 * crc32c.LANES - 1, 4 * crc32c.LANES, 12 * crc32c.LANES + 3):
            data = random.bytes(length)
            self.assertEqual(crc32c.masked(crc32c.crc32c(data)), files.checksum(data))

    def test_all_variables_come_back(self):
        self.write()
        tensors, _ = read_checkpoint(self.checkpoint)
        self.assertEqual(set(tensors), set(self.VARIABLES))
        for name, values in self.VARIABLES.items():
            np.testing.assert_array_equal(tensors[name], values)

    def test_no_flipped_bit_goes_unnoticed(self):
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

    def test_no_cut_goes_unnoticed(self):
        for suffix in ("index", "data-00000-of-00001"):
            self.write()
            path = self.checkpoint / f"model.{suffix}"
            whole = path.read_bytes()
            for length in (0, 1, 47, 48, 100, len(whole) // 2, len(whole) - 1):
                path.write_bytes(whole[:length])
                with self.assertRaises(ConversionError, msg=f"{suffix} cut to {length}"):
                    read_checkpoint(self.checkpoint)

    def test_entries_that_lie_are_refused(self):
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

    def test_networks_that_do_not_fit_end_in_a_sentence(self):
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
            status, errors = convert("spleeter", self.checkpoint, "-o", self.model)
            self.assertEqual(status, 1)
            self.assertIn(words, errors)
            self.assertFalse(self.model.exists())
        for missing, words in (("batch_normalization_20/beta", "no variable batch_normalization_20/beta"),
                               ("conv2d_transpose_3/kernel", "does not hold U-Nets")):
            files.write_checkpoint(self.checkpoint, {key: value for key, value in good.items() if key != missing})
            status, errors = convert("spleeter", self.checkpoint, "-o", self.model)
            self.assertEqual(status, 1)
            self.assertIn(words, errors)
        for path in (self.folder / "nowhere", self.folder):
            self.assertEqual(convert("spleeter", path, "-o", self.model)[0], 1)


if __name__ == "__main__":
    unittest.main()
