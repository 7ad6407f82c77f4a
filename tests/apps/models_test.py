#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Which model separates, and what its passport does: in messages, receipts, the report page and check-model.

Usage: models_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program.
"""

import random
import re
from collections.abc import Mapping
from pathlib import Path

import onnx
from onnx import helper
from program import GAINS, Done, ProgramTest, file_set, main, noise, wav_bytes

PASSPORT = {"name": "Größe 2", "license": "MIT, Copyright (c) Somebody", "source": "somewhere",
            "authors": "A. Uthor: A paper, 2020", "stems": "vocals; bass", "sample_rate": "44100",
            "converted_from": "weights sha256:12ab"}
SILENT = "drum, piano, acoustic_guitar, electric_guitar"


class ModelsTest(ProgramTest):
    def setUp(self) -> None:
        super().setUp()
        self.put("song.wav", wav_bytes(noise(20000)))

    def put_model(self, name: str, /, **entries: str) -> Path:
        """A copy of gains.onnx with these entries in its passport."""
        model = onnx.load(str(self.models / "gains.onnx"))
        helper.set_model_props(model, {"other.name": "not ours",
                                       **{f"tonwerk.{entry}": text for entry, text in entries.items()}})
        path = self.folder / name
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(model.SerializeToString())
        return path

    def check_model(self, model: Path, *options: str) -> Done:
        return self.run_program([*self.command, "check-model", str(model), *options])


class Passports(ModelsTest):
    def test_check_model_shows_the_passport_and_misses_it(self) -> None:
        done = self.check_model(self.put_model("model.onnx", **PASSPORT))
        self.assertEqual(done.returncode, 0, done.stdout)
        for label, entry in (("network", "name"), ("licence", "license"), ("authors", "authors"), ("stems", "stems"),
                             ("made from", "converted_from")):
            self.assertIn(f"{label:<10} {PASSPORT[entry]}", done.stdout.splitlines())
        self.assertNotIn("has no passport", done.stdout)
        self.assertNotIn("not ours", done.stdout)
        self.assertIn("has no passport", self.check_model(self.models / "gains.onnx").stdout)

    def test_a_scrambled_model_shows_its_passport_with_its_key(self) -> None:
        model = self.put_model("model.onnx", **PASSPORT)
        self.run_program([*self.command, "scramble", str(model), "-o", "scrambled.onnx", "--key", "secret"])
        done = self.separate("song.wav", "--key", "secret", model=self.folder / "scrambled.onnx")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.receipt("song")["model"]["passport"]["name"], PASSPORT["name"])

    def test_receipt_and_page_name_the_network_and_its_licence(self) -> None:
        done = self.separate("song.wav", "--report", model=self.put_model("model.onnx", **PASSPORT))
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.receipt("song")["model"]["passport"],
                         {entry: text for entry, text in PASSPORT.items() if entry != "sample_rate"})
        self.assertIn(PASSPORT["license"], (self.folder / "out/song/report.html").read_text(encoding="utf-8"))
        self.assert_done(self.separate("song.wav"))
        self.assertIsNone(self.receipt("song")["model"]["passport"])

    def test_stems_that_the_model_does_not_have_are_named_once(self) -> None:
        self.put("other.wav", wav_bytes(noise(5000)))
        model = self.put_model("model.onnx", **PASSPORT)
        done = self.separate("song.wav", "other.wav", model=model)
        self.assertEqual(done.errors, [f"Note: The model has no {SILENT}: what plays them stays in the residual."])
        done = self.separate("song.wav", "--progress", "json", model=model)
        self.assertEqual(done.stderr.count('"event":"note"'), 1)

    def test_a_model_of_few_rows_is_refused_before_anything_is_written(self) -> None:
        live = self.put_model("live.onnx", **PASSPORT, rows="64")
        self.assert_failed(self.separate("song.wav", model=live), "computes its newest 64 rows only, ")
        self.assertEqual(self.files(), set())
        for quality in ("live", "instant"):
            self.assertEqual(self.separate("song.wav", "--quality", quality, model=live).returncode, 0, quality)
        for rows in ("256", "0", "many", "-3", "99999999999999999999"):
            done = self.separate("song.wav", model=self.put_model("model.onnx", **PASSPORT, rows=rows))
            self.assertEqual(done.returncode, 0, (rows, done.stderr))

    def test_damaged_metadata_does_no_harm(self) -> None:
        """Bytes behind the network, where the passport is, are changed or cut; the runtime may refuse the model."""
        whole = self.put_model("model.onnx", **PASSPORT, notes="long " * 10000).read_bytes()
        first = whole.index(b"tonwerk.")
        generator = random.Random(1)
        folder = self.folder / "damaged"
        folder.mkdir()
        for number in range(40):
            data = bytearray(whole[:generator.randrange(first, len(whole))] if number % 2 else whole)
            for _ in range(5):
                data[generator.randrange(first - 10, min(len(data), first + 300))] = generator.randrange(256)
            (folder / f"{number}.onnx").write_bytes(data)
        done = self.run_program([*self.command, "--list-models", "--model", str(folder)])
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(sum(line.endswith(".onnx") for line in done.stdout.splitlines()), 40)
        self.assertLess(max(map(len, done.stdout.splitlines())), 3000)
        self.assertTrue(all(line.isprintable() for line in done.stdout.splitlines() if "\ufffd" not in line))


class Choice(ModelsTest):
    def model_of(self, folder: Path, models: Mapping[str, Mapping[str, str]]) -> Done:
        for name, entries in models.items():
            self.put_model(f"{folder.name}/{name}", **entries)
        return self.separate("song.wav", model=folder)

    def test_a_folder_of_models_is_listed_with_passports(self) -> None:
        self.put_model("several/b.onnx", **PASSPORT)
        self.put_model("several/a.onnx")
        (self.folder / "several/readme.txt").write_text("no model")
        done = self.run_program([*self.command, "--list-models", "--model", "several"])
        self.assertEqual((done.returncode, done.errors), (0, []))
        lines = done.stdout.splitlines()
        self.assertEqual([re.split(r"[\\/]", line)[-1] for line in lines if line.endswith(".onnx")],
                         ["a.onnx", "b.onnx"])
        self.assertEqual(lines[1], "  no passport")
        self.assertIn(f"  licence: {PASSPORT['license']}", lines[3:])

    def test_a_folder_stands_for_its_standard_model(self) -> None:
        one = self.folder / "one"
        self.assertEqual(self.model_of(one, {"any.onnx": {}}).returncode, 0)
        self.assertEqual(self.receipt("song")["model"]["file"], "any.onnx")
        done = self.model_of(one, {"tonwerk-small.onnx": {}})
        self.assertEqual(self.receipt("song")["model"]["file"], "tonwerk-small.onnx")
        self.assertRegex(done.errors[0], r"^Note: tonwerk-standard\.onnx is not in .*make build")
        done = self.model_of(one, {"tonwerk-standard.onnx": {}})
        self.assertEqual(done.errors, [])
        self.assertEqual(self.receipt("song")["model"]["file"], "tonwerk-standard.onnx")
        self.assertEqual(self.files(), file_set("song", GAINS))

    def test_folders_without_a_choice_end_in_a_sentence(self) -> None:
        (self.folder / "empty").mkdir()
        self.assert_failed(self.separate("song.wav", model=self.folder / "empty"), "There is no model (.onnx)")
        self.assert_failed(self.model_of(self.folder / "two", {"a.onnx": {}, "b.onnx": {}}), "--list-models shows them")


if __name__ == "__main__":
    main()
