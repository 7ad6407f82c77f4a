# SPDX-License-Identifier: MIT
"""Streams and models."""

import logging
import pickle
import subprocess
import sys
import threading
import unittest

import numpy as np
import tonwerk
from signals import GAINS, MODELS, TOLERANCE, noise

GAINS_MODEL = MODELS / "gains.onnx"


def joined(pieces: list[dict[str, np.ndarray]]) -> dict[str, np.ndarray]:
    return {stem: np.concatenate([piece[stem] for piece in pieces]) for stem in pieces[0]}


class Streams(unittest.TestCase):
    def test_the_stems_are_the_same_for_every_cut_and_layout_of_the_input(self) -> None:
        song = noise(300_001)
        whole = tonwerk.separate(song, 44100, GAINS_MODEL, stems=tonwerk.STEMS)
        for stem, gain in GAINS.items():
            self.assertLess(np.abs(whole[stem] - gain * song).max(), TOLERANCE, stem)
        self.assertLess(np.abs(whole["residual"]).max(), TOLERANCE)

        def planar(block: np.ndarray) -> np.ndarray:
            return np.ascontiguousarray(block.T).T

        def doubled(block: np.ndarray) -> np.ndarray:
            return block.astype(np.float64)

        def reversed_memory(block: np.ndarray) -> np.ndarray:
            return block[::-1].copy()[::-1]

        for size, layout, out in [(441, planar, None), (65_536, doubled, 1000), (300_001, reversed_memory, None),
                                  (50_000, planar, 299_999)]:
            with self.subTest(size=size, layout=layout.__name__, out=out), \
                    tonwerk.Stream(GAINS_MODEL, stems=tonwerk.STEMS) as stream:
                blocks = (layout(song[first:first + size]) for first in range(0, len(song), size))
                pieces = list(stream.process(blocks, out))
                if out:
                    self.assertEqual({len(piece["bass"]) for piece in pieces[:-1]}, {out})
                for stem, samples in joined(pieces).items():
                    np.testing.assert_array_equal(samples, whole[stem], stem)

    def test_blocks_of_one_frame_and_of_none(self) -> None:
        with tonwerk.Stream(GAINS_MODEL, stems="mix") as stream:
            pieces = list(stream.process([noise(1), noise(0), noise(2, seed=2).T.copy().T]))
            whole = tonwerk.separate(np.concatenate([noise(1), noise(2, seed=2)]), 44100, GAINS_MODEL, stems="mix")
            np.testing.assert_array_equal(joined(pieces)["mix"], whole["mix"])

    def test_reads_into_the_callers_arrays_and_refuses_others(self) -> None:
        song = noise(5000)
        with tonwerk.Stream(GAINS_MODEL, stems=["vocals", "bass"]) as stream:
            stream.push(song)
            stream.flush()
            self.assertEqual(stream.available, 5000)
            target = np.zeros((1000, 2), np.float32)
            self.assertEqual(stream.read_into({"bass": target}), 1000)
            np.testing.assert_allclose(target, GAINS["bass"] * song[:1000], atol=TOLERANCE)
            self.assertEqual(len(stream.read(500)["vocals"]), 500)
            with self.assertRaises(ValueError):
                stream.read_into({"bass": np.zeros((8, 2))})  # type: ignore[dict-item]
            for wrong in (np.zeros((2, 8), np.float32), np.zeros((16, 2), np.float32)[::2]):
                with self.assertRaises(ValueError):
                    stream.read_into({"bass": wrong})
            with self.assertRaisesRegex(ValueError, "drum"):
                stream.read_into({"drum": target})
            self.assertEqual(stream.available, 3500)

    def test_wrong_use_is_an_error_with_a_sentence(self) -> None:
        with self.assertRaisesRegex(ValueError, "'loudest'.*live, .*normal"):
            tonwerk.Stream(GAINS_MODEL, "loudest")
        with self.assertRaisesRegex(ValueError, "'flute'.*vocals"):
            tonwerk.Stream(GAINS_MODEL, stems=["flute"])
        with self.assertRaisesRegex(ValueError, "room for 253"):
            tonwerk.Stream(GAINS_MODEL, step=300)
        stream = tonwerk.Stream(GAINS_MODEL, step=8, lookahead=4, blend=2)
        self.assertEqual((stream.info.step, stream.info.lookahead, stream.info.blend), (8, 4, 2))
        for wrong in (np.zeros((2, 100)), np.zeros(100), np.zeros((100, 1))):
            with self.assertRaisesRegex(ValueError, "shape"):
                stream.push(wrong)
        with self.assertRaisesRegex(TypeError, "int16"):
            stream.push(np.zeros((100, 2), np.int16))
        stream.flush()
        with self.assertRaises(tonwerk.StreamEndedError):
            stream.push(noise(1))
        stream.reset()
        stream.push(noise(1))
        stream.close()
        stream.close()
        stream.cancel()
        with self.assertRaisesRegex(ValueError, "closed"):
            stream.push(noise(1))

    def test_a_stream_can_be_cancelled_while_it_runs_and_used_again(self) -> None:
        with tonwerk.Stream(GAINS_MODEL, step=1) as stream:
            failures: list[Exception] = []

            def push() -> None:
                try:
                    stream.push(noise(10_000_000))
                except tonwerk.CancelledError as failure:
                    failures.append(failure)

            thread = threading.Thread(target=push)
            thread.start()
            # That this loop turns while the other thread is inside of the library shows that it does not hold the
            # interpreter's lock.
            while thread.is_alive() and not stream._library.ask("stream_available", stream._handle):
                pass
            stream.cancel()
            thread.join()
            self.assertEqual(len(failures), 1)
            with self.assertRaises(tonwerk.CancelledError):
                stream.flush()
            stream.reset()
            stream.push(noise(3000))
            stream.flush()
            self.assertEqual(len(stream.read()["vocals"]), 3000)

    def test_a_failing_run_is_silence_in_a_stream_and_an_error_of_a_song(self) -> None:
        loud = 10_000 * noise(20_000)
        model = tonwerk.Model(MODELS / "fail_on_request.onnx")
        with tonwerk.Stream(model, stems=["vocals"]) as stream, self.assertLogs("tonwerk", logging.ERROR):
            pieces = list(stream.process([loud]))
            self.assertEqual(np.abs(joined(pieces)["vocals"]).max(), 0)
            self.assertEqual(stream.info.failed_runs, stream.info.runs)
        for rate in (44100, 48000):
            with self.assertRaisesRegex(tonwerk.StreamFailedError, "1 of its 1 runs"):
                tonwerk.separate(loud, rate, model)


INTERRUPTED = """
import os, signal, sys, threading, time
import numpy, tonwerk
def interrupt(stream):
    while stream._library.ask("stream_available", stream._handle) == 0:
        time.sleep(0.001)
    os.kill(os.getpid(), signal.SIGINT)
with tonwerk.Stream(sys.argv[1], step=1) as stream:
    threading.Thread(target=interrupt, args=(stream,)).start()
    try:
        stream.push(numpy.zeros((40_000_000, 2), numpy.float32))
    except KeyboardInterrupt:
        runs = stream.info.runs
        try:
            stream.flush()
        except tonwerk.CancelledError:
            print("cancelled", runs)
"""


class Interrupts(unittest.TestCase):
    def test_ctrl_c_ends_a_running_network(self) -> None:
        done = subprocess.run([sys.executable, "-c", INTERRUPTED, GAINS_MODEL], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        words = done.stdout.split()
        self.assertEqual(words[0], "cancelled", done.stdout)
        self.assertLess(int(words[1]), 40_000_000 // 1024 // 2)


class Models(unittest.TestCase):
    def test_facts_and_the_passport(self) -> None:
        model = tonwerk.Model(provider="cpu", threads=1)
        self.assertEqual((model.provider, model.threads, model.sample_rate), ("cpu", 1, 44100))
        self.assertEqual(model.stems, tonwerk.MODEL_STEMS)
        self.assertTrue(model.passport["license"])
        self.assertEqual(len(model.sha256), 64)
        self.assertEqual(dict(tonwerk.Model(GAINS_MODEL).passport), {})

    def test_a_model_is_pickled_by_its_path(self) -> None:
        scrambled = bytes(byte ^ b"key"[place % 3] for place, byte in enumerate(GAINS_MODEL.read_bytes()))
        path = MODELS / "scrambled-for-python.onnx"
        path.write_bytes(scrambled)
        self.addCleanup(path.unlink)
        model = tonwerk.Model(path, key="key", threads=1)
        self.assertLess(len(pickle.dumps(model)), 1000)
        again = pickle.loads(pickle.dumps(model))
        np.testing.assert_array_equal(tonwerk.separate(noise(100), 44100, again)["bass"],
                                      tonwerk.separate(noise(100), 44100, model)["bass"])
        with self.assertRaisesRegex(TypeError, "bytes cannot be pickled"):
            pickle.dumps(tonwerk.Model(GAINS_MODEL.read_bytes()))

    def test_what_is_no_model_is_refused_with_a_sentence(self) -> None:
        for content in (b"", b"no model", (MODELS / "wrong/missing_flag.onnx").read_bytes()):
            with self.subTest(size=len(content)), self.assertRaises((tonwerk.ModelError, ValueError)):
                tonwerk.Model(content)
        with self.assertRaisesRegex(tonwerk.ModelError, "mono.onnx: "):
            tonwerk.Model(MODELS / "wrong/mono.onnx")
        with self.assertRaises(FileNotFoundError):
            tonwerk.Model(MODELS / "there is none.onnx")
        with self.assertRaises(tonwerk.ProviderError):
            tonwerk.Model(GAINS_MODEL, provider="rocm")
        with self.assertRaisesRegex(ValueError, "automatic, cpu"):
            tonwerk.Model(GAINS_MODEL, provider="tpu")

    @unittest.skipIf(sys.platform == "win32", "there is no fork")
    def test_a_model_says_so_where_a_fork_has_lost_its_threads(self) -> None:
        script = ("import os, sys, tonwerk\nmodel = tonwerk.Model(sys.argv[1])\nif os.fork() == 0:\n    try:\n"
                  "        tonwerk.Stream(model)\n    except RuntimeError as failure:\n"
                  "        print('refused' if 'fork' in str(failure) else failure)\n"
                  "    del model\n    sys.exit(0)\nos.wait()")
        done = subprocess.run([sys.executable, "-c", script, GAINS_MODEL], capture_output=True, text=True, timeout=60)
        self.assertEqual(done.stdout.split(), ["refused"], done.stderr)

    def test_presets_are_those_of_the_library(self) -> None:
        self.assertEqual(set(tonwerk.presets()), {"instant", "live", "normal", "smooth", "best"})


if __name__ == "__main__":
    unittest.main()
