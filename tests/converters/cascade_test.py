#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Two models in one, and weights stored in fewer bits."""

import json
import unittest

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper
from support import ConverterTest, Session, contract, error, noise, stems_of
from tonwerk_converters import calibration, compact
from tonwerk_converters.graph import Graph
from tonwerk_converters.passport import Passport

SECOND = {"vocals": 0.9, "drum": 0.8, "piano": 0.5, "acoustic_guitar": 0.25, "electric_guitar": 0.125, "bass": -1.0}


def gains(factors: dict[str, float], passport: Passport | None = None) -> onnx.ModelProto:
    """A model whose stems are the input times numbers. All such models use the same names inside."""
    graph, spectrum = contract.open_graph()
    contract.close_graph(graph, {stem: graph.add("Mul", spectrum, factor) for stem, factor in factors.items()})
    model = graph.model("gains", "")
    if passport:
        passport.write(model)
    return model


def passport(name: str, stems: list[str], **others: object) -> Passport:
    return Passport(name, f"licence of {name}", f"source of {name}", f"authors of {name}", stems,
                    [f"file of {name}"], **others)


class Cascade(ConverterTest):
    def save(self, name: str, model: onnx.ModelProto) -> str:
        path = str(self.folder / name)
        onnx.save(model, path)
        return path

    def first(self) -> str:
        return self.save("first.onnx", gains({"vocals": 0.5, "drum": 0.25, "bass": 7.0},
                                             passport("A", ["vocals", "drum"])))

    def test_the_second_works_on_what_the_first_leaves(self) -> None:
        second = self.save("second.onnx", gains(SECOND, passport("B", list(SECOND), rows=64)))
        model = self.converted("cascade", self.first(), second)
        results, = stems_of(model, noise())
        for stem, factor in {**{stem: 0.25 * factor for stem, factor in SECOND.items()},
                             "vocals": 0.5, "drum": 0.25}.items():
            self.assertLess(error(results[stem], factor * noise()), 1e-6, stem)
        joined = Passport.read(model)
        self.assertEqual(joined.stems, list(contract.STEMS))
        self.assertEqual(joined.converted_from, ["file of A", "file of B"])
        self.assertIn("vocals, drum: licence of A", joined.license)
        self.assertIn("licence of B", joined.license)
        self.assertEqual(joined.rows, 64)
        self.assertNotIn(7.0, [value for tensor in model.graph.initializer if tensor.data_type == TensorProto.FLOAT
                               for value in numpy_helper.to_array(tensor).flat], "the first's bass is still there")

    def test_a_second_opinion_tempers_the_first(self) -> None:
        second = self.save("second.onnx", gains(SECOND))
        model = self.converted("cascade", self.first(), second, "--second-opinion", "0.2")
        vocals, drum = 0.5 ** 0.8 * 0.9 ** 0.2, 0.25 ** 0.8 * 0.8 ** 0.2
        for level in (1, 1e-15, 1e15):
            results, = stems_of(model, level * noise())
            for stem, factor in {"vocals": vocals, "drum": drum, "bass": -(1 - vocals - drum)}.items():
                self.assertLess(error(results[stem], factor * level * noise()), 1e-6, stem)
        self.assertFalse(stems_of(model, 0 * noise())[0]["vocals"].any())
        silent = self.save("silent.onnx", gains({**SECOND, "vocals": 0.0}))
        results, = stems_of(self.converted("cascade", self.first(), silent, "--second-opinion", "0.5"), noise())
        self.assertLess(abs(results["vocals"]).max(), 1e-12)
        table = gains(SECOND)
        table.graph.initializer.append(numpy_helper.from_array(np.ones((1, 4, 256, 2048), np.float32), "table"))
        table.graph.node[0].input[1] = "table"
        joined = self.converted("cascade", self.first(), self.save("table.onnx", table), "--second-opinion", "0.2")
        self.assertLess(joined.ByteSize(), 1.5 * table.ByteSize(), "the second's weights are there twice")

    def test_what_is_no_number_reaches_neither(self) -> None:
        second = self.save("second.onnx", gains(SECOND))
        broken = noise()
        broken[0, 1, 2, 3:6] = np.nan, np.inf, 1e35
        results, = stems_of(self.converted("cascade", self.first(), second), broken)
        self.assertTrue(np.isfinite(results["piano"]).all())

    def test_graphs_inside_nodes_are_taken_along(self) -> None:
        """An If whose branches read values of the graph around them."""
        model = gains({stem: factor for stem, factor in SECOND.items() if stem != "piano"})
        output = helper.make_tensor_value_info("chosen", TensorProto.FLOAT, contract.SHAPE)
        branches = [helper.make_graph([helper.make_node("Mul", [contract.INPUT, name], ["chosen"])], name, [], [output])
                    for name in ("three", "four")]
        node = helper.make_node("If", ["piano_flag"], ["piano_output"], then_branch=branches[0],
                                else_branch=branches[1])
        graph = model.graph
        graph.initializer.extend(numpy_helper.from_array(np.float32(number), name)
                                 for name, number in (("three", 3), ("four", 4)))
        kept = [other for other in graph.node if "piano_output" not in other.output]
        del graph.node[:]
        graph.node.extend([*kept, node])
        results, = stems_of(self.converted("cascade", self.first(), self.save("second.onnx", model)), noise())
        self.assertLess(error(results["piano"], 0.75 * noise()), 1e-6)

    def test_models_that_cannot_be_joined_end_in_a_sentence(self) -> None:
        nameless = self.save("nameless.onnx", gains(SECOND))
        self.assert_refused("has no passport", "cascade", nameless, nameless)
        self.assert_refused("must be some of", "cascade", nameless, nameless, "--first-stems", "vocals,flute")
        for share in ("-0.1", "0.6", "nan"):
            self.assert_refused("a share between", "cascade", self.first(), nameless, "--second-opinion", share)
        self.assert_refused("no opinion on vocals", "cascade", self.first(), "--second-opinion", "0.2",
                            self.save("a.onnx", gains(SECOND, passport("B", ["drum", "bass"]))))
        self.assert_refused("no stem that", "cascade", self.first(),
                            self.save("b.onnx", gains(SECOND, passport("B", ["drum"]))))
        self.assert_refused("different sample rates", "cascade", self.first(),
                            self.save("c.onnx", gains(SECOND, passport("C", ["bass"], sample_rate=48000))))
        foreign = Graph()
        foreign.input("sound", (1, 2))
        foreign.add("Identity", "sound", name="copy")
        foreign.output("copy", (1, 2))
        self.assert_refused("is no model of the library", "cascade", self.first(),
                            self.save("d.onnx", foreign.model("foreign", "")))
        garbage = self.folder / "garbage.onnx"
        garbage.write_bytes(b"\xff" * 100)
        self.assert_refused("is no valid ONNX model", "cascade", self.first(), garbage)


class Stamp(ConverterTest):
    def test_a_passport_is_written_and_changed(self) -> None:
        path = self.folder / "plain.onnx"
        onnx.save(gains(SECOND), str(path))
        model = self.converted("passport", path, "--license", "MIT", "--stems", "bass, drum")
        self.assertEqual(Passport.read(model).license, "MIT")
        self.model.rename(path)
        changed = Passport.read(self.converted("passport", path, "--name", "Mine"))
        self.assertEqual((changed.name, changed.license, changed.stems), ("Mine", "MIT", ["bass", "drum"]))
        self.model.unlink()
        self.assert_refused("takes some of", "passport", path, "--stems", "flute")


class Compact(ConverterTest):
    HIDDEN = 32

    def network(self) -> onnx.ModelProto:
        """A model with weights of each kind: convolution, recurrent, product; a table, and a layer with an outlier."""
        random = np.random.default_rng(1)
        graph, spectrum = contract.open_graph()
        channels = np.geomspace(1, 1e-4, 64)[:, None, None, None]  # output channels of very different loudness
        wide = graph.add("Conv", spectrum, random.standard_normal((64, 4, 3, 3)) * channels, kernel_shape=[3, 3],
                         pads=[1] * 4, strides=[1, 32])
        narrow = graph.add("Mul", wide, 1 / channels.reshape(1, 64, 1, 1))
        rows = graph.reshape(graph.transpose(narrow, 2, 0, 1, 3), contract.FRAMES, 1, 4096)
        outlier = random.standard_normal((4096, 16)) * 0.01
        outlier[0] = 10.0
        few = graph.add("MatMul", rows, outlier)
        size = 4 * self.HIDDEN
        heard = graph.add_many("LSTM", few, random.standard_normal((2, size, 16)) * 0.3,
                               random.standard_normal((2, size, self.HIDDEN)) * 0.3, results=1,
                               hidden_size=self.HIDDEN, direction="bidirectional")[0]
        flat = graph.reshape(graph.transpose(heard, 0, 2, 1, 3), contract.FRAMES, 2 * self.HIDDEN)
        table = graph.table(random.standard_normal((2 * self.HIDDEN, contract.BINS)))
        mask = graph.reshape(graph.add("MatMul", flat, table), 1, 1, contract.FRAMES, contract.BINS)
        contract.close_graph(graph, {"bass": graph.add("Mul", spectrum, mask)})
        return graph.model("network", "")

    def test_weights_shrink_and_stems_stay(self) -> None:
        model = self.network()
        path = self.folder / "whole.onnx"
        passport("A", ["bass"]).write(model)
        onnx.save(model, str(path))
        expected, = stems_of(model, noise())
        for kind, share, decibels in (("int8", 0.5, 20), ("float16", 0.7, 50)):
            small = self.converted("compact", path, "--weights", kind, "--no-measure")
            table = 2 * self.HIDDEN * contract.BINS * 4
            self.assertLess(small.ByteSize() - table, share * (model.ByteSize() - table))
            results, = stems_of(small, noise())
            self.assertGreater(calibration.decibels(expected["bass"], results["bass"]), decibels, kind)
            tensors = {tensor.name: tensor for tensor in small.graph.initializer}
            for tensor in model.graph.initializer:
                if tensor.name.startswith("table_"):
                    self.assertEqual(tensors[tensor.name], tensor)
            self.assertIn(kind, Passport.read(small).notes)

    def test_an_outlier_keeps_its_layer_finer(self) -> None:
        kinds = {tensor.name.rsplit("/", 1)[-1]: 0 for tensor in compact.compacted(self.network(), "int8")
                 .graph.initializer}
        self.assertIn("half", kinds)
        self.assertIn("bytes", kinds)

    def test_the_runtime_restores_weights_once_and_not_in_every_run(self) -> None:
        session = Session(compact.compacted(self.network(), "int8"), profile=str(self.folder / "profile"))
        session.run(unified_input=noise())
        session.close()
        profile, = self.folder.glob("profile*")
        executed = {event["name"] for event in json.loads(profile.read_text()) if event.get("cat") == "Node"}
        self.assertTrue(any("lstm" in name for name in executed))
        self.assertFalse([name for name in executed if "restore_" in name or "widen_" in name])


if __name__ == "__main__":
    unittest.main()
