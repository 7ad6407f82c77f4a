#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Separates many songs at once with tonwerk-separate.

Usage: batch_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program.
"""

import json
import os
import shutil
import signal
import subprocess
from pathlib import Path

from program import (
    GAINS,
    INTERRUPTED,
    PROGRESS,
    RATE,
    ProgramTest,
    file_set,
    main,
    noise,
    wav_bytes,
    wav_header,
    wav_parts,
)

MANUAL = Path(__file__).resolve().parents[2] / "docs" / "separate.md"


class BatchTest(ProgramTest):
    def put_album(self) -> None:
        """Four songs in two folders, two of which cannot be read and two of which have one name."""
        (self.folder / "album/b").mkdir(parents=True)
        self.put("album/one.wav", wav_bytes(noise(20000)))
        self.put("album/b/one.wav", wav_bytes(noise(21000, 1)))
        self.put("album/b/cut.wav", wav_bytes(noise(5000))[:-9])
        self.put("album/empty.mp3", b"")

    def test_a_folder_is_separated_song_by_song_whatever_fails(self) -> None:
        self.put_album()
        done = self.separate("album")
        self.assertEqual((done.returncode, len(done.errors)), (1, 2), done.stderr)
        self.assertEqual(done.stdout.splitlines()[-1], "2 done, 2 failed, 0 skipped")
        self.assertEqual(self.files(), file_set("one") | file_set("b/one"))
        self.assertEqual([len(self.stem(name, "mix")) for name in ("one", "b/one")], [20000, 21000])

    def test_stems_of_another_song_are_not_replaced_unasked(self) -> None:
        self.put("one.wav", wav_bytes(noise(20000)))
        (self.folder / "other").mkdir()
        self.put("other/one.flac", (Path(__file__).parent / "data/tone.flac").read_bytes())
        self.assertEqual(self.separate("one.wav").returncode, 0)
        refused = self.separate("other/one.flac", "--karaoke")
        self.assertEqual(refused.returncode, 1)
        self.assertIn("holds the stems of \"one.wav\", not of", refused.errors[0])
        self.assertEqual(self.files(), file_set("one"))
        self.assertEqual(len(self.stem("one", "mix")), 20000)
        self.assertEqual(self.separate("other/one.flac", "--overwrite").returncode, 0)
        self.assertEqual(self.separate("other").returncode, 0, "its own stems are replaced")

    def test_files_that_nothing_reads_are_mentioned(self) -> None:
        (self.folder / "album/deep").mkdir(parents=True)
        self.put("album/one.wav", wav_bytes(noise(20000)))
        self.put("album/deep/two.m4a", b"x")
        done = self.separate("album")
        self.assertEqual(done.returncode, 0)
        self.assertIn("Note: 1 file is left out, because this program does not read .m4a", done.stderr)

    def test_songs_that_are_done_are_skipped(self) -> None:
        self.put_album()
        self.separate("album", "--shard", "2/4")
        self.assertEqual(self.files(), file_set("b/one"))
        before = {path: path.stat().st_mtime_ns for path in (self.folder / "out/b/one").iterdir()}
        done = self.separate("album", "--resume")
        self.assertEqual(done.stdout.splitlines()[-1], "1 done, 2 failed, 1 skipped")
        self.assertEqual({path: path.stat().st_mtime_ns for path in before}, before)
        other = str(self.models / "identity_vocals.onnx")
        for change in (["--format", "pcm24"], ["--model", other], ["--mix", "bass=-3"],
                       ["--quality", "normal"]):
            done = self.separate("album/*.wav", "--resume", *change)
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertIn("real-time factor", done.stdout.splitlines()[-1], change)
        (self.folder / "out/one/drum.wav").unlink()
        self.assertIn("real-time factor", self.separate("album/*.wav", "--resume").stdout)
        self.put("album/one.wav", wav_bytes(noise(22000)))
        self.assertIn("real-time factor", self.separate("album/*.wav", "--resume").stdout)
        self.assertIn("already done", self.separate("album/*.wav", "--resume").stdout)

    def test_jobs_give_the_same_files(self) -> None:
        for song in range(4):
            self.put(f"{song}.wav", wav_bytes(noise(260000 + song)))
        songs = [str(song) for song in range(4)]

        def separated(*options: str) -> dict[str, list[bytes]]:
            done = self.separate("*.wav", *options)
            self.assertEqual((done.returncode, done.errors), (0, []))
            return {name: [self.stem(song, name).tobytes() for song in songs] for name in GAINS}

        alone = separated()
        self.assertEqual(separated("--jobs", "3"), alone)
        self.assertEqual(separated("--jobs", "3", "--memory", "0.1"), alone)

    def test_progress_comes_as_json(self) -> None:
        self.put_album()
        done = self.separate("album", "--progress", "json", "--jobs", "2")
        events = [json.loads(line) for line in done.stderr.splitlines() if line.startswith("{")]
        kinds = [event["event"] for event in events]
        self.assertEqual((kinds[0], kinds[-1]), ("begin", "end"))
        self.assertEqual(events[-1], {"event": "end", "done": 2, "failed": 2, "skipped": 0})
        self.assertEqual(sorted((event["song"].replace("\\", "/"), event["folder"].replace("\\", "/"))
                                for event in events if event["event"] == "done"),
                         [("album/b/one.wav", "out/b/one"), ("album/one.wav", "out/one")])
        for song in {event["song"] for event in events if event["event"] == "done"}:
            fractions = [event["fraction"] for event in events
                         if event["event"] == "progress" and event["song"] == song]
            self.assertEqual((fractions[0], fractions[-1], fractions), (0, 1, sorted(fractions)))
        self.assertIn("is an empty file.", next(event["reason"] for event in events if event["event"] == "failed" and
                                               event["song"].endswith("empty.mp3")))

    def test_the_manuals_example_with_gnu_parallel_works(self) -> None:
        if self.on_windows or not shutil.which("parallel"):
            self.skipTest("needs GNU parallel")
        example = next(line for line in MANUAL.read_text().splitlines() if line.startswith("parallel "))
        (self.folder / "music").mkdir()
        for song in range(5):
            self.put(f"music/{song}.wav", wav_bytes(noise(5000)))
        shutil.copy(self.models / "gains.onnx", self.folder / "model.onnx")
        environment = dict(os.environ, PATH=f"{Path(self.command[-1]).resolve().parent}:{os.environ['PATH']}")
        for round_ in ("first", "again"):
            done = subprocess.run(["bash", "-c", example], cwd=self.folder, env=environment, capture_output=True,
                                  encoding="utf-8")
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertEqual(done.stdout.count("already done"), 5 if round_ == "again" else 0)
        self.assertEqual(len(list(self.folder.glob("stems/*/receipt.json"))), 5)

    def test_an_interrupted_run_leaves_only_what_is_done(self) -> None:
        frames = 10 * 60 * RATE  # long enough to be still at work
        with open(self.folder / "long.wav", "wb") as song:
            song.write(wav_header(frames))
            song.truncate(44 + frames * 8)
        self.put("first.wav", wav_bytes(noise(3000)))
        # A shell's background jobs, and so perhaps we, ignore the signal.
        with subprocess.Popen(self.arguments("*.wav"), cwd=self.folder, stderr=subprocess.PIPE,
                              stdout=subprocess.DEVNULL, encoding="utf-8",
                              preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL)) as program:
            percents = (int(line.split()[0]) for line in program.stderr if PROGRESS.fullmatch(line.strip()))
            next(percent for percent in percents if percent > 50)
            self.assertIn("long/tonwerk-unfinished/vocals.wav", self.files())
            part = (self.folder / "out/long/tonwerk-unfinished/drum.wav").read_bytes()
            self.assertGreaterEqual(len(wav_parts(part)[1]), 252928 * 8)
            program.send_signal(signal.SIGINT)
            last = program.stderr.read().splitlines()[-1]
        self.assertEqual((last, program.returncode), (INTERRUPTED, 130))
        self.assertEqual(self.files(), file_set("first"))
        done = self.separate("first.wav", "--resume")
        self.assertEqual((done.returncode, done.stdout.splitlines()), (0, ["first.wav: already done"]))


if __name__ == "__main__":
    main()
