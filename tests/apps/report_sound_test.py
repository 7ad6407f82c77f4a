#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What a report page plays: recorded in the audio thread, sample by sample, and compared with the stems on the disk.

The songs are noise that rises after some silence, and a tone.

Usage: report_sound_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program.
"""

import base64
import struct
import time
from pathlib import Path

import numpy as np
from report_page import RATE, SECONDS, STEMS, PageTest, main, make_report, rising_noise

TONE = 441.0
# The player has 16 bits. Both ends of the range of a rounded sample, for seven stems.
ROUNDING = 7 / 32768
# Records what the player's node puts out, in the audio thread, so that nothing is lost or doubled.
TAP = """(async () => {
    const code = `registerProcessor('tap', class extends AudioWorkletProcessor {
        constructor() {
            super();
            this.blocks = [];
            this.port.onmessage = () => this.port.postMessage(this.blocks.splice(0));
        }
        process([[left, right]]) {
            if (left) this.blocks.push(left.slice(), right.slice());
            return true;
        }
    });`;
    await player.start();
    await player.context.audioWorklet.addModule(`data:text/javascript,${encodeURIComponent(code)}`);
    window.tap = new AudioWorkletNode(player.context, 'tap', {channelCount: 2, channelCountMode: 'explicit'});
    player.node.connect(tap).connect(player.context.destination);
    return true;
})()"""
RECORDED = """new Promise((resolve) => {
    tap.port.onmessage = ({data}) => new Blob(data).arrayBuffer().then((buffer) => {
        const reader = new FileReader();
        reader.onload = () => resolve(reader.result.split(',')[1] ?? '');
        reader.readAsDataURL(new Blob([buffer]));
    });
    tap.port.postMessage(0);
})"""


def tone(seconds: int) -> np.ndarray:
    wave = 0.5 * np.sin(2 * np.pi * TONE * np.arange(seconds * RATE) / RATE)
    return np.stack([wave, 0.5 * wave], axis=1)


def read_wav(path: Path) -> np.ndarray:
    """The samples of a WAV file of ours, float or 24 bits, with a row per frame."""
    content = path.read_bytes()
    data = content[content.index(b"data") + 8:]
    if struct.unpack_from("<H", content, 20)[0] == 3:
        return np.frombuffer(data, "<f4").reshape(-1, 2)
    low, middle, high = np.frombuffer(data, np.uint8).reshape(-1, 3).astype(np.int32).T
    return ((low | middle << 8 | high << 16) << 8 >> 8).reshape(-1, 2) / 2**23


def place_of(recorded: np.ndarray, song: np.ndarray) -> int:
    """Where in a song the recorded samples begin."""
    size = 1 << int(np.ceil(np.log2(len(song) + len(recorded))))
    spectrum = np.fft.rfft(song[:, 0], size) * np.conj(np.fft.rfft(recorded[:, 0], size))
    return int(np.argmax(np.fft.irfft(spectrum)[:len(song)]))


def frequency_of(recorded: np.ndarray) -> float:
    spectrum = np.abs(np.fft.rfft(recorded[:, 0] * np.hanning(len(recorded))))
    return float(np.argmax(spectrum) * RATE / len(recorded))


def rms_in_decibels(recorded: np.ndarray) -> float:
    return float(10 * np.log10(np.mean(recorded**2)))


class SoundTest(PageTest):
    stems: dict[str, np.ndarray]
    tone_page: Path

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        cls.stems = {name: read_wav(cls.page.parent / f"{name}.wav") for name in STEMS}
        cls.tone_page = make_report(cls.folder, "tone.wav", tone(SECONDS))

    def sum_of(self, *names: str) -> np.ndarray:
        return np.sum([self.stems[name] for name in names], axis=0, dtype=np.float64)

    def record(self) -> None:
        self.assertTrue(self.run_script(TAP))

    def recorded(self) -> np.ndarray:
        """What has been played since the last call."""
        bytes_of = base64.b64decode(self.run_script(RECORDED))
        return np.frombuffer(bytes_of, "<f4").reshape(-1, 2, 128).transpose(0, 2, 1).reshape(-1, 2)

    def play(self, seconds: float) -> np.ndarray:
        """Plays on for a while without what the start fades in."""
        self.browser.press("space")
        self.browser.wait("player.playing && !player.report.waiting && player.context.state === 'running'")
        time.sleep(seconds)
        self.browser.press("space")
        time.sleep(0.3)
        heard = self.recorded()
        sounding = np.flatnonzero(np.any(heard != 0, axis=1))
        self.assertGreater(len(sounding), 0, "nothing is heard")
        return heard[sounding[0] + 512:sounding[-1] - 512].astype(np.float64)

    def test_all_stems_sound_at_the_same_sample_as_long_as_it_plays(self) -> None:
        self.record()
        self.browser.drag(f"{self.row('drum')} .waveform", 0.6, 0.6)
        self.browser.press("space")
        self.browser.wait("player.playing && player.position > 8.2 * song.sampleRate", 30)
        for name in STEMS[:4]:
            self.browser.press("shift", str(STEMS.index(name) + 1))
            time.sleep(0.4)
            self.browser.press("shift", str(STEMS.index(name) + 1))
        self.browser.press("space")
        time.sleep(0.3)
        heard = self.recorded().astype(np.float64)
        heard = heard[np.flatnonzero(np.any(heard != 0, axis=1))[0]:]
        whole = self.sum_of(*STEMS[:7])
        start = place_of(heard[512:20000], whole) - 512
        self.assertAlmostEqual(start / RATE, 0.6 * SECONDS, delta=0.02)
        aligned = {name: self.stems[name][start:start + len(heard)] for name in STEMS[:4]}
        expected = whole[start:start + len(heard)]
        self.assertGreater(start + len(heard), 8 * RATE, "it goes on into the next segment")
        before = heard[512:8 * RATE - start + 2000] # no stem has been soloed by then
        self.assertLess(np.max(np.abs(before - expected[512:512 + len(before)])), ROUNDING)
        for name, stem in aligned.items():
            exact = np.all(np.abs(heard[:len(stem)] - stem) < ROUNDING, axis=1) & (np.abs(stem[:, 0]) > 0.01)
            self.assertGreater(np.count_nonzero(exact), 0.1 * RATE, f"{name} alone, at its place in the song")

    def test_a_loop_goes_on_without_a_gap(self) -> None:
        self.record()
        self.browser.drag(f"{self.row('piano')} .waveform", 0.65, 0.68)
        self.assertTrue(self.pressed("#loop"))
        heard = self.play(2.5)
        start, end = self.run_script("[player.loop.start, player.loop.end]")
        length = end - start
        self.assertAlmostEqual(length / RATE, 0.03 * SECONDS, delta=0.03)
        self.assertTrue(start < 8 * RATE < end, "the loop spans two segments")
        self.assertGreater(len(heard), 4 * length)
        song = self.sum_of(*STEMS[:7])
        expected = song[start:end].copy()
        # The last samples go over into those before the loop's start, so that the join does not click.
        fade = 128
        part = np.arange(1, fade + 1)[:, None] / (fade + 1)
        expected[-fade:] = (1 - part) * song[end - fade:end] + part * song[start - fade:start]
        first = place_of(heard[:length // 2], np.concatenate([expected, expected]))
        for sample in range(0, len(heard), 4000):
            piece = heard[sample:sample + 4000]
            indices = (first + sample + np.arange(len(piece))) % length
            self.assertLess(np.max(np.abs(piece - expected[indices])), ROUNDING, f"after {sample} samples")

    def test_slower_keeps_the_pitch_and_transposing_changes_it(self) -> None:
        self.open(self.tone_page)
        self.record()
        for key, speed in (",", 0.5), (".", 1.0):
            for _ in range(10):
                self.browser.press(key)
            self.assertEqual(self.text("#speed"), f"{round(100 * speed)} %")
            before = self.run_script("player.position")
            heard = self.play(1.2)
            passed = self.run_script("player.position") - before
            self.assertAlmostEqual(frequency_of(heard), TONE, delta=2)
            self.assertAlmostEqual(passed / (len(heard) + 1024), speed, delta=0.02)
            self.assertAlmostEqual(rms_in_decibels(heard), rms_in_decibels(tone(1)), delta=0.3)
        for _ in range(7):
            self.click("#higher")
        self.assertEqual(self.text("#key"), "Key +7")
        self.assertAlmostEqual(frequency_of(self.play(1.2)), TONE * 2**(7 / 12), delta=2)
        self.click("#key")
        self.browser.press("shift", "down")
        self.assertEqual(self.text("#key"), "Key \u22121")

    def test_the_original_is_as_loud_as_the_mix(self) -> None:
        self.open(self.tone_page)
        self.record()
        self.run_script("(document.querySelector('#preset').value = 2, "
                        "document.querySelector('#preset').dispatchEvent(new Event('change')), 0)")
        mix = self.play(1)
        self.browser.press("a")
        original = self.play(1)
        self.assertLess(rms_in_decibels(mix), rms_in_decibels(tone(1)) - 3)
        self.assertAlmostEqual(rms_in_decibels(original), rms_in_decibels(mix), delta=0.1)
        self.assertTrue(self.pressed("#original"))

    def test_levels_presets_and_reset(self) -> None:
        gains = "engineSettings().gains.slice(1).map((gain) => Number(gain.toFixed(3)))"

        def heard() -> list[str]:
            return [name for name, gain in zip(STEMS, self.run_script(gains), strict=True) if gain > 0]

        self.assertEqual(heard(), STEMS[:7], "the mix would double the stems")
        self.browser.press("2")
        self.assertEqual(heard(), [name for name in STEMS[:7] if name != "drum"])
        self.assertEqual(self.run_script("mixer.presets[document.querySelector('#preset').value].title"),
                         "Without drums")
        self.browser.press("shift", "8")
        self.assertEqual(heard(), ["mix"], "solo is stronger than mute")
        self.click(f"{self.row('vocals')} .solo")
        self.assertEqual(heard(), ["vocals", "mix"])
        self.browser.press("0")
        self.click(f"{self.row('vocals')} .mute")
        self.assertEqual(heard(), STEMS[1:7])
        self.browser.drag(f"{self.row('bass')} .fader", 0.99, 0.99)
        self.assertAlmostEqual(self.run_script(gains)[STEMS.index("bass")], 10**(12 / 20), delta=0.1)
        self.run_script("(document.querySelector(arguments[0]).dispatchEvent(new MouseEvent('dblclick')), 0)",
                        f"{self.row('bass')} .fader")
        self.assertEqual(self.run_script(gains)[STEMS.index("bass")], 1)
        self.browser.press("down")
        self.assertAlmostEqual(self.run_script("engineSettings().volume"), 10**(-1 / 20), delta=0.001)

    def test_the_end_is_the_end(self) -> None:
        self.browser.press("end")
        self.browser.wait("document.querySelector('#time').textContent === '0:12.0'", 5)
        self.browser.press("left")
        self.browser.press("space")
        self.browser.press("end")
        self.browser.wait("!player.playing", 10)
        time.sleep(0.2)
        self.assertEqual(self.text("#time"), "0:12.0")
        self.assertEqual(self.run_script("document.querySelector('#play').getAttribute('aria-label')"), "Play")
        self.browser.press("space")
        self.browser.wait("player.playing && player.time < 5")

    def test_the_mix_is_saved_as_it_is_heard(self) -> None:
        self.browser.devtools("Browser.setDownloadBehavior",
                              {"behavior": "allow", "downloadPath": str(self.folder)})
        self.browser.press("1")
        self.click("#save")
        saved = self.folder / "song (Karaoke).wav"
        self.browser.wait("document.querySelector('#status').textContent.startsWith('Saved')", 60)
        for _ in range(200):
            if saved.exists():
                break
            time.sleep(0.05)
        mix = read_wav(saved)
        self.assertEqual(len(mix), SECONDS * RATE)
        self.assertLess(np.max(np.abs(mix - self.sum_of(*STEMS[1:7]))), ROUNDING)

    def test_a_long_song_needs_no_more_memory(self) -> None:
        page = make_report(self.folder, "long.wav", rising_noise(60), "--stems", "vocals")
        self.open(page)
        self.record()
        self.run_script("(player.capacity = 3, 0)")
        song = read_wav(page.parent / "vocals.wav")
        for seconds in (50, 14, 30, 56):
            self.run_script("(timeline.goTo(arguments[0]), 0)", seconds)
            heard = self.play(0.5)
            self.assertLessEqual(self.run_script("player.held.length"), 3)
            start = place_of(heard, song)
            self.assertAlmostEqual(start / RATE, seconds, delta=0.1)
            self.assertLess(np.max(np.abs(heard - song[start:start + len(heard)])), ROUNDING)


if __name__ == "__main__":
    main()
