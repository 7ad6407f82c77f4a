#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs the tools of tonwerk-separate (doctor, check-model, scramble) as a user does.

Usage: tools_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program.
"""

import hashlib
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
from collections.abc import Iterable
from pathlib import Path
from typing import Any

import numpy as np

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/models"))
from make_analytic_models import FLAG_ORDER, GAINS, INPUT, SHAPE, Network, scale  # noqa: E402

SHAPE_TEXT = "(1, 4, 256, 2048)"
RUNTIMES = ("onnxruntime_pelagrin.dll", "DirectML.dll", "libonnxruntime_pelagrin.so")
# The runtime speaks before any of our code can silence it where the system hides its processor's caches.
RUNTIMES_OWN = re.compile(r"\[E:onnxruntime:.*InitializeCpuInfo\]")

models = Path()
command = []


class Done:
    """What a run has left: code, lines by the name in front of them, and its error messages."""

    def __init__(self, process: subprocess.CompletedProcess[str]) -> None:
        self.code = process.returncode
        self.output = process.stdout
        self.errors = [line for line in process.stderr.splitlines() if not RUNTIMES_OWN.search(line)]
        self.lines: dict[str, list[str]] = {}
        for line in process.stdout.splitlines():
            self.lines.setdefault(line[:10].strip(), []).append(line[11:])

    def all(self, name: str) -> list[str]:
        return self.lines.get(name, [])

    def warnings(self) -> list[str]:
        """Those of check-model but for the one that all models of these tests get: they have no passport."""
        return [sentence for sentence in self.all("warning") if "has no passport" not in sentence]


class ToolTest(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="tonwerk-tools-test-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def put(self, name: str, content: bytes) -> Path:
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        return path

    def put_song(self) -> None:
        song = np.zeros(1000, "<f4")
        self.put("song.wav", struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + song.nbytes, b"WAVE", b"fmt ", 16, 3, 2,
                                         44100, 44100 * 8, 8, 32, b"data", song.nbytes) + song.tobytes())

    def put_network(self, network: Network) -> Path:
        return self.put("network.onnx", network.model().SerializeToString())

    def run_tool(self, *arguments: Any, program: Path | None = None, model: Any = None) -> Done:
        """model: what the environment names as the default model."""
        environment = {name: value for name, value in os.environ.items() if name != "TONWERK_MODEL"}
        if model is not None:
            environment["TONWERK_MODEL"] = str(model)
        return Done(subprocess.run([*command[:-1], str(program or command[-1]), *map(str, arguments)],
                                   cwd=self.folder, env=environment, capture_output=True, encoding="utf-8"))

    def assert_failed(self, done: Done, words: str, code: int = 1) -> None:
        """One sentence on standard error with these words."""
        self.assertEqual((done.code, len(done.errors)), (code, 1), (done.output, done.errors))
        self.assertRegex(done.errors[0], f"^tonwerk-separate: .*{re.escape(words)}.*[.)]$")

    def program_without_runtime(self, folder: str) -> Path:
        """A copy of the program with its libraries, but for the runtime."""
        target = self.folder / folder
        target.mkdir(parents=True)
        products = Path(command[-1]).parent
        for file in products.iterdir():
            if file.name not in RUNTIMES and (file.suffix == ".dll" or ".so" in file.suffixes
                                              or file == Path(command[-1])):
                shutil.copy(file, target)
        return target / Path(command[-1]).name


class CheckModel(ToolTest):
    def check(self, model: Any, *arguments: Any) -> Done:
        return self.run_tool("check-model", model, *arguments)

    def assert_breaks(self, done: Done, violations: list[str]) -> None:
        """Exactly these violations (regular expressions), in any order, and a result that counts them."""
        self.assertEqual((done.code, done.errors), (1, []), done.output)
        found = done.all("violation")
        self.assertEqual(len(found), len(violations), found)
        for violation in violations:
            self.assertTrue(any(re.fullmatch(violation, sentence) for sentence in found), (violation, found))
        self.assertRegex(done.all("result")[0], rf"^It breaks the contract: {len(violations)} violations?\.$")

    def assert_conforms(self, done: Done, warnings: int = 0) -> None:
        self.assertEqual((done.code, done.errors, done.all("violation")), (0, [], []), done.output)
        self.assertEqual(len(done.warnings()), warnings, done.output)
        self.assertEqual(done.all("result"), ["It keeps to the contract."])
        self.assertRegex(done.all("speed")[0],
                         r"^\d+\.\d{3} s for each 5\.78 s of sound: real-time factor \d+\.\d{3}\.$")

    def test_models_that_keep_the_contract_are_told_to(self) -> None:
        for name in ("gains", "reordered", "identity_vocals", "neighbours", "frame_mask"):
            with self.subTest(model=name):
                done = self.check(models / f"{name}.onnx")
                self.assert_conforms(done)
                self.assertEqual(done.all("producer"), ["tonwerk"])
                self.assertTrue(any("ignores the flags" in note for note in done.all("note")))

    def test_each_break_of_the_interface_is_one_sentence(self) -> None:
        every = ["input \"unified_input\""] + [f"output \"{stem}_output\"" for stem in GAINS]
        outputs = every[1:]

        def shapes(shape: str, ports: Iterable[str], rest: str = "") -> list[str]:
            return [re.escape(f"The {port} has the shape {shape}, it must be {SHAPE_TEXT}{rest}.") for port in ports]

        for name, violations in {
            "missing_output": [r'The output "bass_output" is missing\.'],
            "missing_flag": [r'The input "piano_flag" is missing\.'],
            "extra_input": [r'The input "temperature" must not be there: .*\.'],
            "sequence_output": [r'The output "vocals_output" is no tensor\.'],
            "wrong_type": [f"The {port} is of type float64, it must be float32\\." for port in every],
            "mono": shapes("(1, 2, 256, 2048)", every),
            "small_segment": shapes("(1, 4, 128, 2048)", every),
            "dynamic_output_shape": shapes("(1, 4, ?, 2048)", outputs, " without open dimensions"),
        }.items():
            with self.subTest(model=name):
                done = self.check(models / "wrong" / f"{name}.onnx")
                self.assert_breaks(done, violations)
                self.assertEqual(done.all("speed"), [], "it was run")
        self.assertRegex(done.warnings()[0], r'The input "unified_input" has the shape \(1, 4, \?, 2048\)')

    def test_a_network_that_would_read_other_files_is_not_loaded(self) -> None:
        for part in ("initializer", "sparse", "attribute", "function", "subgraph", "memory"):
            with self.subTest(part=part):
                self.assert_breaks(self.check(models / "hostile" / f"external_{part}.onnx"),
                                   [r"The model has external data: it would read files of this machine\..*"])

    def test_order_and_shape_of_flags_count(self) -> None:
        self.assert_breaks(self.check(self.put_network(scale(Network(flags=FLAG_ORDER[::-1]), GAINS))),
                           [r"The inputs are not in their order, which is unified_input, vocals_flag, drum_flag.*\."])
        network = scale(Network(), GAINS)
        network.inputs[2].type.tensor_type.shape.dim[0].dim_value = 2
        self.assert_breaks(self.check(self.put_network(network)),
                           [r'The input "drum_flag" has the shape \(2\), it must be \(1\)\.'])

    def test_what_a_run_gives_is_looked_at(self) -> None:
        def network(operator: str, *others: Any) -> Done:
            """Vocals are what the operator makes of the input."""
            made = scale(Network(), GAINS, order=list(GAINS)[1:])
            made.add_output(operator, [INPUT, *(made.constant(f"c{i}", other) for i, other in enumerate(others))],
                            "vocals")
            return self.check(self.put_network(made))

        vocals = '"vocals_output"'
        self.assert_breaks(network("Sqrt"), [rf"Of the numbers in the output {vocals}, \d+ are not finite\."])
        self.assert_breaks(network("Add", 1e-3), [rf"Silence gives sound in the output {vocals}.*\."])
        self.assert_breaks(network("RandomUniformLike"),
                           [r"Equal input gives different results, by up to .*\.",
                            rf"Silence gives sound in the output {vocals}.*\."])
        loud = network("Mul", 2.0)
        self.assert_conforms(loud, warnings=1)
        self.assertRegex(loud.warnings()[0], r"^The stems are louder .*: 1 of them by themselves, .* by 8\.6 dB\.$")

    def test_heeded_flags_are_told(self) -> None:
        network = Network()
        for stem in GAINS:
            factor = network.add("Where", [f"{stem}_flag", network.constant(f"{stem}_on", [GAINS[stem]]),
                                           network.constant(f"{stem}_off", [0.0])], f"{stem}_factor")
            network.add_output("Mul", [INPUT, factor], stem)
        done = self.check(self.put_network(network))
        self.assert_conforms(done)
        self.assertEqual(done.all("note"), ["It heeds the flags: without its flag, 6 of the 6 stems get quieter."])

    def test_a_run_that_fails_is_a_violation(self) -> None:
        network = Network()
        shape = network.constant("asked_shape", np.array(SHAPE) + [0, 0, 0, 1], np.int64)
        # What is not known before the run: the shape comes out of a value of the input.
        network.add("Mul", [INPUT, network.constant("zero", 0.0)], "nothing")
        network.add("ReduceMax", ["nothing"], "none", keepdims=0)
        network.add("Cast", ["none"], "none_whole", to=7)
        network.add("Add", [shape, "none_whole"], "shape")
        network.add("Reshape", [INPUT, "shape"], "checked")
        self.assert_breaks(self.check(self.put_network(scale(network, GAINS, source="checked"))),
                           [r"It cannot be run: .*Reshape.*\."])

    def test_unused_outputs_are_only_told(self) -> None:
        network = scale(Network(), GAINS)
        network.add_output("Abs", [INPUT], "noise")
        done = self.check(self.put_network(network))
        self.assert_conforms(done, warnings=1)
        self.assertEqual(done.warnings(), ['The output "noise_output" is not used by the library.'])

    def test_files_that_are_no_model(self) -> None:
        whole = (models / "band_split.onnx").read_bytes()
        for content in (whole[:len(whole) // 2], b"text " * 100, b"\x08\x08"):
            with self.subTest(content=content[:5]):
                done = self.check(self.put("cut.onnx", content))
                self.assert_breaks(done, [r"The runtime cannot load it: .+\. "
                                          r"If it is scrambled, --key takes its key\."])
        for name, words in (("missing.onnx", "does not exist"), (".", "is a folder"),
                            (self.put("empty.onnx", b""), "is an empty file")):
            self.assert_failed(self.check(name), words)
        self.assert_failed(self.run_tool("check-model"), "required", code=2)


class Scramble(ToolTest):
    KEY = "Größe 歌"

    def scramble(self, model: Any, output: Any, *arguments: Any) -> Done:
        return self.run_tool("scramble", model, "-o", output, *(arguments or ("--key", self.KEY)))

    def assert_scrambled(self, done: Done) -> None:
        self.assertEqual((done.code, done.errors), (0, []), done.output)

    def test_a_scrambled_model_separates_with_its_key_and_turns_back(self) -> None:
        gains = models / "gains.onnx"
        self.assert_scrambled(self.scramble(gains, "model 楽.onnx"))
        plain = np.frombuffer(gains.read_bytes(), np.uint8)
        scrambled = np.frombuffer((self.folder / "model 楽.onnx").read_bytes(), np.uint8)
        np.testing.assert_array_equal(scrambled ^ plain,
                                      np.resize(np.frombuffer(self.KEY.encode(), np.uint8), plain.shape))

        self.put_song()
        arguments = ["song.wav", "-o", "out", "--model", "model 楽.onnx", "--key"]
        self.assertEqual(self.run_tool(*arguments, "wrong").code, 1)
        self.assertEqual(self.run_tool(*arguments, self.KEY).code, 0)

        check = self.run_tool("check-model", "model 楽.onnx", "--key", self.KEY)
        self.assertEqual((check.code, check.all("violation")), (0, []))
        check = self.run_tool("check-model", "model 楽.onnx", "--key", "wrong")
        self.assertEqual(check.code, 1)
        self.assertRegex(check.all("violation")[0], r"cannot load it: .*\. Is the key the right one\?$")

        self.assert_scrambled(self.scramble("model 楽.onnx", "plain.onnx"))
        self.assertEqual((self.folder / "plain.onnx").read_bytes(), gains.read_bytes())

    def test_the_model_itself_is_never_replaced(self) -> None:
        content = (models / "gains.onnx").read_bytes()
        model = self.put("model.onnx", content)
        names = ["model.onnx", "./model.onnx", "folder/../model.onnx"]
        (self.folder / "folder").mkdir()
        (self.folder / "link.onnx").hardlink_to(model)
        for name in [*names, "link.onnx"]:
            with self.subTest(output=name):
                self.assert_failed(self.scramble("model.onnx", name), "would replace the model")
        self.assertEqual(model.read_bytes(), content)

    def test_nothing_is_left_of_what_cannot_be_written(self) -> None:
        (self.folder / "taken.onnx" / "full").mkdir(parents=True)
        gains = models / "gains.onnx"
        self.assert_failed(self.scramble(gains, "taken.onnx"), "is no file")
        self.assert_failed(self.scramble(gains, "nowhere/model.onnx"), "Cannot open")
        self.assert_failed(self.scramble("missing.onnx", "model.onnx"), "does not exist")
        self.assertEqual([path.name for path in self.folder.iterdir()], ["taken.onnx"])

    def test_a_key_is_needed(self) -> None:
        gains = models / "gains.onnx"
        self.assert_failed(self.scramble(gains, "model.onnx", "--key", ""), "The key is empty", code=2)
        self.assert_failed(self.run_tool("scramble", gains, "-o", "model.onnx"), "required", code=2)


class Doctor(ToolTest):
    def test_all_is_well(self) -> None:
        done = self.run_tool("doctor", model=models / "gains.onnx")
        self.assertEqual((done.code, done.errors, done.all("problem")), (0, [], []), done.output)
        self.assertEqual(done.all("result"), ["All is well."])
        self.assertRegex(done.all("runtime")[0], r'^ONNX Runtime 1\.\d+\.\d+, ".*onnxruntime_pelagrin.*"$')
        self.assertIn("CPUExecutionProvider: available", done.all("provider"))
        self.assertTrue(all(": refused, " in line for line in done.all("provider")[:-1]))
        self.assertEqual(done.all("runs on"), ["CPUExecutionProvider"])
        content = (models / "gains.onnx").read_bytes()
        self.assertTrue(done.all("model")[0].endswith(
            f'gains.onnx", {len(content)} bytes, SHA-256 {hashlib.sha256(content).hexdigest()}'), done.output)
        self.assertFalse([name for name in done.lines if name.startswith("20")], "log lines of the library")
        null_test = re.fullmatch(r"stems right to \S+, null test (\S+) dBFS, real-time factor \d\.\d+ \(.*\)",
                                 done.all("self-test")[0])
        self.assertLess(float(null_test[1]), -120.0)

    def test_a_missing_runtime_is_a_problem_with_an_advice(self) -> None:
        program = self.program_without_runtime("bin")
        done = self.run_tool("doctor", program=program, model=models / "gains.onnx")
        self.assertEqual((done.code, done.errors, done.all("result")), (1, [], ["1 problem to solve."]))
        self.assertRegex(done.all("problem")[0],
                         r"^Cannot load the inference runtime .*onnxruntime_pelagrin.* Put the runtime .*\.$")
        self.assertEqual((done.all("provider"), done.all("self-test")), ([], []))
        self.assertEqual(len(done.all("model")), 1, "what can be looked at is looked at")
        done = self.run_tool("check-model", models / "gains.onnx", program=program)
        self.assert_failed(done, "Cannot load the inference runtime")

    def test_the_default_model_is_looked_for_in_its_places(self) -> None:
        program = self.program_without_runtime("tree/bin")
        places = ["tree/models", "tree/share/tonwerk/models", "tree/bin"]
        problem = self.run_tool("doctor", program=program).all("problem")[-1]
        self.assertRegex(problem, r"^There is no model: name one with --model or TONWERK_MODEL, or put "
                                  r"tonwerk-standard\.onnx or tonwerk-small\.onnx into one of the folders .*\.$")
        for place in places:  # the later ones go before the earlier ones
            content = place.encode()
            self.put(f"{place}/tonwerk-small.onnx", content)
            model = self.run_tool("doctor", program=program).all("model")
            self.assertEqual(len(model), 1)
            path = model[0].split('"')[1].replace("\\", "/")
            self.assertTrue(path.endswith(f"{place}/tonwerk-small.onnx"), model)
            self.assertIn(Path(place).name, problem)
        named = self.put("Größe 歌.onnx", b"named")
        self.assertIn("Größe 歌.onnx", self.run_tool("doctor", program=program, model=named).all("model")[0])
        self.assertRegex(self.run_tool("doctor", program=program, model="gone.onnx").all("problem")[-1],
                         r'^The environment variable TONWERK_MODEL names the model "gone\.onnx", '
                          r'which does not exist\.$')

    def test_songs_are_separated_with_the_default_model(self) -> None:
        self.put_song()
        for model, words in ((models / "gains.onnx", ""), (self.put("text.onnx", b"text"), "cannot be used: ")):
            done = self.run_tool("song.wav", "-o", "out", model=model)
            self.assertEqual(done.code, 1 if words else 0, done.errors)
            self.assertIn(words, done.errors[-1] if words else "")
        done = self.run_tool("song.wav", "-o", "out", program=self.program_without_runtime("bin"))
        self.assert_failed(done, "There is no model: ")

    def test_a_default_model_that_cannot_be_used_is_a_problem(self) -> None:
        for model, words in ((self.put("text.onnx", b"text"), "cannot be loaded: "),
                             (models / "wrong" / "mono.onnx", "breaks the contract; "),
                             (self.put("empty.onnx", b""), "is an empty file."),
                             (self.folder, "has 2 models: --list-models")):
            done = self.run_tool("doctor", model=model)
            self.assertEqual((done.code, len(done.all("problem"))), (1, 1), done.output)
            self.assertIn(words, done.all("problem")[0])
            self.assertEqual(len(done.all("self-test")), 1)

    def test_its_own_model_is_the_analytic_one(self) -> None:
        self.assertEqual((ROOT / "apps/tools/gains.onnx").read_bytes(), (models / "gains.onnx").read_bytes())

    def test_help_and_wrong_usage(self) -> None:
        for tool in ("doctor", "check-model", "scramble"):
            done = self.run_tool(tool, "--help")
            self.assertEqual((done.code, done.errors), (0, []))
            self.assertIn(f"Usage: tonwerk-separate {tool}", done.output)
        self.assert_failed(self.run_tool("doctor", "now"), "now", code=2)


if __name__ == "__main__":
    models = Path(sys.argv[1]).resolve()
    command = sys.argv[2:]
    unittest.main(argv=[sys.argv[0]], verbosity=2)
