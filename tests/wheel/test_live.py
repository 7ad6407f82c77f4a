# SPDX-License-Identifier: MIT
"""The live object."""

import unittest

import numpy as np
import tonwerk
from signals import GAINS, MODELS, TOLERANCE, noise


class LiveObjects(unittest.TestCase):
    def test_stems_come_a_constant_time_later_in_blocks_of_any_size(self) -> None:
        song = noise(60_000)
        with tonwerk.Live(MODELS / "gains.onnx", stems=["vocals", "bass"], block=2000, step=8, lookahead=4) as live:
            live.set_offline(True)
            self.assertEqual(live.position, -live.latency)
            padded = np.concatenate([song, np.zeros((live.latency, 2), np.float32)])
            cuts = np.cumsum(np.random.default_rng(1).integers(0, 2000, 500))
            pieces = [live.process(block) for block in np.split(padded, cuts[cuts < len(padded)])]
            info = live.info
            self.assertEqual((info.latency, info.block, info.late_frames, info.failed_runs),
                             (live.latency, 2000, 0, 0))
            self.assertGreater(info.runs, 0)
            for stem in ("vocals", "bass"):
                samples = np.concatenate([piece[stem] for piece in pieces])
                self.assertEqual(np.abs(samples[:live.latency]).max(), 0)
                result = samples[live.latency:][:len(song)]
                self.assertLess(np.abs(result - GAINS[stem] * song).max(), TOLERANCE)
            live.reset(1_000_000)
            self.assertEqual(live.position, 1_000_000 - live.latency)
            self.assertEqual(np.abs(live.process(noise(500))["bass"]).max(), 0)

    def test_wrong_use_is_an_error_with_a_sentence(self) -> None:
        live = tonwerk.Live(MODELS / "gains.onnx", stems="mix")
        with self.assertRaisesRegex(ValueError, "shape"):
            live.process(np.zeros((2, 100)))
        with self.assertRaisesRegex(ValueError, "frames"):
            live.process_into(noise(10), {"mix": np.zeros((11, 2), np.float32)})
        with self.assertRaisesRegex(ValueError, "bass"):
            live.process_into(noise(10), {"bass": np.zeros((10, 2), np.float32)})
        live.close()
        live.close()
        with self.assertRaisesRegex(ValueError, "closed"):
            live.process(noise(10))
        with self.assertRaises(ValueError):
            tonwerk.Live(MODELS / "gains.onnx", block=100_000)


if __name__ == "__main__":
    unittest.main()
