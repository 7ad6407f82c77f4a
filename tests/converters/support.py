# SPDX-License-Identifier: MIT
"""What the tests of converters share: the command, sounds, spectra, and runs of models."""

import contextlib
import io
import sys
import tempfile
import unittest
from pathlib import Path

import numpy as np
import onnx

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "converters"))
from tonwerk_converters import cli, contract  # noqa: E402
from tonwerk_converters.session import Session  # noqa: E402

SILENT_ROWS = 20  # before frames_of_sound() begins to sound
TOLERANCE = 1e-4  # of the largest value

ANGLES = 2 * np.pi * np.arange(contract.FFT_SIZE) / contract.FFT_SIZE
HANN = 0.5 - 0.5 * np.cos(ANGLES)
BLACKMAN = 0.42 - 0.5 * np.cos(ANGLES) + 0.08 * np.cos(2 * ANGLES)


def frames_of_sound() -> np.ndarray:
    """Frames [256, 4096, 2] of noise whose spectrum falls like music's, after silence."""
    random = np.random.default_rng(5)
    noise = np.fft.rfft(random.standard_normal((contract.FRAMES * contract.HOP + contract.FFT_SIZE, 2)), axis=0)
    sound = np.fft.irfft(noise / (200 + np.arange(len(noise))[:, None]) ** 0.7, axis=0)
    sound[:SILENT_ROWS * contract.HOP + contract.FFT_SIZE] = 0
    starts = contract.HOP * np.arange(contract.FRAMES)[:, None]
    return sound[starts + np.arange(contract.FFT_SIZE)]


def spectrum_of(frames: np.ndarray, window: np.ndarray = BLACKMAN) -> np.ndarray:
    """The transforms of frames [rows, 4096, 2] in double precision, without the Nyquist bin: [2, rows, 2048]."""
    return np.fft.rfft(frames * window[:, None], axis=1)[:, :contract.BINS].transpose(2, 0, 1)


def planes(spectrum: np.ndarray) -> np.ndarray:
    """A spectrum as the library gives it to a model: [1, 4, rows, 2048]."""
    parts = np.stack([spectrum.real, spectrum.imag], axis=1)
    return parts.reshape(1, contract.PLANES, -1, contract.BINS).astype(np.float32)


def noise(seed: int = 1) -> np.ndarray:
    """A spectrum of noise, float32 of the interface's shape."""
    return np.random.default_rng(seed).standard_normal(contract.SHAPE).astype(np.float32)


def stems_of(model: onnx.ModelProto, *spectra: np.ndarray) -> list[dict[str, np.ndarray]]:
    """The stems that a model gives for spectra."""
    session = Session(model, threads=1)  # two would spin while others have the processor
    results = [{stem: values[f"{stem}_output"] for stem in contract.STEMS}
               for values in (session.run(unified_input=spectrum) for spectrum in spectra)]
    session.close()
    return results


def error(result: np.ndarray, expected: np.ndarray) -> float:
    """The largest error as a part of the largest value."""
    return float(np.abs(result - expected).max() / np.abs(expected).max())


class ConverterTest(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self) -> None:
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = Path(scratch.name)
        self.model = self.folder / "model.onnx"

    def convert(self, *arguments: str | Path) -> tuple[int, str]:
        """Runs the command, which writes self.model; returns its status and what it says on standard error."""
        with contextlib.redirect_stderr(io.StringIO()) as errors, contextlib.redirect_stdout(io.StringIO()):
            status = cli.main([*(str(argument) for argument in arguments), "-o", str(self.model)])
        return status, errors.getvalue()

    def converted(self, *arguments: str | Path) -> onnx.ModelProto:
        """The model that the command writes."""
        self.assertEqual(self.convert(*arguments), (0, ""))
        return onnx.load(str(self.model))

    def assert_refused(self, words: str, *arguments: str | Path) -> None:
        """The command ends in one sentence with these words, and writes nothing."""
        status, errors = self.convert(*arguments)
        self.assertEqual(status, 1)
        self.assertIn(words, errors)
        self.assertEqual(errors.count("\n"), 1)
        self.assertFalse(self.model.exists())
