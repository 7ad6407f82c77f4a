# SPDX-License-Identifier: MIT
"""The catalogue on one machine: manifests, results, failures, Ray in the process."""

import csv
import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from collections.abc import Callable
from pathlib import Path
from typing import Any
from unittest import mock

import numpy as np
import soundfile
from songs import MODEL, MODELS, descendants, ledger, results, write_song, write_songs
from tonwerk.catalogue import Options, Song, read_manifest, shard_of
from tonwerk.catalogue.cli import main
from tonwerk.catalogue.manifest import folder_of, read_shard
from tonwerk.catalogue.store import Store

SCRATCH = {"TONWERK_MODEL": str(MODEL)}


class WithFolder(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name) / "Töne Ω"
        self.songs = self.folder / "songs"
        self.out = self.folder / "out"
        self.songs.mkdir(parents=True)

    def manifest(self, *rows: dict[str, Any] | str, name: str = "list.jsonl") -> str:
        path = self.folder / name
        path.write_text("\n".join(row if isinstance(row, str) else json.dumps(row) for row in rows))
        return str(path)

    def command(self, *words: str | Path) -> tuple[int, str]:
        """(exit code, all that was said)"""
        with tempfile.TemporaryFile("w+") as said, mock.patch.dict(os.environ, SCRATCH), \
                mock.patch("sys.stdout", said), mock.patch("sys.stderr", said):
            code = main([str(word) for word in words])
            said.seek(0)
            return code, said.read()

    def run_array(self, source: str | Path, *words: str, out: Path | None = None) -> tuple[int, str]:
        return self.command("run", source, "-o", out or self.out, "--array", "--shard", "1/1", *words)


class Manifests(WithFolder):
    def test_lists_folders_and_patterns(self) -> None:
        sha = "AB" * 32
        listed = list(read_manifest(self.manifest({"id": "ä/1", "uri": "songs/a.wav", "sha256": sha}, "",
                                                  {"id": "2", "uri": "s3://bucket/b.wav"})))
        self.assertEqual(listed, [Song("ä/1", f"{self.folder}/songs/a.wav", sha.lower()),
                                  Song("2", "s3://bucket/b.wav")])
        table = self.manifest("uri,id,sha256", "/x/a.wav,1,", '/x/"b.wav,2,', name="list.csv")
        self.assertEqual([song.id for song in read_manifest(table)], ["1", "2"])
        (self.songs / "deep").mkdir()
        for name in ("b.FLAC", "a.wav", "cover.jpg", "deep/c.mp3"):
            (self.songs / name).touch()
        self.assertEqual([song.id for song in read_manifest(str(self.songs))], ["a.wav", "b.FLAC", "deep/c.mp3"])
        self.assertEqual([song.id for song in read_manifest(f"{self.songs}/*.wav")], ["a.wav"])

    def test_what_is_wrong_is_named(self) -> None:
        good = {"id": "1", "uri": "a.wav"}
        cases: list[tuple[Any, str]] = [
            ("{", "line 2: this is no JSON"), ({"uri": "a"}, "line 2: the id must be"),
            ({"id": "\n", "uri": "a"}, "the id must be"), ({"id": "x"}, "x has no uri"),
            ({**good, "sha256": "12"}, "sha256 of 1"), (good, "'1' comes twice"), ("[]", "no record")]
        for row, sentence in cases:
            with self.subTest(row=row), self.assertRaisesRegex(ValueError, sentence):
                list(read_manifest(self.manifest(good, row)))
        with self.assertRaisesRegex(FileNotFoundError, "no manifest"):
            list(read_manifest(str(self.folder / "nothing")))

    def test_every_song_has_one_folder_and_one_shard(self) -> None:
        ids = ["a", "A", "../../etc", "a/b", "a%2Fb", "ü" * 499, "ü" * 498 + "u", ".", "con:aux?"]
        folders = [folder_of(song_id) for song_id in ids]
        self.assertEqual(len({folder.lower() for folder in folders}), len(ids))
        for folder in folders:
            self.assertRegex(folder, r"^[0-9a-f]{2}/[0-9a-f]{2}/[\w.%~-]{1,120}$")
        shards = [shard_of(f"song {number}", 7) for number in range(7000)]
        self.assertEqual(set(shards), set(range(1, 8)))
        self.assertGreater(min(shards.count(shard) for shard in range(1, 8)), 800)

    def test_array_jobs_know_their_part(self) -> None:
        for variables in ({"SLURM_ARRAY_TASK_ID": "12", "SLURM_ARRAY_TASK_MIN": "10", "SLURM_ARRAY_TASK_COUNT": "5"},
                          {"AWS_BATCH_JOB_ARRAY_INDEX": "2", "AWS_BATCH_JOB_ARRAY_SIZE": "5"},
                          {"JOB_COMPLETION_INDEX": "2", "JOB_COMPLETIONS": "5"}):
            with mock.patch.dict(os.environ, variables):
                self.assertEqual(read_shard(None), (3, 5))
                self.assertEqual(read_shard("1/2"), (1, 2))
        with mock.patch.dict(os.environ, {"JOB_COMPLETION_INDEX": "2"}), self.assertRaisesRegex(ValueError, "JOB_COMP"):
            read_shard(None)
        for wrong in ("0/2", "3/2", "1", "a/b", "1/2/3"):
            with self.assertRaisesRegex(ValueError, "i/n"):
                read_shard(wrong)


class Results(WithFolder):
    def test_what_is_done_is_skipped_and_two_shards_make_what_one_run_makes(self) -> None:
        write_songs(self.songs, 6)
        self.assertEqual(self.run_array(self.songs)[0], 0)
        made = results(str(self.out))
        self.assertEqual(len(made), 6 * 5)
        self.assertRegex(self.run_array(self.songs)[1], "0 done, 6 done before, 0 failed")
        self.assertEqual(results(str(self.out)), made)
        for shard in ("2/2", "1/2"):
            self.command("run", self.songs, "-o", self.folder / "shards", "--array", "--shard", shard)
        self.assertEqual(results(str(self.folder / "shards")), made)
        states = [row["state"] for row in ledger(str(self.out))]
        self.assertEqual({state: states.count(state) for state in set(states)}, {"begun": 12, "done": 6, "skipped": 6})

    def test_lasting_failures_are_recorded_and_not_tried_again(self) -> None:
        write_song(self.songs / "good.flac", 1)
        write_song(self.songs / "long.flac", 2, seconds=5)
        (self.songs / "text.wav").write_text("no music")
        soundfile.write(self.songs / "many.wav", np.zeros((100, 5)), 44100)
        rows = [{"id": name, "uri": f"songs/{name}"} for name in ("good.flac", "long.flac", "text.wav", "many.wav",
                                                                  "missing.wav")]
        rows.append({"id": "other", "uri": "songs/good.flac", "sha256": "0" * 64})
        code, said = self.run_array(self.manifest(*rows), "--longest", "3")
        self.assertEqual(code, 1)
        for sentence in ("long.flac: it lasts 5 s, and 3 s", "text.wav: .*no audio", "many.wav: .*5 channels",
                         "missing.wav: ", "other: .*not the file of the manifest", "1 done, 0 done before, 5 failed"):
            self.assertRegex(said, sentence)
        with mock.patch("tonwerk.catalogue.worker.fetch", side_effect=AssertionError):
            self.assertRegex(self.run_array(self.manifest(*rows), "--longest", "3")[1], "1 done before, 5 failed")
        (self.songs / "text.wav").unlink()
        write_song(self.songs / "text.wav", 3)  # the song itself is another one now
        self.assertRegex(self.run_array(self.manifest(*rows), "--longest", "3")[1], "1 done, 1 done before, 4 failed")
        self.assertNotIn("text.wav/failure.json", " ".join(results(str(self.out))))

    def test_nothing_committed_is_overwritten_unless_it_is_asked_for(self) -> None:
        write_song(self.songs / "a.flac", 1)
        self.run_array(self.songs)
        made = results(str(self.out))
        for words in (["--format", "flac16"], ["--stems", "vocals"], ["--model", str(MODELS / "neighbours.onnx")]):
            code, said = self.run_array(self.songs, *words)
            self.assertEqual(code, 1)
            self.assertRegex(said, "a.flac: there is a result of another")
        write_song(self.songs / "a.flac", 2)
        self.assertRegex(self.run_array(self.songs)[1], "a.flac: there is a result of another song file")
        self.assertEqual(results(str(self.out)), made)
        with mock.patch.object(Store, "put_file", side_effect=OSError("full")):
            self.run_array(self.songs, "--replace", "--retries", "0")
        self.assertEqual(results(str(self.out)), made)
        self.assertEqual(self.run_array(self.songs, "--replace")[0], 0)
        self.run_array(self.songs, out=self.folder / "anew")
        self.assertEqual(results(str(self.out)), results(str(self.folder / "anew")))

    def test_passing_failures_are_tried_again_and_leave_no_half(self) -> None:
        write_songs(self.songs, 1)
        original = Store.put_file
        refusals = iter([True, False, True])

        def put_file(store: Store, source: Path, name: str) -> None:
            if next(refusals, False):
                raise OSError(28, "No space left on device")
            original(store, source, name)

        with mock.patch.object(Store, "put_file", put_file):
            self.assertEqual(self.run_array(self.songs)[0], 0)
        self.assertEqual([row["state"] for row in ledger(str(self.out))],
                         ["begun", "passing", "begun", "passing", "begun", "done"])
        with mock.patch("os.replace", side_effect=OSError("pulled out")):
            code, said = self.run_array(self.songs, "--retries", "0", out=self.folder / "other")
        self.assertEqual((code, "0 done" in said or "ledger" in said), (2, True))
        self.assertEqual(results(str(self.folder / "other")), {})

    def test_reports_tell_what_is_there_and_what_is_damaged(self) -> None:
        write_songs(self.songs, 3, seconds=2)
        (self.songs / "bad.wav").write_text("no music")
        self.run_array(self.songs)
        table = self.folder / "table.csv"
        self.assertEqual(self.command("collect", self.out, table)[0], 0)
        with open(table, encoding="utf-8") as file:
            rows = {row["id"]: row for row in csv.DictReader(file)}
        self.assertEqual({song: row["state"] for song, row in rows.items()},
                         {"00000.flac": "done", "00001.flac": "done", "00002.flac": "done", "bad.wav": "failed"})
        self.assertEqual((rows["00001.flac"]["seconds"], rows["00001.flac"]["vocals_active_seconds"]), ("2.0", "2.0"))
        self.assertLess(float(rows["00001.flac"]["null_test_dbfs"]), -110)
        self.assertEqual(self.command("collect", self.out, table.with_suffix(".parquet"))[0], 0)
        self.assertRegex(self.command("verify", self.out)[1], "3 songs, 0 of them")
        vocals, bass = (next((self.out / folder_of("00001.flac")).rglob(f"{stem}.flac")) for stem in ("vocals", "bass"))
        vocals.write_bytes(vocals.read_bytes()[:-1])
        bass.unlink()
        receipt_path = self.out / folder_of("00002.flac") / "receipt.json"
        receipt = json.loads(receipt_path.read_text())
        receipt["tracks"]["drum"]["loudness_lufs"] += 1
        receipt["tracks"]["bass"]["peak_dbfs"] += 1
        receipt_path.write_text(json.dumps(receipt))
        code, said = self.command("verify", self.out)
        self.assertEqual(code, 1)
        for sentence in ("00001.flac: .*vocals.flac is not the file", "00001.flac: .*bass.flac is missing",
                         "00002.flac: the loudness of drum", "00002.flac: the peak of bass", "3 songs, 2 of them"):
            self.assertRegex(said, sentence)
        self.assertRegex(self.command("plan", self.songs / "0*.flac", "--try", "2")[1], '"songs": 3,\n "tried": 2')

    def test_levels_are_those_of_the_program(self) -> None:
        """Loudness by libebur128 there, by filters of our own here."""
        rate = 48000
        burst = np.where(np.arange(8 * rate) // rate % 4 < 2, 0.4, 0.001) * np.sin(np.arange(8 * rate) * 0.05)
        soundfile.write(self.songs / "song.wav", np.stack([burst, 0.5 * burst], 1), rate, "PCM_24")
        self.run_array(self.songs, "--stems", "vocals,bass", "--format", "pcm24")
        program: list[str | Path] = [os.environ["TONWERK_PROGRAM"], self.songs / "song.wav", "-o",
                                     self.folder / "program", "--model", MODEL]
        subprocess.run([*program, "--stems", "vocals,bass", "--format", "pcm24"], check=True, capture_output=True)
        theirs = json.loads((self.folder / "program/song/receipt.json").read_text())
        ours = json.loads((self.out / folder_of("song.wav") / "receipt.json").read_text())
        for stem, track in theirs["tracks"].items():
            self.assertAlmostEqual(ours["tracks"][stem]["loudness_lufs"], track["loudness_lufs"], delta=0.05)
            # Each has a resampler of its own, and the steps in the song ring differently.
            self.assertAlmostEqual(ours["tracks"][stem]["peak_dbfs"], track["peak_dbfs"], delta=0.1)
            np.testing.assert_allclose(ours["tracks"][stem]["active_seconds"], track["active_seconds"], atol=0.051)

    def test_options_decide_about_the_key(self) -> None:
        keys = {Options(stems=("vocals",)).key("a", "m"), Options().key("a", "m"), Options().key("b", "m"),
                Options().key("a", "n"), Options(quality="smooth").key("a", "m"),
                Options(format="flac16").key("a", "m")}
        self.assertEqual(len(keys), 6)
        self.assertEqual(Options(longest_seconds=1).key("a", "m"), Options().key("a", "m"))
        for wrong in ({"stems": ("flute",)}, {"format": "mp3"}, {"quality": "loudest"}):
            with self.assertRaises(ValueError):
                Options(**wrong)


def wait_for(condition: Callable[[], Any]) -> Any:
    while not (found := condition()):
        time.sleep(0.05)
    return found


class OnRay(WithFolder):
    def test_a_killed_worker_costs_nothing_but_time(self) -> None:
        write_songs(self.songs, 10, seconds=2)
        self.run_array(self.songs, out=self.folder / "clean")
        words: list[str | Path] = [sys.executable, "-m", "tonwerk.catalogue.cli", "run", self.songs, "-o", self.out]
        words += ["--jobs", "2"]
        with subprocess.Popen(words, env={**os.environ, **SCRATCH}, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True) as command:
            wait_for(lambda: list(self.out.rglob("receipt.json")) or command.poll() is not None)
            killed = descendants(command.pid, "ray::song")[0]
            os.kill(killed, signal.SIGKILL)
            said = command.communicate()[0]
        self.assertEqual(command.returncode, 0, said)
        self.assertIn("0 failed for good, 0 to be tried again", said)
        made, clean = results(str(self.out)), results(str(self.folder / "clean"))
        self.assertEqual(set(made), set(clean))
        self.assertTrue(made == clean, "The results differ.")
        rows = ledger(str(self.out))
        done = [row["id"] for row in rows if row["state"] == "done"]
        self.assertEqual(len(done), len(set(done)))
        ended = {row["attempt"] for row in rows if row["state"] != "begun"}
        self.assertLessEqual({row["process"] for row in rows if row["attempt"] not in ended}, {killed})


if __name__ == "__main__":
    unittest.main()
