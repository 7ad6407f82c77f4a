#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What tonwerk-separate leaves in its output folder, whatever stands there, goes wrong, or ends it.

Usage: output_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program.
"""

import os
import signal
import subprocess
import time
from pathlib import Path

import numpy as np
from program import GAINS, INTERRUPTED, ProgramTest, file_set, main, noise, wav_bytes

UNFINISHED = "tonwerk-unfinished"


class OutputTest(ProgramTest):
    def begin(self, *arguments: str, frames: int = 300000) -> "subprocess.Popen[bytes]":
        """A run that waits for more of its song from standard input, with part of it written."""
        program = subprocess.Popen([*self.arguments("-"), *arguments], cwd=self.folder, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
        self.addCleanup(program.communicate)
        self.addCleanup(program.kill)
        assert program.stdin
        program.stdin.write(noise(frames).tobytes())
        program.stdin.flush()
        part = self.folder / "out/stdin" / UNFINISHED / "mix.wav"
        deadline = time.monotonic() + 30
        while not (part.exists() and part.stat().st_size > 1000) and program.poll() is None \
                and time.monotonic() < deadline:
            time.sleep(0.01)
        self.assertTrue(part.exists(), program.poll())
        return program

    def snapshot(self) -> dict[str, bytes]:
        return {name: (self.folder / "out" / name).read_bytes() for name in self.files()}

    def test_a_folder_has_one_writer_at_a_time(self) -> None:
        song = noise(300000)
        first = self.begin()
        second = self.run_program(self.arguments("-"), input=b"\0" * 80000)
        self.assertEqual((second.returncode, len(second.errors)), (1, 1), second.stderr)
        self.assertIn("Another run is writing", second.errors[0])
        # Other folders are free.
        self.assert_done(self.separate(self.put("song.wav", wav_bytes(song))))
        _, errors = first.communicate()
        self.assertEqual(first.returncode, 0, errors)
        self.assert_stems("stdin", song)
        self.assertEqual(self.files(), file_set("stdin") | file_set("song"))

    def test_what_a_killed_run_has_left_is_in_nobodys_way(self) -> None:
        if self.on_windows:
            self.skipTest("killing Wine's starter leaves the program alive")
        song = noise(300000)
        self.assert_done(self.run_program(self.arguments("-"), input=noise(5000).tobytes()))
        before = self.snapshot()
        killed = self.begin()
        killed.kill()
        killed.communicate()
        self.assertIn(f"stdin/{UNFINISHED}/mix.wav", self.files())
        self.assertFalse([name for name, content in before.items() if self.snapshot().get(name) != content])
        # Of a run that was killed while it exchanged the files, the older ones stand aside.
        aside = self.folder / "out/stdin" / UNFINISHED / "before"
        aside.mkdir()
        for name in ("receipt.json", "drum.wav"):
            (self.folder / "out/stdin" / name).rename(aside / name)
        failed = self.run_program(self.arguments("-"), input=b"123")
        self.assertEqual(failed.returncode, 1)
        self.assertTrue(self.snapshot() == before, self.files())
        self.assert_done(self.run_program(self.arguments("-"), input=song.tobytes()))
        self.assert_stems("stdin", song)
        self.assertEqual(self.files(), file_set("stdin"))

    def test_a_file_that_cannot_take_its_place_leaves_the_older_ones(self) -> None:
        self.assert_done(self.separate(self.put("song.wav", wav_bytes(noise(3000)))))
        for obstacle in ("mix.wav", "receipt.json", "report.html"):
            with self.subTest(obstacle=obstacle):
                place = self.folder / "out/song" / obstacle
                older = place.read_bytes() if place.exists() else None
                place.unlink(missing_ok=True)
                place.mkdir()
                before = self.snapshot()
                self.put("song.wav", wav_bytes(noise(4000)))
                self.put("other.wav", wav_bytes(noise(2000)))
                done = self.run_program([*self.arguments("song.wav"), "other.wav", "--report", "--resume"])
                self.assertEqual((done.returncode, len(done.errors)), (1, 1), done.stderr)
                self.assertIn(obstacle, done.errors[0])
                self.assertFalse([name for name, content in before.items() if self.snapshot().get(name) != content])
                self.assertIn("other/receipt.json", self.files())
                self.assertFalse((self.folder / "out/song" / UNFINISHED).exists())
                place.rmdir()
                if older is not None:
                    place.write_bytes(older)

    def test_nothing_is_written_through_links(self) -> None:
        if self.on_windows:
            self.skipTest("links need rights of their own")
        song = noise(3000)
        precious = self.folder / self.put("precious", b"mine")
        os.chmod(precious, 0o666)
        folder = self.folder / "out/song"
        folder.mkdir(parents=True)
        names = [*(f"{name}.wav" for name in GAINS), "receipt.json", "report.html"]
        for number, name in enumerate([*names, *(f"{name}.part" for name in names), "tonwerk.lock"]):
            (folder / name).symlink_to(precious) if number % 2 else os.link(precious, folder / name)
        (folder / UNFINISHED).symlink_to(self.folder / "elsewhere")
        (self.folder / "elsewhere").mkdir()
        done = self.separate(self.put("song.wav", wav_bytes(song)), "--report")
        if "tonwerk.lock" in done.stderr:  # a lock that is a link is refused
            (folder / "tonwerk.lock").unlink()
            done = self.separate("song.wav", "--report")
        self.assert_done(done)
        self.assertEqual(precious.read_bytes(), b"mine")
        self.assertEqual(list((self.folder / "elsewhere").iterdir()), [])
        self.assert_stems("song", song)
        self.assertFalse([path.name for path in folder.iterdir() if path.is_symlink() and path.suffix != ".part"])
        (self.folder / "out/linked").symlink_to(self.folder / "elsewhere")
        done = self.separate(self.put("linked.wav", wav_bytes(song)))
        self.assertEqual((done.returncode, list((self.folder / "elsewhere").iterdir())), (1, []), done.stderr)
        self.assertIn("is a link", done.stderr)

    def test_files_of_an_earlier_song_go_with_it(self) -> None:
        self.assert_done(self.separate(self.put("song.wav", wav_bytes(noise(3000))), "--report", "--karaoke",
                                       "--stems", "drum,bass"))
        (self.folder / "out/song/mix.wav").write_bytes(b"of the user")
        (self.folder / "out/song/notes.txt").write_bytes(b"of the user")
        self.assert_done(self.separate("song.wav", "--stems", "vocals"))
        self.assertEqual(self.files(), file_set("song", ("vocals", "mix")) | {"song/notes.txt"})

    def test_a_page_replaces_its_own_sound_and_no_other_folder(self) -> None:
        self.put("song.wav", wav_bytes(noise(3000)))
        player = self.folder / "out/song/player"
        player.mkdir(parents=True)
        (player / "notes.txt").write_bytes(b"of the user")
        done = self.separate("song.wav", "--report")
        self.assertEqual((done.returncode, self.files()), (1, {"song/player/notes.txt"}), done.stderr)
        (player / "notes.txt").rename(player / "7.js")
        self.assert_done(self.separate("song.wav", "--report"))
        self.assertEqual(self.files(), file_set("song") | {"song/report.html", "song/player/0.js"})
        (player / "0.js").write_bytes(b"less")
        self.assertIn("real-time factor", self.separate("song.wav", "--report", "--resume").stdout)
        self.assertIn("already done", self.separate("song.wav", "--report", "--resume").stdout)

    def test_stems_that_are_not_whole_are_made_again(self) -> None:
        self.put("song.wav", wav_bytes(noise(3000)))
        self.assert_done(self.separate("song.wav", "--report"))
        self.assertIn("already done", self.separate("song.wav", "--report", "--resume").stdout)
        stem = self.folder / "out/song/bass.wav"
        whole = stem.read_bytes()
        page = self.folder / "out/song/report.html"
        receipt = self.folder / "out/song/receipt.json"
        for path, content in ((stem, b""), (stem, whole[:-4]), (stem, bytes(len(whole))),
                              (stem, wav_bytes(noise(3000), 48000)), (page, b""), (receipt, b""),
                              (receipt, receipt.read_bytes()[:-9])):
            with self.subTest(file=path.name, size=len(content)):
                path.write_bytes(content)
                done = self.separate("song.wav", "--report", "--resume")
                self.assertIn("real-time factor", done.stdout, done.stderr)
                self.assertGreater(path.stat().st_size, 1000)

    def test_an_output_folder_among_the_songs_is_not_separated(self) -> None:
        self.put("song.wav", wav_bytes(noise(3000)))
        (self.folder / "out/half").mkdir(parents=True)
        self.put("out/half/vocals.wav", wav_bytes(noise(3000)))  # of a run that was killed
        self.assert_done(self.separate("."))
        self.assertEqual(self.files(), file_set("song") | {"half/vocals.wav"})

    def test_the_first_request_ends_a_run_that_waits_for_its_song(self) -> None:
        if self.on_windows:
            self.skipTest("Windows has no such signals")
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGQUIT):
            with self.subTest(signal=number):
                waiting = self.begin()
                start = time.monotonic()
                waiting.send_signal(number)
                waiting.wait(timeout=30)
                self.assertLess(time.monotonic() - start, 1.0)
                assert waiting.stderr
                errors = waiting.stderr.read().decode()
                self.assertEqual((waiting.returncode, errors.splitlines()[-1]), (130, INTERRUPTED))
                self.assertFalse((self.folder / "out").exists(), "files or folders are left behind")

    def test_the_first_request_ends_a_run_whose_model_never_answers(self) -> None:
        if self.on_windows:
            self.skipTest("Windows has no such signals")
        self.put("song.wav", wav_bytes(noise(300000)))
        program = subprocess.Popen(self.arguments("song.wav", "hostile/endless.onnx"), cwd=self.folder,
                                   stderr=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                   preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
        self.addCleanup(program.kill)
        deadline = time.monotonic() + 30
        while not (self.folder / "out/song" / UNFINISHED / "mix.wav").exists() and time.monotonic() < deadline:
            time.sleep(0.05)
        time.sleep(0.3)
        start = time.monotonic()
        program.send_signal(signal.SIGINT)
        errors = program.communicate(timeout=30)[1].decode()
        self.assertLess(time.monotonic() - start, 1.0)
        self.assertEqual((program.returncode, errors.splitlines()[-1]), (130, INTERRUPTED))
        self.assertFalse((self.folder / "out").exists(), "files or folders are left behind")

    def test_a_full_disk_is_told(self) -> None:
        if self.on_windows:
            self.skipTest("needs a limit on files")
        import resource
        self.put("song.wav", wav_bytes(noise(300000)))
        self.put("short.wav", wav_bytes(noise(3000)))
        done = subprocess.run([*self.arguments("*.wav")], cwd=self.folder, capture_output=True, encoding="utf-8",
                              preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000)))
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"tonwerk-separate: Cannot write .*: File too large\.\n")
        self.assertEqual(self.files(), file_set("short"))

    def test_lines_that_nobody_takes_are_a_failure(self) -> None:
        if self.on_windows:
            self.skipTest("needs a device that is always full")
        self.put("song.wav", wav_bytes(noise(3000)))
        with open("/dev/full", "wb") as full:
            for arguments in (self.arguments("song.wav"), [*self.command, "--help"], [*self.command, "--list-models"],
                              [*self.command, "check-model", str(self.models / "gains.onnx")]):
                done = subprocess.run(arguments, cwd=self.folder, stdout=full, stderr=subprocess.PIPE)
                self.assertEqual(done.returncode, 1, arguments)
                self.assertIn(b"Standard output cannot be written", done.stderr)
        self.assertEqual(self.files(), file_set("song"))
        # A reader that goes away costs the lines, not the stems.
        ours, theirs = os.pipe()
        os.close(ours)
        done = subprocess.run(self.arguments("song.wav"), cwd=self.folder, stdout=theirs, stderr=subprocess.PIPE,
                              restore_signals=True)
        os.close(theirs)
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertEqual(self.files(), file_set("song"))

    def test_closed_streams_are_no_files(self) -> None:
        if self.on_windows:
            self.skipTest("needs a shell that closes streams")
        song = noise(3000)
        self.put("song.wav", wav_bytes(song))
        for closed in ("0<&-", "1>&-", "2>&-", "0<&- 1>&- 2>&-"):
            with self.subTest(closed=closed):
                program = subprocess.list2cmdline([*self.arguments("song.wav"), "--progress", "json"])
                self.assertEqual(subprocess.run(["bash", "-c", f"exec {program} {closed}"], cwd=self.folder,
                                                stderr=subprocess.DEVNULL).returncode, 0)
                self.assert_stems("song", song)

    def test_a_song_that_changes_meanwhile_is_refused(self) -> None:
        if self.on_windows:
            self.skipTest("needs a run that can be stopped")
        self.put("song.wav", wav_bytes(noise(8 * 254976)))
        for change in ("in place", "replaced"):
            with self.subTest(change=change):
                song = self.folder / "song.wav"
                program = subprocess.Popen([*self.arguments("song.wav"), "--progress", "json"], cwd=self.folder,
                                           stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
                assert program.stderr
                for line in program.stderr:
                    if b'"fraction":0.1' in line:
                        break
                program.send_signal(signal.SIGSTOP)
                original = song.read_bytes()
                if change == "replaced":
                    song.rename(self.folder / "moved")
                    song.write_bytes(wav_bytes(noise(1000)))
                else:
                    with open(song, "r+b") as file:
                        file.seek(-4, os.SEEK_END)
                        file.write(np.float32(0.5).tobytes())
                program.send_signal(signal.SIGCONT)
                errors = program.communicate()[1].decode()
                if change == "in place":
                    self.assertEqual(program.returncode, 1)
                    self.assertIn("has changed", errors)
                else:
                    import hashlib
                    self.assertEqual(program.returncode, 0, errors)
                    self.assertEqual(self.receipt("song")["input"]["sha256"], hashlib.sha256(original).hexdigest())

    def test_songs_may_be_called_like_lists(self) -> None:
        songs = ["[Live].wav", "[a,b].wav", "[x]"]
        for song in songs:
            self.put(song, wav_bytes(noise(2000)))
        done = self.run_program([*self.command, *songs, "-o", "[out]", "--model", str(self.models / "gains.onnx")])
        self.assertEqual((done.returncode, done.errors), (0, []))
        self.assertEqual({path.name for path in (self.folder / "[out]").iterdir()}, {"[Live]", "[a,b]", "[x]"})

    def test_names_do_not_steer_a_terminal(self) -> None:
        if self.on_windows:
            self.skipTest("Windows forbids such names")
        name = "a\x1b[31m\n\x07\x9b\u009b\u202egnp.wav"
        (self.folder / name).write_bytes(wav_bytes(noise(2000)))
        (self.folder / ("bad" + name)).write_bytes(b"no music")
        (self.folder / os.fsdecode(b"latin\x9b1.wav")).write_bytes(wav_bytes(noise(2000)))
        for option in ("text", "json"):
            done = self.separate(".", "--progress", option)
            self.assertEqual(done.returncode, 1, done.stderr)
            hidden = [character for character in done.stdout + done.stderr
                      if character in "\x7f\u009b\u202e" or (character < " " and character not in "\n\r")]
            self.assertEqual(hidden, [])
            for line in done.stderr.splitlines():
                self.assertRegex(line, r"^(\{.*\}|tonwerk-separate: .*|\d+ %.*)$")
        receipts = [path.read_bytes() for path in Path(self.folder / "out").glob("*/receipt.json")]
        self.assertEqual(len(receipts), 2)
        for receipt in receipts:
            self.assertNotRegex(receipt.decode(), "[\u0080-\u009f\u202e\x7f]")


if __name__ == "__main__":
    main()
