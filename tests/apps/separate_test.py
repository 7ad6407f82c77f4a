#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Separates one song after another with tonwerk-separate.

Usage: separate_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program. The files in data hold 20,000 frames of two sines (see `tone`).
"""

import contextlib
import hashlib
import json
import os
import pty
import shutil
import struct
import subprocess
from pathlib import Path

import numpy as np
from program import (
    DATA,
    GAINS,
    RATE,
    TOLERANCE,
    ProgramTest,
    decibels,
    file_set,
    main,
    noise,
    tone,
    wav_bytes,
    wav_header,
    wav_parts,
)


class SeparateTest(ProgramTest):
    def test_stems_are_as_long_as_the_song_in_step_with_it_and_mono_if_it_is(self) -> None:
        # One sample; exactly one block; a block and a rest; four blocks that leave nothing for a fifth.
        for frames, channels in ((1, 2), (257024, 2), (300000, 2), (300000, 1), (257024 + 3 * 254976, 2)):
            with self.subTest(frames=frames, channels=channels):
                song = noise(frames, channels)
                self.assert_done(self.separate(self.put("song.wav", wav_bytes(song))))
                self.assert_stems("song", song)
                self.assertEqual(self.files(), file_set("song"))

    def test_silence_comes_back_as_exact_zeros(self) -> None:
        summary = self.assert_done(self.separate(self.put("still.wav", wav_bytes(np.zeros((70000, 2))))))
        self.assertEqual((summary[2], summary[3]), ("-inf", "0"))
        self.assertFalse([name for name in GAINS if self.stem("still", name).any()])

    def test_only_the_listed_stems_are_written(self) -> None:
        song = noise(30000)
        self.put("song.wav", wav_bytes(song))
        self.assert_done(self.separate("song.wav", "--stems", "bass,vocals"))
        self.assertEqual(self.files(), file_set("song", ("bass", "vocals")))
        self.assert_stems("song", song, ["bass", "vocals"])
        # All six are asked of the model for the residual: it would hold the whole song otherwise.
        self.assert_done(self.separate("song.wav", "--stems=residual"))
        self.assert_stems("song", song, ["residual"])

    def test_other_formats_are_read(self) -> None:
        expected = tone(20000)
        # What lossy formats may change. Where the MP3 encoder has not noted that it puts 1105 frames in front and fills
        # its last block, they stay.
        for file, tolerance, delay in (("tone.flac", 1e-4, 0), ("tone.ogg", 0.02, 0), ("gapless.mp3", 0.02, 0),
                                       ("tone.mp3", 0.02, 1105)):
            with self.subTest(file=file):
                self.assert_done(self.separate(str(DATA / file), "--overwrite"))
                mix = self.stem(file.split(".")[0], "mix")
                self.assertEqual(len(mix), 19 * 1152 if delay else 20000)
                middle = slice(1000, 18000)
                np.testing.assert_allclose(mix[delay:][middle], expected[middle], rtol=0, atol=tolerance)

    def test_wav_files_of_all_kinds_are_read(self) -> None:
        song = (np.round(noise(2000) * 100) / 128).astype("<f8")
        integers = np.round(song * 2**31).astype("<i8")

        def wav(tag: int, bits: int, data: bytes, head: bytes = b"RIFF", extra: bytes | None = None) -> bytes:
            extension = b"" if tag != 0xFFFE else struct.pack("<HHIH", 22, bits, 3, 1) + \
                b"\0\0\0\0\x10\0\x80\0\0\xaa\0\x38\x9b\x71"
            fmt = struct.pack("<HHIIHH", tag, 2, RATE, RATE * bits // 4, bits // 4, bits) + extension
            size = len(data) if extra is None else 0xFFFFFFFF
            return (head + struct.pack("<I", size) + b"WAVE" + (extra or b"") +
                    b"fmt " + struct.pack("<I", len(fmt)) + fmt + b"data" + struct.pack("<I", size) + data)

        def packed(bits: int) -> bytes:
            shifted = (integers >> (32 - bits)).astype("<i4")
            return shifted.view("u1").reshape(-1, 4)[:, :bits // 8].tobytes()

        ds64 = b"ds64" + struct.pack("<IQQQI", 28, 2000 * 6 + 72, 2000 * 6, 2000, 0)
        for name, content in (("8", wav(1, 8, ((integers >> 24) + 128).astype("u1").tobytes())),
                              ("16", wav(1, 16, packed(16))), ("24", wav(1, 24, packed(24))),
                              ("32", wav(1, 32, packed(32))), ("float64", wav(3, 64, song.tobytes())),
                              ("extensible", wav(0xFFFE, 24, packed(24))),
                              ("piped", wav(1, 16, packed(16), extra=b"")),
                              ("rf64", wav(1, 24, packed(24), b"RF64", ds64))):
            with self.subTest(kind=name):
                self.assert_done(self.separate(self.put(f"{name}.wav", content), "--stems", "mix"))
                np.testing.assert_allclose(self.stem(name, "mix"), song, rtol=0, atol=TOLERANCE)

    def test_a_song_of_any_rate_comes_back_at_its_own(self) -> None:
        for rate, channels in ((8000, 2), (22050, 1), (48000, 2), (192000, 2)):
            with self.subTest(rate=rate):
                frames = 2 * rate + 7
                song = tone(frames, rate)[:, :channels] + 0.1 * noise(frames, channels)
                self.assert_done(self.separate(self.put("song.wav", wav_bytes(song, rate))))
                stems = {name: self.stem("song", name, rate) for name in GAINS}
                self.assertEqual({stem.shape for stem in stems.values()}, {song.shape})
                whole = sum(stem.astype(float) for name, stem in stems.items() if name != "mix")
                np.testing.assert_allclose(whole, song.astype("<f4"), rtol=0, atol=1e-6)
                # The tones' share of each stem, by the wave's own phase: a sample's delay would be 0.5 % at 192 kHz.
                wave = np.exp(2j * np.pi * 441 / rate * np.arange(frames)) * np.hanning(frames)
                expected = wave @ song[:, 0]
                for name in ("vocals", "bass", "mix"):
                    self.assertLess(abs(wave @ stems[name][:, 0] / expected - GAINS[name]), 1e-4, name)

    def test_fixed_point_files_of_a_loud_song_are_lowered_alike(self) -> None:
        song = 4 * noise(20000)
        peak = np.abs(song).max()
        self.put("song.wav", wav_bytes(song))
        for name, bits, step in (("pcm16", 16, 2**-15), ("pcm24", 24, 2**-23)):
            done = self.separate("song.wav", "--format", name, "--mix", "vocals=+6.0206,bass=-inf", "--stems=mix,bass")
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertRegex("".join(done.errors), r"^Warning: All files of .*song.wav\" are lowered by [\d.]+ dB")
            gain = 10 ** (self.receipt("song")["gain_db"] / 20)
            parts = {"mix": 1.0, "bass": GAINS["bass"], "practice_mix": 1 + GAINS["vocals"] - GAINS["bass"]}
            self.assertAlmostEqual(gain * peak * max(parts.values()), 1, delta=1e-3)
            for part, share in parts.items():
                content = (self.folder / "out/song" / f"{part}.wav").read_bytes()
                numbers, data = wav_parts(content)
                self.assertEqual(numbers, (1, 2, RATE, RATE * bits // 4, bits // 4, bits))
                samples = np.zeros((40000, 4), "u1")
                samples[:, 4 - bits // 8:] = np.frombuffer(data, "u1").reshape(40000, -1)
                values = samples.view("<i4").reshape(-1, 2) / 2**31
                np.testing.assert_allclose(values, gain * share * song, rtol=0, atol=4 * TOLERANCE + 2 * step)
        self.separate(self.put("soft.wav", wav_bytes(noise(5000))), "--format", "pcm16")
        self.assertEqual(self.receipt("soft")["gain_db"], 0)

    def test_mixtures_are_written_in_the_same_pass(self) -> None:
        song = noise(30000)
        self.put("song.wav", wav_bytes(song))
        self.assert_done(self.separate("song.wav", "--karaoke"))
        self.assertEqual(self.files(), file_set("song", ["karaoke"]))
        np.testing.assert_allclose(self.stem("song", "karaoke"), (1 - GAINS["vocals"]) * song, rtol=0, atol=TOLERANCE)
        self.assert_done(self.separate("song.wav", "--stems", "drum", "--mix", "piano=-6.0206dB,residual=-inf"))
        self.assert_stems("song", song, ["drum"])
        # Without the residual, every stem has to be known.
        np.testing.assert_allclose(self.stem("song", "practice_mix"), (1 - GAINS["piano"] / 2) * song, rtol=0,
                                   atol=TOLERANCE)

    def test_the_receipt_tells_what_was_measured(self) -> None:
        song = np.concatenate([np.zeros((48000, 1)), 0.5 * tone(96000, 48000)[:, :1], np.zeros((24001, 1))])
        song[3] = np.nan
        self.put("song.wav", wav_bytes(song, 48000))
        self.assertEqual(self.separate("song.wav", "--stems=vocals,bass,mix").returncode, 0)
        receipt = self.receipt("song")
        model = self.models / "gains.onnx"
        hashes = [hashlib.sha256(path.read_bytes()).hexdigest() for path in (self.folder / "song.wav", model)]
        self.assertEqual(receipt["input"], {"file": "song.wav", "sample_rate": 48000, "channels": 1, "frames": 168001,
                                            "seconds": 168001 / 48000, "non_finite_samples": 1, "sha256": hashes[0]})
        self.assertEqual(receipt["model"], {"file": model.name, "sha256": hashes[1], "passport": None})
        self.assertEqual(receipt["options"]["stems"], ["vocals", "bass", "mix"])
        self.assertEqual(receipt["options"]["quality"], "smooth")
        self.assertIn("CPUExecutionProvider", receipt["runtime_providers"])
        self.assertEqual(receipt["provider"], "CPU")
        self.assertLess(receipt["null_test_dbfs"], -120)
        self.assertGreater(receipt["real_time_factor"], 0)
        mix, vocals = receipt["tracks"]["mix"], receipt["tracks"]["vocals"]
        self.assertAlmostEqual(mix["peak_dbfs"], decibels(0.125), delta=0.1)
        self.assertAlmostEqual(mix["loudness_lufs"] - vocals["loudness_lufs"], -decibels(GAINS["vocals"]), delta=0.01)
        self.assertAlmostEqual(mix["loudness_lufs"], decibels(0.125) - 3 - 0.7, delta=0.6)
        np.testing.assert_allclose(mix["active_seconds"], [[1, 3]], atol=0.06)
        self.assertEqual(mix["non_finite_samples"], 0)

    def test_files_with_headers_are_no_samples(self) -> None:
        sound = noise(20000).tobytes()
        for begin, kind in ((wav_bytes(noise(3000)), "a WAV"), (b"RF64....WAVE", "a WAV"), (b"fLaC", "a FLAC"),
                            (b"OggS", "an OGG"), (b"ID3\x03\x00", "an MP3"), (b"\xff\xfb\x90\x64", "an MP3"),
                            (b"....ftyp", "an MP4"), (b"FORM", "an AIFF")):
            refused = self.run_program(self.arguments("-"), input=begin + sound)
            self.assertEqual(refused.returncode, 1, kind)
            self.assertIn(f"holds {kind} file", refused.stderr)
        told = self.run_program([*self.arguments("-"), "--input-format", "raw"], input=b"fLaC" + bytes(79996))
        self.assertEqual(told.returncode, 0, told.stderr)
        self.assert_done(self.run_program(self.arguments("-"), input=sound))

    def test_stems_pass_through_a_pipe(self) -> None:
        song = noise(300000)
        model = str(self.models / "gains.onnx")
        done = self.run_program([*self.command, "-", "--raw", "--stems", "bass,vocals", "--model", model],
                                input=song.tobytes())
        self.assertEqual((done.returncode, len(done.raw)), (0, 300000 * 4 * 4), done.stderr)
        frames = np.frombuffer(done.raw, "<f4").reshape(-1, 2, 2)
        for place, name in enumerate(("vocals", "bass")):
            np.testing.assert_allclose(frames[:, place], GAINS[name] * song, rtol=0, atol=TOLERANCE)
        self.assertEqual(list(self.folder.iterdir()), [])
        self.assert_done(self.run_program([*self.arguments("-"), "--input-rate", "48000"], input=song.tobytes()))
        self.assertEqual(len(self.stem("stdin", "mix", 48000)), 300000)

    def test_names_in_any_script_work(self) -> None:
        song = noise(5000)
        done = self.separate(self.put("Größe 歌 песня 🎵.wav", wav_bytes(song)))
        self.assertEqual(self.assert_done(done)[1], "Größe 歌 песня 🎵.wav")
        self.assert_stems("Größe 歌 песня 🎵", song)
        self.assert_done(self.separate("*歌 песня *.wav", "-o", "вывод/結果 🎹", "--karaoke", "--format", "pcm24"))
        folder = self.folder / "вывод/結果 🎹/Größe 歌 песня 🎵"
        self.assertEqual({path.name for path in folder.iterdir()}, {"karaoke.wav", "receipt.json"})
        receipt = json.loads((folder / "receipt.json").read_text(encoding="utf-8"))
        self.assertEqual(receipt["input"]["file"], "Größe 歌 песня 🎵.wav")

    def test_a_scrambled_model_needs_its_key(self) -> None:
        key = b"correct horse"
        plain = np.frombuffer((self.models / "gains.onnx").read_bytes(), np.uint8)
        scrambled = plain ^ np.resize(np.frombuffer(key, np.uint8), plain.shape)
        model = self.folder / self.put("model.onnx", scrambled.tobytes())
        self.put("song.wav", wav_bytes(noise(5000)))
        self.assert_failed(self.separate("song.wav", "--key", "wrong", model=model), "cannot be used: ")
        self.assert_done(self.separate("song.wav", "--key", key.decode(), model=model))

    def test_an_mp3_that_is_not_whole_is_separated_with_a_warning(self) -> None:
        for file in ("gapless.mp3", "tone.mp3"):
            whole = (DATA / file).read_bytes()
            frames = [0]
            while frames[-1] < len(whole):  # of 96 kb/s at 44.1 kHz, some with a byte more
                frames.append(frames[-1] + 313 + (whole[frames[-1] + 2] >> 1 & 1))
            middle, after = frames[len(frames) // 2], frames[len(frames) // 2 + 2]
            for name, content, words in (
                    ("whole", whole, None),
                    ("tagged", b"ID3\4\0\0\0\0\1\x05" + bytes(133) + whole + b"TAG" + bytes(125), None),
                    ("cut", whole[:-100], "its last frame of MP3 is not whole"),
                    ("hole", whole[:middle] + whole[middle + 99:],
                     "is damaged: what follows a frame of MP3 is none at 1 place"),
                    ("garbage", whole[:middle] + b"!" * 50 + whole[middle:], "is damaged"),
                    ("shorter", whole[:after], "is damaged or cut off" if file == "gapless.mp3" else None),
                    ("lacking", whole[:middle] + whole[after:],
                     "is damaged or cut off" if file == "gapless.mp3" else None)):
                with self.subTest(file=file, name=name):
                    done = self.separate(self.put("song.mp3", content), "--stems", "mix")
                    self.assertEqual((done.returncode, len(done.errors)), (0, 1 if words else 0), done.stderr)
                    warnings = self.receipt("song")["warnings"]
                    self.assertEqual([f"Warning: {warning}" for warning in warnings], done.errors)
                    self.assertIn(words or "", "".join(warnings))
        done = self.separate("song.mp3", "--progress", "json")
        self.assertEqual(json.loads(done.stderr.splitlines()[-2])["warnings"], self.receipt("song")["warnings"])

    def test_a_song_that_cannot_be_separated_is_refused_in_one_sentence(self) -> None:
        whole = wav_bytes(noise(300000))
        flac = (DATA / "tone.flac").read_bytes()
        ogg = (DATA / "tone.ogg").read_bytes()
        for name, content, words in (
                ("slow.wav", wav_bytes(noise(100), rate=7999), "7999 Hz"),
                ("fast.wav", wav_bytes(noise(100), rate=192001), "192001 Hz"),
                ("six.wav", wav_bytes(noise(100, channels=6)), "6 channels"),
                ("empty.wav", b"", "empty"),
                ("soundless.wav", wav_header(0), "no sound"),
                ("garbage.mp3", np.random.default_rng(1).bytes(500000), "not a readable"),
                ("text.ogg", b"This is no music. " * 1000, "not a readable"),
                ("head.wav", whole[:30], "not a readable"),
                ("half.wav", whole[:34] + b"\x10" + whole[35:], "not a readable"),
                ("cut.wav", whole[:-1000], "cut off"),
                ("cut.flac", flac[:len(flac) // 2], "cut off"),
                ("cut.ogg", ogg[:-100], "cut off"),
                ("damaged.ogg", ogg[:500] + b"!" + ogg[501:], "damaged"),
                ("short.ogg", ogg[:ogg.rindex(b"OggS")], "missing")):
            with self.subTest(song=name):
                self.assert_failed(self.separate(self.put(name, content)), words)
        self.assert_failed(self.separate("missing.wav"), "does not exist")
        self.assert_failed(self.separate("*.aiff"), "does not exist")
        (self.folder / "none").mkdir()
        self.assert_failed(self.separate("none"), "holds no WAV")
        self.assert_failed(self.run_program([*self.arguments("-"), "--stems", "bass"], input=b"123"), "cut off")
        self.assert_failed(self.run_program(self.arguments("-"), input=b""), "no sound")

    def test_a_song_in_which_the_model_fails_has_failed(self) -> None:
        song = noise(3 * 254976)
        song[400000] = 1e6  # beyond what that model takes; the chunks before it are good
        done = self.separate(self.put("song.wav", wav_bytes(song)), model="fail_on_request.onnx")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.errors[-1], r"^tonwerk-separate: The model failed at 0:04 or soon after: .*[^ ]\.$")
        self.assertFalse((self.folder / "out").exists())

    def test_a_model_that_answers_no_numbers_fails_with_the_stems_named(self) -> None:
        self.put("song.wav", wav_bytes(noise(300000)))
        for options in ([], ["--raw"]):
            arguments = [*self.command, "song.wav", "--model", str(self.models / "hostile/not_a_number.onnx")]
            done = self.run_program([*arguments, *(options or ["-o", "out"])])
            self.assert_failed(done, "are not finite numbers for drum, bass")
        # Whether a song that is none itself can be separated is up to the song.
        song = noise(3000)
        song[7] = np.nan
        self.assertEqual(self.separate(self.put("odd.wav", wav_bytes(song))).returncode, 0)

    def test_a_model_that_would_read_other_files_is_refused(self) -> None:
        self.put("song.wav", wav_bytes(noise(3000)))
        for part in ("initializer", "attribute", "function", "sparse", "subgraph", "memory"):
            self.assert_failed(self.separate("song.wav", model=f"hostile/external_{part}.onnx"), "has external data")

    def test_libraries_in_the_current_directory_are_not_loaded(self) -> None:
        decoy = Path(self.command[-1]).parent / "standin-no-entry-point/libonnxruntime_pelagrin.so"
        if self.on_windows or not decoy.exists():
            self.skipTest("needs the loader of Linux and a library that tells of being loaded")
        self.put("song.wav", wav_bytes(noise(3000)))
        for name in ("libonnxruntime_providers_shared.so", "libonnxruntime_providers_cuda.so", "libtonwerk_c.so.1",
                     "libtonwerk_proc_multistem.so", "libonnxruntime_pelagrin.so"):
            shutil.copy(decoy, self.folder / name)
        for places in ("", ":", "/nowhere:", ".", "/nowhere:."):
            done = subprocess.run(self.arguments("song.wav"), cwd=self.folder, capture_output=True,
                                  env=dict(os.environ, LD_LIBRARY_PATH=places))
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertFalse((self.folder / "decoy-was-loaded").exists(), places)

    def test_a_model_that_cannot_be_used_is_refused_in_one_sentence(self) -> None:
        self.put("song.wav", wav_bytes(noise(5000)))
        self.put("empty.onnx", b"")
        for model, words in (("missing.onnx", "does not exist"), ("song.wav", "cannot be used: "),
                             ("empty.onnx", "empty")):
            self.assert_failed(self.separate("song.wav", model=self.folder / model), words)

    def test_wrong_usage_is_told_apart(self) -> None:
        self.put("song.wav", wav_bytes(noise(100)))
        self.assert_failed(self.separate("song.wav", "--stems", "vocals,trumpet"), "\"trumpet\"", code=2)
        self.assert_failed(self.separate("song.wav", "--loud"), "--loud", code=2)
        self.assert_failed(self.run_program([*self.command, "song.wav"]), "required", code=2)
        for options, words in ((["--mix", "vocals=loud"], "\"vocals=loud\""), (["--mix", "mix=-3"], "but not mix"),
                               (["--stems", "none"], "nothing to write"), (["--shard", "3/2"], "\"3/2\""),
                               (["--raw"], "none of"), (["--format", "pcm8"], "pcm8"), (["--jobs", "0"], "--jobs"),
                               (["--quality", "awful"], "the qualities are instant, live, ")):
            with self.subTest(options=options):
                self.assert_failed(self.separate("song.wav", *options), words, code=2)

    def test_older_stems_stay_when_a_run_fails_and_go_when_one_succeeds(self) -> None:
        self.assert_done(self.separate(self.put("song.wav", wav_bytes(noise(3000)))))
        before = self.stem("song", "vocals").copy()
        self.assertEqual(self.separate(self.put("song.wav", wav_bytes(noise(300000))[:-8])).returncode, 1)
        np.testing.assert_array_equal(self.stem("song", "vocals"), before)
        self.assertEqual(self.files(), file_set("song"))
        self.assert_done(self.separate(self.put("song.wav", wav_bytes(noise(4000)))))
        self.assertEqual(len(self.stem("song", "vocals")), 4000)

    def test_a_terminal_shows_a_bar(self) -> None:
        if self.on_windows:
            self.skipTest("needs a console")
        self.put("song.wav", wav_bytes(noise(300000)))
        ours, theirs = pty.openpty()
        subprocess.run(self.arguments("song.wav"), cwd=self.folder, stderr=theirs, stdout=subprocess.DEVNULL)
        os.close(theirs)
        shown = b""
        with contextlib.suppress(OSError):  # the end of a terminal
            while part := os.read(ours, 10000):
                shown += part
        os.close(ours)
        self.assertRegex(shown.decode(), r"\r\[#{26} {4}\]  86 %, \d+:\d\d left, [\d.]+ x real time *"
                                r"\r\[#{30}\] 100 %.*\r?\n$")


if __name__ == "__main__":
    main()
