#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Networks from sound to sounds do inside a model what they do outside, and what cannot be used is refused."""

import unittest
from collections.abc import Mapping, Sequence
from pathlib import Path

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper
from sounds import HOP, decibels, length_of, noise, spectrum_of
from support import ConverterTest, Session, contract
from tonwerk_converters.passport import Passport

WHOLE = length_of(contract.FRAMES)
DELAY = 777
CLEAN = slice(6, 254)  # the rows of a run that a steady stream uses

Shape = tuple[int | None, ...]
Constants = Sequence[tuple[str, np.ndarray]]
Results = Mapping[str, np.ndarray]


def save(path: Path, length: int | str, nodes: list[onnx.NodeProto], constants: Constants = (),
         outputs: Sequence[tuple[str, Shape]] = (("sounds", (1, 3, 2, None)),), opset: int = 17,
         element: int = TensorProto.FLOAT, others: Sequence[str] = ()) -> None:
    """A network of these nodes from "sound" to the outputs, in which None stands for the length; a length that is text
    is left open."""
    def value(name: str, shape: Shape) -> onnx.ValueInfoProto:
        return helper.make_tensor_value_info(name, element, [length if size is None else size for size in shape])

    graph = helper.make_graph(nodes, "test", [value("sound", (1, 2, None))], [value(*output) for output in outputs],
                              [numpy_helper.from_array(np.asarray(values), name) for name, values in constants])
    onnx.save(helper.make_model(graph, ir_version=8, opset_imports=[
        helper.make_opsetid(domain, version) for domain, version in (("", opset), *((other, 1) for other in others))]),
        path)


def analytic(length: int) -> tuple[list[onnx.NodeProto], Constants]:
    """Three sources: channels swapped, 777 samples later, half as loud."""
    return [
        helper.make_node("Gather", ["sound", "swap"], ["vocals_output"], axis=1),  # a name that the model has too
        helper.make_node("Pad", ["sound", "before"], ["padded"]),
        helper.make_node("Slice", ["padded", "zero", "length", "axis"], ["late"]),
        helper.make_node("Mul", ["sound", "half"], ["quiet"]),
        helper.make_node("Concat", ["vocals_output", "late", "quiet"], ["joined"], axis=0),
        helper.make_node("Unsqueeze", ["joined", "zero"], ["sounds"]),
    ], [("swap", np.array([1, 0])), ("before", np.array([0, 0, DELAY, 0, 0, 0])), ("zero", np.array([0])),
        ("length", np.array([length])), ("axis", np.array([2])), ("half", np.float32(0.5))]


class Waveform(ConverterTest):
    """The command on networks with known answers."""

    def setUp(self) -> None:
        super().setUp()
        self.network = self.folder / "network.onnx"

    def run_converted(self, spectrum: np.ndarray, *options: str,
                      stems: str = "vocals,drums,bass") -> Results:
        session = Session(self.converted("waveform", self.network, "--stems", stems, *options))
        results = session.run(unified_input=spectrum)
        session.close()
        return results

    def refuse(self, words: str, *options: str, stems: str = "drums") -> None:
        self.assert_refused(words, "waveform", self.network, "--stems", stems, *options)

    def assert_analytic(self, results: Results, sound: np.ndarray, rows: slice) -> None:
        """The three sources in the newest rows, to -100 dB."""
        delayed = np.pad(sound, ((0, 0), (DELAY, 0)))[:, :-DELAY]
        for stem, expected in (("vocals", sound[::-1]), ("drum", delayed), ("bass", sound / 2)):
            wanted = spectrum_of(expected)[:, :, rows]
            self.assertLess(decibels(results[f"{stem}_output"][:, :, rows] - wanted, wanted), -100, stem)
        self.assertFalse(results["piano_output"].any())

    def test_swapped_delayed_and_scaled_sounds_are_just_that(self) -> None:
        sound = noise(contract.FRAMES)
        for length in (WHOLE, 60 * HOP + 500, WHOLE + 4321):
            save(self.network, length, *analytic(length))
            results = self.run_converted(spectrum_of(sound))
            rows = min(contract.FRAMES, length // HOP - 3)
            self.assert_analytic(results, sound, slice(contract.FRAMES - rows + 6, 254))
            self.assertFalse(results["vocals_output"][:, :, :contract.FRAMES - rows].any())
            self.assertEqual(Passport.read(onnx.load(str(self.model))).rows, rows if rows < contract.FRAMES else None)

    def test_a_network_that_hands_the_sound_on_gives_every_row_back(self) -> None:
        save(self.network, WHOLE, [helper.make_node("Identity", ["sound"], ["sounds"])],
             outputs=[("sounds", (1, 2, None))], opset=13)
        spectrum = spectrum_of(noise(contract.FRAMES))
        error = self.run_converted(spectrum, stems="piano")["piano_output"] - spectrum
        self.assertLess(decibels(error, spectrum), -60)
        self.assertLess(decibels(error[:, :, CLEAN], spectrum), -110)

    def test_an_open_length_is_said_and_outputs_may_be_several(self) -> None:
        nodes = [helper.make_node("Neg", ["sound"], ["a"]), helper.make_node("Identity", ["sound"], ["b"])]
        save(self.network, "samples", nodes, outputs=[("a", (1, 2, None)), ("b", (1, 2, None))])
        self.refuse("--length", stems="other,drums")
        spectrum = spectrum_of(noise(contract.FRAMES))
        results = self.run_converted(spectrum, "--length", str(WHOLE), stems="other,drums")
        self.assertLess(decibels((results["drum_output"] - spectrum)[:, :, CLEAN], spectrum), -110)
        self.assertFalse(results["vocals_output"].any())

    def test_normalised_sound_goes_in_and_loud_sound_comes_out(self) -> None:
        # The network clips at 1 deviation, so it shows at which level the sound reached it.
        save(self.network, WHOLE, [helper.make_node("Clip", ["sound", "low", "high"], ["sounds"])],
             [("low", np.float32(-1)), ("high", np.float32(1))], outputs=[("sounds", (1, 2, None))])
        sound = noise(contract.FRAMES, color=0.7) + np.array([[0.1], [0.1]])
        mono = sound.mean(axis=0)
        mean, deviation = mono.mean(), mono.std()
        expected = spectrum_of(np.clip(sound, mean - deviation, mean + deviation))[:, :, CLEAN]
        for gain in (1, 1e-3, 10):
            results = self.run_converted(spectrum_of(sound * gain), "--normalise", stems="vocals")
            self.assertLess(decibels(results["vocals_output"][:, :, CLEAN] / gain - expected, expected), -60)

    def test_silence_and_nonsense_stay_without_sound(self) -> None:
        save(self.network, WHOLE, [helper.make_node("Add", ["sound", "one"], ["sounds"])], [("one", np.float32(1))],
             outputs=[("sounds", (1, 2, None))])
        for option in ((), ("--normalise",)):
            silent = self.run_converted(np.zeros(contract.SHAPE, np.float32), *option, stems="drums")
            self.assertFalse(any(result.any() for result in silent.values()))
        broken = np.full(contract.SHAPE, np.nan, np.float32)
        self.assertFalse(self.run_converted(broken, stems="drums")["drum_output"].any())

    def test_what_cannot_be_used_is_refused_with_a_sentence(self) -> None:
        same = [helper.make_node("Identity", ["sound"], ["sounds"])]
        good = [("sounds", (1, 2, None))]
        save(self.network, WHOLE, same, outputs=good, element=TensorProto.DOUBLE)
        self.refuse("FLOAT [1, 2, length]")
        save(self.network, WHOLE, [helper.make_node("Gelu", ["sound"], ["sounds"], domain="com.microsoft")],
             outputs=good, others=["com.microsoft"])
        self.refuse("com.microsoft")
        save(self.network, WHOLE, same, outputs=good)
        self.refuse("1 different sources", stems="drums,bass")
        self.refuse("1 different sources", stems="other")
        self.refuse("--length is for", "--length", "5000")
        save(self.network, 9000, same, outputs=good)
        self.refuse("at least")
        cut = [helper.make_node("Slice", ["sound", "zero", "length", "axis"], ["sounds"])]
        save(self.network, WHOLE, cut, analytic(WHOLE - 1)[1], outputs=[("sounds", (1, 2, WHOLE - 1))])
        self.refuse("should be FLOAT")
        self.network.write_bytes(b"no network")
        self.refuse("no valid ONNX")


if __name__ == "__main__":
    unittest.main()
