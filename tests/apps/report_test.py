#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Looks of the report page, what it remembers, and what it makes of its folder.

Usage: report_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program.
"""

import re
import sys
import time
import unittest

from report_page import SECONDS, STEMS, PageTest, main, make_report, rising_noise, separate

SIZES = [(1400, 900), (800, 900), (390, 844), (700, 450)]  # the last one is 1400 x 900 at 200 %
# "<!--<script>" would make a browser overlook the end of the script that it stands in.
HOSTILE = "<!--<script><img src=x onerror=alert(1)>&amp;'\"`${1}\\ \u2028\u202e \u97f3\u697d \U0001f3b5 %41#?.wav"


class LookTest(PageTest):
    def test_pictures_show_when_the_song_sounds(self) -> None:
        pictures = ["#mini canvas", ".track .waveform", ".track .spectrogram"]
        self.browser.press("v")
        self.browser.wait("[...document.images].every((picture) => picture.complete && picture.naturalWidth)")
        # Opaque pixels of the song's waveforms, light ones of its spectrogram, in the first and last tenth.
        for selector in reversed(pictures):
            self.browser.wait("timeline.isDrawn")
            counts = self.run_script("""((picture) => {
                const canvas = document.createElement('canvas');
                [canvas.width, canvas.height] = [1000, 100];
                const context = canvas.getContext('2d', {willReadFrequently: true});
                context.drawImage(picture, 0, 0, 1000, 100);
                return [0, 900].map((left) => {
                    const {data} = context.getImageData(left, 0, 100, 100);
                    let count = 0;
                    for (let pixel = 0; pixel < data.length; pixel += 4)
                        count += data[pixel + (picture.matches('img') ? 0 : 3)] > 100;
                    return count / data.length * 4;
                });
            })(document.querySelector(arguments[0]))""", selector)
            self.assertLess(counts[0], 0.05, selector)
            self.assertGreater(counts[1], 0.4, selector)
            if selector == ".track .spectrogram":
                self.browser.press("v")
                self.browser.wait("document.body.dataset.view === 'waveform'")

    def test_page_needs_nothing_but_its_folder(self) -> None:
        text = self.page.read_text(encoding="utf-8")
        self.assertEqual(set(re.findall(r"(?:https?:)?//[a-z][\w.-]*\.[a-z]+", text)), set())
        self.browser.press("space")
        self.browser.wait("player.playing && player.position > 1000")
        loaded = self.run_script("performance.getEntriesByType('resource').map((entry) => entry.name)")
        player = f"{self.page.parent.as_uri()}/player/"
        self.assertTrue(all(name.startswith(("data:", "blob:", player)) for name in loaded), loaded)

    def test_zoom_and_loop_by_mouse_and_keys(self) -> None:
        self.browser.press("+")
        self.browser.press("+")
        self.assertAlmostEqual(self.run_script("view.length"), SECONDS / 4)
        self.browser.drag("#mini", 0.75, 0.75)
        self.assertAlmostEqual(self.run_script("(view.start + view.end) / 2"), 0.75 * SECONDS, delta=0.05)
        self.browser.drag(f"{self.row('bass')} .waveform", 0.25, 0.75)
        start, end = self.run_script("[timeline.loop.start, timeline.loop.end]")
        self.assertAlmostEqual(end - start, SECONDS / 8, delta=0.05)
        self.browser.press("f")
        self.browser.drag(f"{self.row('bass')} .waveform", end / SECONDS, 0.95)
        self.assertAlmostEqual(self.run_script("timeline.loop.end"), 0.95 * SECONDS, delta=0.05)
        self.assertAlmostEqual(self.run_script("timeline.loop.start"), start, delta=0.05)
        self.browser.press("z")
        self.assertTrue(self.run_script("view.length < 0.5 * data.seconds"))
        self.browser.press("l")
        self.assertFalse(self.pressed("#loop"))
        self.browser.press("escape")
        self.browser.press("home")
        self.browser.press("right")
        self.browser.press("i")
        self.browser.press("shift", "right")
        self.browser.press("o")
        self.assertEqual(self.text("#loopText"), "Loop 0:05.0 \u2013 0:06.0")

    def test_settings_and_markers_are_remembered(self) -> None:
        self.browser.press("3")
        self.browser.press("right")
        self.browser.press("m")
        self.browser.press("right")
        self.browser.press("m")
        self.browser.press("p")
        self.browser.wait("document.querySelector('#time').textContent === '0:05.0'", 5)
        self.browser.press("i")
        self.browser.press(",")
        self.browser.press("up")
        self.browser.press("v")
        time.sleep(0.5) # settings are stored when they rest
        self.browser.open(self.page)
        self.assertTrue(self.pressed(f"{self.row('piano')} .mute"))
        self.assertEqual(self.run_script("markers.list.map(({time}) => time)"), [5, 10])
        self.assertEqual(self.text("#loopText"), "Loop 0:05.0 \u2013 0:12.0")
        self.assertEqual((self.text("#speed"), self.text("#volumeText")), ("95 %", "+1.0"))
        self.assertTrue(self.pressed("#view"))
        self.run_script("(window.prompt = () => '', 0)")
        self.click("#markers button[aria-label='Rename or delete Marker 1']")
        self.assertEqual(self.run_script("markers.list.length"), 1)

    def test_a_focused_control_keeps_its_keys(self) -> None:
        self.run_script("(document.querySelector('.solo').focus(), 0)")
        self.browser.press("space")
        self.assertTrue(self.pressed(".solo"))
        self.assertFalse(self.run_script("player.playing"))
        self.run_script("(document.querySelector('.fader').focus(), 0)")
        self.browser.press("left")
        self.assertEqual(self.run_script("[mixer.stems[0].level, player.position]"), [-0.5, 0])
        self.browser.press("?")
        self.assertTrue(self.run_script("document.querySelector('#help').open"))
        self.browser.press("escape")
        self.assertFalse(self.run_script("document.querySelector('#help').open"))

    def test_the_keyboard_gets_through_quickly(self) -> None:
        self.browser.press("tab")
        self.browser.press("enter") # the link to the mixer
        for name in STEMS[:3]:
            self.browser.press("tab")
            self.assertEqual(self.run_script("document.activeElement.getAttribute('aria-label')"),
                             f"Level of {name.title()}")

    def test_everything_has_a_name(self) -> None:
        self.browser.press("m")
        nameless = self.run_script("""[...document.querySelectorAll(
                'button, input, select, img, section, article, dialog, [role]')]
            .filter((element) => ![element.ariaLabel, element.alt, element.textContent.trim(),
                                   element.labels?.[0]?.textContent.trim()].some(Boolean) && element.id !== 'status')
            .map((element) => element.outerHTML.slice(0, 100))""")
        self.assertEqual(nameless, [])

    def test_it_fits_and_fingers_hit_it_at_every_size(self) -> None:
        self.browser.press("m")
        for width, height in SIZES:
            with self.subTest(width=width):
                self.resize(width, height)
                self.assertLessEqual(self.run_script("document.documentElement.scrollWidth"), width)
                small = self.run_script("""[...document.querySelectorAll('main button, .head button, input, select')]
                    .map((element) => [element.outerHTML.slice(0, 60), element.getBoundingClientRect()])
                    .filter(([, {width, height}]) => width > 0 && Math.min(width, height) < 44)
                    .map(([html]) => html)""")
                self.assertEqual(small, [])
        self.resize(1400, 900)
        bottom = self.run_script("(markers.replace([]), scrollTo(0, 0), "
                                 "document.querySelector('.track:last-child').getBoundingClientRect().bottom)")
        self.assertLessEqual(bottom, 900, "eight stems and the original on one screen")

    def test_dark_and_forced_colours_show_the_pictures(self) -> None:
        self.addCleanup(self.browser.devtools, "Emulation.setEmulatedMedia", {"features": []})
        seen = set()
        looks = ("prefers-color-scheme", "light"), ("prefers-color-scheme", "dark"), ("forced-colors", "active")
        for feature, value in looks:
            self.browser.devtools("Emulation.setEmulatedMedia", {"features": [{"name": feature, "value": value}]})
            self.browser.wait("new Promise((resolve) => requestAnimationFrame(() => resolve(timeline.isDrawn)))")
            colors = self.run_script("['.track .waveform', '.track', '#play'].map((selector) => ["
                                     "getComputedStyle(document.querySelector(selector)).color,"
                                     "getComputedStyle(document.querySelector(selector)).backgroundColor])")
            (picture, _), (text, ground), (sign, button) = colors
            self.assertEqual(len({picture, ground}), 2)
            self.assertEqual(len({text, ground}), 2)
            self.assertEqual(len({sign, button}), 2)
            seen.add((text, ground, picture))
        self.assertGreaterEqual(len(seen), 2)


class FolderTest(PageTest):
    def test_missing_sound_is_named(self) -> None:
        page = make_report(self.folder, "less.wav", rising_noise(10), "--stems", "vocals,bass,mix")
        self.assertEqual({path.name for path in (page.parent / "player").iterdir()}, {"0.js", "1.js"})
        (page.parent / "player" / "1.js").write_text("damaged(", encoding="utf-8")
        self.open(page)
        self.browser.press("end")
        self.browser.press("left")
        self.browser.press("right")
        self.browser.press("shift", "left")
        self.browser.press("space")
        told = "document.querySelector('#failure').textContent.includes('player/{}.js is missing or damaged')"
        self.browser.wait(told.format(1))
        self.assertFalse(self.run_script("player.playing"))
        (page.parent / "player" / "0.js").unlink()
        self.browser.open(page)
        self.browser.wait(told.format(0))
        self.assertTrue(all(re.search(r"player/\d\.js", error) for error in self.browser.errors()))

    def test_mixes_of_the_run_are_presets(self) -> None:
        page = make_report(self.folder, "mixes.wav", rising_noise(1), "--karaoke", "--mix", "vocals=-inf,bass=-6dB",
                           "--stems", ",".join(STEMS))
        self.open(page)
        titles = self.run_script("mixer.presets.map(({title}) => title)")
        self.assertEqual(titles.count("Karaoke"), 1)
        self.run_script("(mixer.use(mixer.presets.length - 1), 0)")
        gains = self.run_script("engineSettings().gains.slice(1)")
        self.assertEqual(titles[-1], "Practice mix")
        self.assertEqual(gains[STEMS.index("vocals")], 0)
        self.assertAlmostEqual(gains[STEMS.index("bass")], 10**(-6 / 20), delta=0.001)

    def test_a_page_that_has_no_place_is_told_at_once(self) -> None:
        folder = self.folder / "out" / "blocked"
        (folder / "report.html").mkdir(parents=True)
        done = separate(self.folder, "blocked.wav", rising_noise(1), "--report")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr.splitlines()[-1], r'^tonwerk-separate: Cannot write ".*report.html": .*\.$')
        self.assertEqual({path.name for path in folder.iterdir()}, {"report.html"})

    def test_no_page_is_written_unasked(self) -> None:
        self.assertEqual(separate(self.folder, "plain.wav", rising_noise(1)).returncode, 0)
        names = {path.name for path in (self.folder / "out" / "plain").iterdir()}
        self.assertFalse(names & {"report.html", "player"})

    @unittest.skipIf(sys.argv[-1].endswith(".exe"), "Windows has no such file names")
    def test_a_hostile_name_is_only_text(self) -> None:
        self.open(make_report(self.folder, HOSTILE, rising_noise(1)))
        self.assertEqual(self.text("h1"), HOSTILE)
        self.assertEqual(self.run_script("document.title"), f"{HOSTILE} \u2013 stems")
        self.assertEqual(self.run_script("document.images.length"), 9)
        self.browser.press("space")
        self.browser.wait("player.position > 1000")


if __name__ == "__main__":
    main()
