#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The parts that all converters share: front ends and passports, on the runtime that the library ships."""

import sys
import unittest
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "converters"))
from session import Session  # noqa: E402
from tonwerk_converters import contract, spectra  # noqa: E402
from tonwerk_converters.graph import Graph  # noqa: E402
from tonwerk_converters.passport import Passport  # noqa: E402

ROWS = 8
ANGLES = np.arange(contract.FFT_SIZE) * 2 * np.pi / contract.FFT_SIZE
HANN = 0.5 - 0.5 * np.cos(ANGLES)
BLACKMAN = 0.42 - 0.5 * np.cos(ANGLES) + 0.08 * np.cos(2 * ANGLES)


def frames_of_noise(rows: int = ROWS) -> np.ndarray:
    """Frames of white noise, [channels, rows, 4096]."""
    return np.random.default_rng(3).uniform(-1, 1, (contract.CHANNELS, rows, contract.FFT_SIZE))


def planes(frames: np.ndarray, window: np.ndarray) -> np.ndarray:
    """The spectra of frames in the layout of the interface, [1, 4, rows, 2048]."""
    bins = np.fft.rfft(frames * window)[..., :contract.BINS]
    parts = np.stack([bins.real, bins.imag], axis=1)
    return parts.reshape(1, contract.PLANES, -1, contract.BINS).astype(np.float32)


class FrontEnd(unittest.TestCase):
    def run_part(self, part, shape, spectrum):
        graph = Graph()
        graph.input("spectrum", spectrum.shape)
        graph.add("Identity", part(graph, "spectrum"), name="result")
        graph.output("result", shape)
        session = Session(graph.model("part", ""))
        result = session.run(spectrum=spectrum)["result"]
        session.close()
        return result

    def test_blackman_frames_become_hann_frames_to_minus_100_dB(self):
        frames = frames_of_noise()
        for bins in (1024, contract.BINS):
            result = self.run_part(lambda graph, value, bins=bins: spectra.blackman_to_hann(graph, value, ROWS, bins),
                                   (1, 4, ROWS, bins), planes(frames, BLACKMAN))
            expected = planes(frames, HANN)[..., :bins]
            clean = min(bins, 2030)  # above, the unknown Nyquist bin shows
            error = np.abs(result - expected)[..., :clean].max() / np.abs(expected).max()
            self.assertLess(20 * np.log10(error), -100)

    def test_what_is_no_number_becomes_silence(self):
        spectrum = planes(frames_of_noise(), BLACKMAN)
        spectrum[0, 0, 0, :3] = np.nan, np.inf, -np.inf
        result = self.run_part(spectra.without_nonsense, spectrum.shape, spectrum)
        self.assertTrue((result[0, 0, 0, :3] == 0).all())
        np.testing.assert_array_equal(result[0, 0, 0, 3:], spectrum[0, 0, 0, 3:])


class Passports(unittest.TestCase):
    def test_a_passport_survives_the_file_and_other_metadata(self):
        graph, spectrum = contract.open_graph()
        contract.close_graph(graph, {"drum": spectrum})
        model = graph.model("test", "")
        model.metadata_props.add(key="other", value="kept")
        self.assertIsNone(Passport.read(model))
        passport = Passport("A network", "MIT", "somewhere", "A. Uthor; B. Uthor", ["drum"], ["a sha256:1", "b"],
                            rows=64)
        passport.write(model)
        passport.write(model)
        self.assertEqual(Passport.read(model), passport)
        self.assertEqual([item.value for item in model.metadata_props if item.key == "other"], ["kept"])

    def test_stems_that_are_not_given_are_silent(self):
        graph, spectrum = contract.open_graph()
        contract.close_graph(graph, {"drum": spectrum})
        session = Session(graph.model("test", ""))
        noise = np.random.default_rng(1).standard_normal(contract.SHAPE).astype(np.float32)
        results = session.run(unified_input=noise)
        session.close()
        np.testing.assert_array_equal(results["drum_output"], noise)
        self.assertFalse(any(results[f"{stem}_output"].any() for stem in contract.STEMS if stem != "drum"))


if __name__ == "__main__":
    unittest.main()
