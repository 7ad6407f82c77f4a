#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes a report page with tonwerk-separate and uses it in a headless Chromium as a person would.

Usage: report_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program. The song is 12 s of noise that rises after 2 s of silence.
"""

import re
import struct
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path
from typing import Any

import numpy as np
from browser import Browser

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from stream_contract import ALL_STEMS

RATE = 44100
SECONDS = 12
STEMS = list(ALL_STEMS)
# How far the stems may be apart once they have found together, which takes them half a second: 50 ms is where an echo
# begins to be heard; they are within 5 ms as a rule.
IN_STEP = 0.05
# "<!--<script>" would make a browser overlook the end of the script that it stands in.
HOSTILE = "<!--<script><img src=x onerror=alert(1)>&amp;'\"`${1}\\ \u2028\u202e \u97f3\u697d \U0001f3b5 %41#?.wav"

models = Path()
command = []


def wav_of(samples: np.ndarray) -> bytes:
    data = samples.astype("<f4").tobytes()
    return struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(data), b"WAVE", b"fmt ", 16, 3, 2, RATE, RATE * 8, 8,
                       32, b"data", len(data)) + data


def rising_noise(seconds: int) -> np.ndarray:
    frames = seconds * RATE
    noise = np.random.default_rng(1).uniform(-0.5, 0.5, (frames, 2))
    return noise * np.linspace(-0.2, 1, frames).clip(0)[:, None]


def separate(folder: Path, song: str, seconds: int, *options: str) -> subprocess.CompletedProcess[str]:
    (folder / song).write_bytes(wav_of(rising_noise(seconds)))
    return subprocess.run([*command, song, "-o", "out", "--model", str(models / "gains.onnx"), *options],
                          cwd=folder, capture_output=True, encoding="utf-8")


def make_report(folder: Path, song: str, seconds: int, *options: str) -> Path:
    done = separate(folder, song, seconds, "--report", *options)
    if done.returncode:
        raise AssertionError(done.stderr)
    return folder / "out" / Path(song).stem / "report.html"


class ReportTest(unittest.TestCase):
    folder: Path
    page: Path
    browser: Browser

    @classmethod
    def setUpClass(cls) -> None:
        folder = tempfile.TemporaryDirectory(prefix="tonwerk-report-test-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.page = make_report(cls.folder, "song.wav", SECONDS)
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def setUp(self) -> None:
        self.open(self.page)

    def open(self, page: Path) -> None:
        self.browser.open(page)
        self.run_script("(window.audio = [...document.querySelectorAll('audio')], 0)")
        self.browser.wait("audio.every((element) => element.readyState >= 3)")

    def tearDown(self) -> None:
        self.assertEqual(self.browser.errors(), [])

    def run_script(self, script: str, *arguments: Any) -> Any:
        return self.browser.run(script, *arguments)

    def times(self) -> list[float]:
        return self.run_script("audio.map((element) => element.currentTime)")

    def heard(self) -> list[str]:
        """The stems that are not switched off."""
        volumes = self.run_script("audio.map((element) => element.volume)")
        return [name for name, volume in zip(STEMS, volumes, strict=True) if volume > 0]

    def pressed(self, selector: str) -> bool:
        return self.run_script("document.querySelector(arguments[0]).getAttribute('aria-pressed')", selector) == "true"

    def click(self, selector: str) -> None:
        self.browser.drag(selector, 0.5, 0.5)

    def wait_until_playing(self, start: float) -> None:
        self.browser.wait(f"audio.every((element) => !element.paused && element.currentTime > {start} + 0.05)")

    def assert_in_step(self) -> None:
        """Twenty looks in a second; one may fall into a stutter of a busy machine."""
        spread = self.run_script("""new Promise((resolve) => {
            const spreads = [];
            const timer = setInterval(() => {
                const times = audio.map((element) => element.currentTime);
                spreads.push(Math.max(...times) - Math.min(...times));
                if (spreads.length < 20) return;
                clearInterval(timer);
                resolve(spreads.sort((one, other) => one - other)[18]);
            }, 50);
        })""")
        print(f"  apart by {1000 * spread:.1f} ms at most", file=sys.stderr)
        self.assertLess(spread, IN_STEP)

    def test_pictures_show_when_the_song_sounds(self) -> None:
        self.browser.wait("[...document.images].every((picture) => picture.complete)")
        self.assertEqual(self.run_script("[...document.images].map((picture) => picture.naturalWidth)"), [1280] * 18)
        # Opaque pixels of the song's waveform, light ones of its spectrogram, in the first and last tenth.
        counts = self.run_script("""[...document.images].slice(0, 2).map((picture, kind) => {
            const canvas = document.createElement('canvas');
            [canvas.width, canvas.height] = [picture.naturalWidth, picture.naturalHeight];
            const context = canvas.getContext('2d', {willReadFrequently: true});
            context.drawImage(picture, 0, 0);
            return [0, 1152].map((left) => {
                const {data} = context.getImageData(left, 0, 128, canvas.height);
                let count = 0;
                for (let pixel = 0; pixel < data.length; pixel += 4) count += data[pixel + (kind ? 0 : 3)] > 100;
                return count / data.length * 4;
            });
        })""")
        for first, last in counts:
            self.assertLess(first, 0.02)
            self.assertGreater(last, 0.4)

    def test_page_needs_nothing_but_the_stems(self) -> None:
        text = self.page.read_text(encoding="utf-8")
        self.assertEqual(set(re.findall(r"(?:https?:)?//[a-z][\w.-]*\.[a-z]+", text)), set())
        loaded = self.run_script("performance.getEntriesByType('resource').map((entry) => entry.name)")
        own = {f"{self.page.parent.as_uri()}/{name}.wav" for name in STEMS}
        self.assertLessEqual({name for name in loaded if not name.startswith("data:")}, own)

    def test_stems_play_in_step_from_where_a_picture_is_clicked(self) -> None:
        self.browser.press("space")
        self.wait_until_playing(0)
        self.browser.drag(".track:nth-of-type(3) .waveform", 0.5, 0.5)
        self.wait_until_playing(0.499 * SECONDS)
        self.assertLess(max(self.times()), 0.5 * SECONDS + 1)
        time.sleep(3)
        self.assert_in_step()
        self.assertGreater(min(self.times()), 0.5 * SECONDS + 2.5)
        self.browser.press("space")
        self.browser.wait("audio.every((element) => element.paused && !element.seeking)")
        self.assertLess(max(self.times()) - min(self.times()), 0.001)

    def test_a_stem_that_falls_behind_catches_up(self) -> None:
        self.browser.press("space")
        self.wait_until_playing(0.5)
        for seconds in (0.06, -0.1, 0.6):
            with self.subTest(seconds=seconds):
                self.run_script("(audio[3].currentTime -= arguments[0], 0)", seconds)
                self.browser.wait("Math.abs(audio[3].currentTime - audio[0].currentTime) > 0.02", 2)
                time.sleep(2)
                self.assert_in_step()

    def test_song_plays_to_its_end_and_starts_again(self) -> None:
        self.browser.press("end")
        self.browser.press("left")
        self.browser.press("shift", "right")
        self.browser.press("shift", "right")
        self.browser.press("shift", "right")
        self.browser.press("space")
        self.wait_until_playing(SECONDS - 2.01)
        self.browser.wait("audio.every((element) => element.paused)", 10)
        self.assertGreater(min(self.times()), SECONDS - 0.1)
        self.assertEqual(self.run_script("document.querySelector('#play').getAttribute('aria-label')"), "Play")
        self.browser.press("space")
        self.browser.wait("audio.every((element) => !element.paused && element.currentTime < 5)")

    def test_mute_solo_and_volume(self) -> None:
        self.assertEqual(self.heard(), STEMS[:7], "the mix would double the stems")
        self.browser.press("2")
        self.assertEqual(self.heard(), [name for name in STEMS[:7] if name != "drum"])
        self.browser.press("shift", "8")
        self.assertEqual(self.heard(), ["mix"], "solo is stronger than mute")
        self.click(".track:nth-of-type(2) .solo")
        self.assertEqual(self.heard(), ["vocals", "mix"])
        self.assertTrue(self.pressed(".track:nth-of-type(2) .solo"))
        self.browser.press("0")
        self.assertEqual(self.heard(), STEMS[:7])
        self.click(".track:nth-of-type(2) .mute")
        self.assertEqual(self.heard(), STEMS[1:7])
        self.browser.drag(".track:nth-of-type(3) .gain", 0.95, 0.5)
        self.browser.press("down")
        volumes = self.run_script("audio.map((element) => element.volume)")
        self.assertAlmostEqual(volumes[2], 0.95**2)
        self.assertAlmostEqual(volumes[1] / volumes[2], 0.25, delta=0.03)

    def test_loop_by_dragging_and_by_keys(self) -> None:
        self.browser.drag(".track:nth-of-type(4) .spectrogram", 0.25, 0.375)
        self.assertTrue(self.pressed("#loop"))
        self.browser.press("space")
        self.run_script("(window.seen = [], setInterval(() => seen.push(audio[0].currentTime), 20), 0)")
        self.browser.wait("seen.filter((time, index) => time < seen[index - 1] - 1).length >= 2", 15)
        seen = self.run_script("seen")
        self.assertGreater(min(seen), 0.249 * SECONDS)
        self.assertLess(max(seen), 0.375 * SECONDS + 0.25)
        self.browser.press("l")
        self.assertFalse(self.pressed("#loop"))
        self.browser.wait(f"audio[0].currentTime > {0.375 * SECONDS + 0.5}", 5)
        self.browser.press("escape")
        self.browser.press("space")
        self.browser.press("home")
        self.browser.press("right")
        self.browser.press("i")
        self.browser.press("shift", "right")
        self.browser.press("o")
        self.assertEqual(self.run_script("document.querySelector('#loopText').textContent"),
                         "Loop 0:05.0 \u2013 0:06.0")

    def test_a_focused_button_keeps_its_keys(self) -> None:
        self.run_script("(document.querySelector('.solo').focus(), 0)")
        self.browser.press("space")
        self.assertTrue(self.pressed(".solo"))
        self.assertEqual(self.run_script("audio.map((element) => element.paused)"), [True] * 8)
        self.browser.press("?")
        self.assertTrue(self.run_script("document.querySelector('#help').open"))
        self.browser.press("escape")
        self.assertFalse(self.run_script("document.querySelector('#help').open"))

    def test_everything_has_a_name(self) -> None:
        nameless = self.run_script("""[...document.querySelectorAll('button, input, img, section, article, dialog')]
            .filter((element) => ![element.ariaLabel, element.alt, element.textContent.trim(),
                                   element.labels?.[0]?.textContent.trim()].some(Boolean))
            .map((element) => element.outerHTML.slice(0, 100))""")
        self.assertEqual(nameless, [])

    def test_a_narrow_page_fits(self) -> None:
        self.browser.devtools("Emulation.setDeviceMetricsOverride",
                              {"width": 360, "height": 740, "deviceScaleFactor": 1, "mobile": True})
        self.addCleanup(self.browser.devtools, "Emulation.clearDeviceMetricsOverride", {})
        self.assertLessEqual(self.run_script("document.documentElement.scrollWidth"), 360)

    def test_a_missing_stem_is_named_and_the_others_play(self) -> None:
        page = make_report(self.folder, "less.wav", 2, "--stems", "vocals,bass,mix")
        self.open(page)
        (page.parent / "bass.wav").unlink()
        self.browser.open(page)
        self.browser.wait("document.querySelector('#failure').textContent.includes('Not playable: bass.wav.')")
        self.browser.press("space")
        self.browser.wait("[0, 2].every((stem) => document.querySelectorAll('audio')[stem].currentTime > 0.2)")
        self.assertTrue(all("bass.wav" in error for error in self.browser.errors()))

    def test_a_page_that_has_no_place_is_told_at_once(self) -> None:
        folder = self.folder / "out" / "blocked"
        (folder / "report.html").mkdir(parents=True)
        done = separate(self.folder, "blocked.wav", 1, "--report")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr.splitlines()[-1], r'^tonwerk-separate: Cannot write ".*report.html": .*\.$')
        self.assertEqual({path.name for path in folder.iterdir()}, {"report.html"})

    def test_no_page_is_written_unasked(self) -> None:
        self.assertEqual(separate(self.folder, "plain.wav", 1).returncode, 0)
        self.assertFalse((self.folder / "out" / "plain" / "report.html").exists())

    @unittest.skipIf(sys.argv[-1].endswith(".exe"), "Windows has no such file names")
    def test_a_hostile_name_is_only_text(self) -> None:
        self.open(make_report(self.folder, HOSTILE, 1))
        self.assertEqual(self.run_script("document.querySelector('h1').textContent"), HOSTILE)
        self.assertEqual(self.run_script("document.title"), f"{HOSTILE} \u2013 stems")
        self.assertEqual(self.run_script("document.images.length"), 18)
        self.browser.press("space")
        self.wait_until_playing(0)


if __name__ == "__main__":
    models = Path(sys.argv[1]).resolve()
    command = sys.argv[2:]
    unittest.main(argv=[sys.argv[0]], verbosity=2)
