#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Holds the figures for joins to dips made by hand, and the program's default to what they say of it.

usage: check_joins.py TRAINING_FOLDER PROGRAM MODEL [unittest's arguments]
"""

import json
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import numpy as np
from numpy.typing import NDArray

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
sys.path.insert(0, sys.argv[1])

from stream_contract import ALL_STEMS, HOP
from tonwerk_training.data.audio import read_wav, write_wav
from tonwerk_training.data.stft import SAMPLE_RATE
from tonwerk_training.evaluation import joins

PROGRAM, MODEL = sys.argv.pop(2), sys.argv.pop(2)
sys.argv.pop(1)
JOINS = [3 * SAMPLE_RATE, 6 * SAMPLE_RATE, 9 * SAMPLE_RATE]


def dipped(mixture: NDArray[np.float32], depth: float, fade: float) -> dict[str, NDArray[np.float32]]:
    """Vocals are half of the mixture, less by `depth` dB in the 60 ms behind each join; `fade` seconds lead there."""
    gain = np.full(mixture.shape[1], 0.5)
    length = int(0.06 * SAMPLE_RATE)
    ramp = np.linspace(0, -depth, max(1, int(fade * SAMPLE_RATE)))
    shape = np.concatenate([ramp, np.full(length, -depth), ramp[::-1]])
    for join in JOINS:
        gain[join:join + shape.size] *= 10 ** (shape / 20)
    stems = {stem: np.zeros_like(mixture) for stem in ALL_STEMS}
    stems["vocals"] = (mixture * gain).astype(np.float32)
    return stems


class Figures(unittest.TestCase):
    def test_the_chord_is_steady(self) -> None:
        frames = joins.steady_chord(1)[0, :40 * HOP].reshape(40, HOP)
        self.assertLess(np.abs(frames - frames[0]).max(), 1e-6)

    def test_a_short_dip_is_seen_and_a_long_fade_is_not(self) -> None:
        chord = joins.steady_chord(12)
        for depth, fade, expected in ((8.0, 0.0, 8.0), (8.0, 1.0, 0.5), (0.0, 0.0, 0.0)):
            changes, times = joins.level_changes(dipped(chord, depth, fade), chord)
            blend = int(2 * fade * SAMPLE_RATE / HOP)
            self.assertAlmostEqual(joins.largest_at_joins(changes, times, JOINS, blend), expected, delta=0.3)

    def test_dips_show_in_music_too(self) -> None:
        """Noise whose level wavers by some decibels, and so do the stems'."""
        random = np.random.default_rng(1)
        music = random.uniform(-0.3, 0.3, (2, 12 * SAMPLE_RATE)).astype(np.float32)
        music *= np.repeat(random.uniform(0.3, 1, 12 * 20), SAMPLE_RATE // 20).astype(np.float32)
        for depth, least, most in ((8.0, 2.0, 20.0), (0.0, 0.9, 1.1)):
            changes, times = joins.spectral_changes(dipped(music, depth, 0.0), music)
            ratio = joins.ratio_to_elsewhere(changes, times, JOINS, 0)
            self.assertTrue(least < ratio < most, (depth, ratio))


class Program(unittest.TestCase):
    def separated(self, quality: list[str]) -> tuple[float, float]:
        """Largest change of a stem's level at joins in dB, and spectral change there against elsewhere."""
        chord = joins.steady_chord(24)
        with tempfile.TemporaryDirectory() as name:
            folder = Path(name)
            write_wav(folder / "chord.wav", chord)
            subprocess.run([PROGRAM, folder / "chord.wav", "-o", folder, "--model", MODEL, *quality], check=True,
                           stderr=subprocess.DEVNULL)
            options = json.loads((folder / "chord/receipt.json").read_text())["options"]
            stems = {stem: read_wav(folder / "chord" / f"{stem}.wav") for stem in ALL_STEMS}
        positions = joins.positions(options["step"], options["lookahead"] + options["blend"], chord.shape[1])
        level = joins.largest_at_joins(*joins.level_changes(stems, chord), positions, options["blend"])
        ratio = joins.ratio_to_elsewhere(*joins.spectral_changes(stems, chord), positions, options["blend"])
        return level, ratio

    def test_its_default_has_no_joins_that_are_heard(self) -> None:
        level, ratio = self.separated([])
        self.assertLess(level, 1.0)
        self.assertLess(ratio, 1.2)

    def test_the_figures_see_the_joins_of_the_cheapest_quality(self) -> None:
        level, ratio = self.separated(["--quality", "normal"])
        self.assertGreater(level, 5.0)
        self.assertGreater(ratio, 2.0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
