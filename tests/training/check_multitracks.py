#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Holds the measuring of real multitracks to made-up ones, with a separator that is right by construction.

usage: check_multitracks.py TRAINING_FOLDER [unittest's arguments]
"""

import sys
import tempfile
import unittest
from pathlib import Path
from typing import Any

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
sys.path.insert(0, sys.argv[1])

from stream_contract import ALL_STEMS
from tonwerk_training.data import recordings
from tonwerk_training.data.audio import write_wav
from tonwerk_training.evaluation import multitracks, reports

TRAINING = sys.argv.pop(1)

SEPARATOR = """
import json
import sys
from pathlib import Path
sys.path.insert(0, {training!r})
from tonwerk_training.data.audio import read_wav, write_wav
mixture = read_wav(sys.argv[1])
folder = Path(sys.argv[3]) / Path(sys.argv[1]).stem
folder.mkdir()
for stem, factor in {factors!r}.items():
    write_wav(folder / (stem + ".wav"), mixture * factor)
tracks = {{stem: {{"file": stem + ".wav"}} for stem in {factors!r}}}
(folder / "receipt.json").write_text(json.dumps({{"tracks": tracks, "real_time_factor": 0.5}}))
"""
STEMS = ALL_STEMS[:-1]  # all but the mix


class Multitracks(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.random = np.random.default_rng(1)

    def write(self, track: str, **levels: float) -> dict[str, np.ndarray]:
        """A track of noises; their levels by file name. Returns the audio by name."""
        path = self.folder / "tracks" / track
        path.mkdir(parents=True)
        parts = {name: (level * self.random.standard_normal((2, 44100))).astype(np.float32)
                 for name, level in levels.items()}
        for name, audio in parts.items():
            write_wav(path / f"{name}.wav", audio)
        return parts

    def evaluate(self, **factors: float) -> dict[str, Any]:
        """The figures of a separator whose stems are the mixture times a factor."""
        program = self.folder / "separator.py"
        given = {stem: factors.get(stem, 0.0) for stem in STEMS}
        program.write_text(SEPARATOR.format(training=TRAINING, factors=given))
        return multitracks.evaluate_multitracks(self.folder / "tracks", [sys.executable, str(program)], Path("none"))

    def test_files_find_their_groups(self) -> None:
        names = {"Drums_L": "drum", "bassguitar": "bass", "leadguitar": "guitars", "Backing Vocals": "vocals",
                 "horns": "keys and rest", "clav": "keys and rest"}
        self.assertEqual({name: recordings.group_of(name) for name in names}, names)

    def test_both_guitars_and_all_that_is_left_are_measured_together(self) -> None:
        parts = self.write("song", drums=0.3, leadguitar=0.1, clav=0.1, horns=0.1)
        figures = self.evaluate(acoustic_guitar=0.04, electric_guitar=0.06, piano=0.1, residual=0.1, bass=0.2)["song"]
        mixture = sum(parts.values())
        for group, truth, factor in (("guitars", parts["leadguitar"], 0.1), ("drum", parts["drums"], 0.0),
                                     ("keys and rest", parts["clav"] + parts["horns"], 0.2)):
            wrong = np.sum((truth - factor * mixture) ** 2)
            self.assertAlmostEqual(figures[group]["model"], 10 * np.log10(np.sum(truth ** 2) / wrong), delta=0.01)
            self.assertGreater(figures[group]["best mask"], figures[group]["mixture"])
        self.assertAlmostEqual(figures["bass"]["leakage"], 20 * np.log10(0.2), delta=0.01)
        self.assertEqual(figures["vocals"]["leakage"], -np.inf)
        table = "\n".join(reports.multitracks_report({"song": figures}))
        self.assertIn("absent: -14.0", table)

    def test_a_file_of_all_others_stands_for_what_has_no_file(self) -> None:
        self.write("song", vocals=0.1, other=0.2)
        figures = self.evaluate(bass=0.3, drum=0.2, electric_guitar=0.1, residual=0.2)["song"]
        self.assertEqual(set(figures) - {"real_time_factor"}, {"vocals", "keys and rest"})
        self.assertAlmostEqual(figures["keys and rest"]["model"], 10 * np.log10(4 / (4 * 0.04 + 0.64)), delta=0.1)

    def test_a_mixture_beside_its_parts_is_what_is_separated(self) -> None:
        self.write("song", drums=0.1, bass=0.1, mixture=0.1)
        figures = self.evaluate(drum=1.0)["song"]
        self.assertAlmostEqual(figures["drum"]["model"], -3, delta=0.1)
        self.assertAlmostEqual(figures["drum"]["mixture"], -3, delta=0.1)

    def test_a_folder_without_tracks_is_refused(self) -> None:
        (self.folder / "tracks" / "empty").mkdir(parents=True)
        with self.assertRaisesRegex(ValueError, "no multitrack"):
            self.evaluate()


if __name__ == "__main__":
    unittest.main()
