#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The parts that all converters share: front ends and passports, on the runtime that the library ships."""

import unittest
from collections.abc import Callable, Sequence

import numpy as np
from support import BLACKMAN, HANN, Session, contract, noise, planes, spectrum_of, stems_of
from tonwerk_converters import spectra
from tonwerk_converters.graph import Graph
from tonwerk_converters.passport import Passport

ROWS = 8


def frames_of_noise() -> np.ndarray:
    return np.random.default_rng(3).uniform(-1, 1, (ROWS, contract.FFT_SIZE, contract.CHANNELS))


def run_part(part: Callable[[Graph, str], str], shape: Sequence[int], spectrum: np.ndarray) -> np.ndarray:
    """The result of a piece of graph that takes a spectrum."""
    graph = Graph()
    graph.input("spectrum", spectrum.shape)
    graph.add("Identity", part(graph, "spectrum"), name="result")
    graph.output("result", shape)
    session = Session(graph.model("part", ""))
    result = session.run(spectrum=spectrum)["result"]
    session.close()
    return result


class FrontEnd(unittest.TestCase):
    def test_blackman_frames_become_hann_frames_to_minus_100_dB(self) -> None:
        frames = frames_of_noise()
        for bins in (1024, contract.BINS):
            result = run_part(lambda graph, value, bins=bins: spectra.blackman_to_hann(graph, value, ROWS, bins),
                              (1, 4, ROWS, bins), planes(spectrum_of(frames, BLACKMAN)))
            expected = planes(spectrum_of(frames, HANN))[..., :bins]
            clean = min(bins, 2030)  # above, the unknown Nyquist bin shows
            error = np.abs(result - expected)[..., :clean].max() / np.abs(expected).max()
            self.assertLess(20 * np.log10(error), -100)

    def test_what_is_no_number_becomes_silence(self) -> None:
        spectrum = noise()
        spectrum[0, 0, 0, :3] = np.nan, np.inf, -np.inf
        result = run_part(spectra.without_nonsense, spectrum.shape, spectrum)
        self.assertTrue((result[0, 0, 0, :3] == 0).all())
        np.testing.assert_array_equal(result[0, 0, 0, 3:], spectrum[0, 0, 0, 3:])


class Passports(unittest.TestCase):
    def setUp(self) -> None:
        graph, spectrum = contract.open_graph()
        contract.close_graph(graph, {"drum": spectrum})
        self.model = graph.model("test", "")

    def test_a_passport_survives_the_file_and_other_metadata(self) -> None:
        self.model.metadata_props.add(key="other", value="kept")
        self.assertIsNone(Passport.read(self.model))
        passport = Passport("A network", "MIT", "somewhere", "A. Uthor; B. Uthor", ["drum"], ["a sha256:1", "b"],
                            rows=64)
        passport.write(self.model)
        passport.write(self.model)
        self.assertEqual(Passport.read(self.model), passport)
        self.assertEqual([item.value for item in self.model.metadata_props if item.key == "other"], ["kept"])

    def test_stems_that_are_not_given_are_silent(self) -> None:
        results, = stems_of(self.model, noise())
        np.testing.assert_array_equal(results["drum"], noise())
        self.assertFalse(any(results[stem].any() for stem in contract.STEMS if stem != "drum"))


if __name__ == "__main__":
    unittest.main()
