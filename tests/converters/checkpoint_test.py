#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checkpoints: what PyTorch 1.13 wrote is read exactly, and what is broken or hostile ends in a sentence.

data/torch_zip.pt and data/torch_old.pt are torch.save(CONTENT) in both formats of PyTorch 1.13.1, where CONTENT is
{"epoch": 3, "args": argparse.Namespace(lr=0.1), "best": numpy.float64(1.5), "state": state}, and state is an
OrderedDict of the tensors of expected(): "turned" is a transposed view, "shared" the rows 1 and 2 of "rows".
"""

import collections
import contextlib
import datetime
import io
import os
import pickle
import sys
import tempfile
import types
import unittest
import zipfile
from collections.abc import Callable
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "converters"))
from tonwerk_converters.errors import ConversionError
from tonwerk_converters.torch_checkpoint import read_weights

DATA = Path(__file__).resolve().parent / "data"


def expected() -> dict[str, np.ndarray]:
    """The tensors of both files."""
    rows = np.arange(12, dtype=np.float32).reshape(4, 3) / 8
    return {"rows": rows, "shared": rows[1:3], "turned": np.arange(6, dtype=np.float32).reshape(2, 3).T,
            "half": np.array([0.5, -2], np.float32), "brain": np.array([1.5, -3], np.float32),
            "count": np.array(7, np.int64)}


class Call:
    """Pickles as a call."""

    def __init__(self, function: Callable[..., object], *arguments: object) -> None:
        self.call = function, arguments

    def __reduce__(self) -> tuple[Callable[..., object], tuple[object, ...]]:
        return self.call


def as_zip(pickled: bytes, compression: int = zipfile.ZIP_STORED, **storages: np.ndarray) -> bytes:
    """A checkpoint in the zip format."""
    file = io.BytesIO()
    with zipfile.ZipFile(file, "w", compression) as archive:
        archive.writestr("archive/data.pkl", pickled)
        for key, numbers in storages.items():
            archive.writestr(f"archive/data/{key}", numbers.tobytes())
    return file.getvalue()


class Checkpoints(unittest.TestCase):
    """The reader, on files in a folder of its own."""

    def setUp(self) -> None:
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.path = Path(self.folder.name) / "checkpoint.pt"

    def read(self, data: bytes) -> dict[str, np.ndarray]:
        self.path.write_bytes(data)
        return read_weights(self.path)

    def assert_refused(self, data: bytes, words: str) -> None:
        with self.assertRaises(ConversionError) as caught:
            self.read(data)
        self.assertIn(words, str(caught.exception))

    def test_both_formats_of_pytorch_give_every_tensor_exactly(self) -> None:
        for name in ("torch_zip.pt", "torch_old.pt"):
            found = read_weights(DATA / name)
            self.assertEqual(set(found), set(expected()))
            for key, values in expected().items():
                np.testing.assert_array_equal(found[key], values, err_msg=f"{name}: {key}")
                self.assertEqual(found[key].dtype, values.dtype)

    def test_code_in_a_checkpoint_is_named_and_does_not_run(self) -> None:
        trace = Path(self.folder.name) / "trace"
        for call in (Call(os.system, f"touch {trace}"), Call(eval, f"open({str(trace)!r}, 'w')"),
                     Call(exec, f"open({str(trace)!r}, 'w')")):
            for protocol in range(2, 6):
                pickled = pickle.dumps({"state": {"weight": call}}, protocol)
                self.assert_refused(as_zip(pickled), "Nothing of it was run")
                self.assert_refused(pickled, "Nothing of it was run")
        self.assertFalse(trace.exists())
        self.assert_refused(as_zip(b"cos\nsystem\n(S'true'\ntR."), "os.system")
        self.assert_refused(as_zip(b"\x80\x02c\x1b[2Jos\nsystem\n)R."), r"\x1b[2Jos.system")  # not to the terminal
        self.assert_refused(as_zip(b"(S'true'\nios\nsystem\n."), "broken")  # the old way to make an object

    def test_a_cut_file_ends_in_a_sentence_and_a_changed_one_in_nothing_worse(self) -> None:
        for name in ("torch_zip.pt", "torch_old.pt"):
            whole = (DATA / name).read_bytes()
            for length in range(0, len(whole) - 1, 7):
                with self.assertRaises(ConversionError):
                    self.read(whole[:length])
            random = np.random.default_rng(5)
            for place in random.integers(0, len(whole), 500):
                changed = bytearray(whole)
                changed[place] ^= 1 << int(random.integers(8))
                with contextlib.suppress(ConversionError):
                    self.read(bytes(changed))

    def test_tensors_stay_within_their_numbers(self) -> None:
        from collections import OrderedDict
        weights = np.arange(4, dtype=np.float32)
        good = pickle.dumps(OrderedDict(w=1), 2)
        self.assert_refused(as_zip(good), "no state dict")
        for offset, shape, stride in ((1, 4, 1), (0, 2, 4), (0, 5, 0), (0, 1 << 40, 0), (-1, 2, 1), (0, -1, 1)):
            pickled = b"\x80\x02}X\x01\x00\x00\x00wctorch._utils\n_rebuild_tensor_v2\n((X\x07\x00\x00\x00storage" \
                      b"ctorch\nFloatStorage\nX\x01\x00\x00\x000X\x03\x00\x00\x00cpuK\x04tQ" + \
                      b"".join(pickle.dumps(item, 2)[2:-1] for item in (offset, (shape,), (stride,), False, None)) + \
                      b"tRs."
            self.assert_refused(as_zip(pickled, **{"0": weights}), "cannot be used")
        self.assert_refused(as_zip(pickled, zipfile.ZIP_DEFLATED, **{"0": weights}), "not of the kind")

    def test_a_file_that_asks_for_much_memory_gets_none(self) -> None:
        self.assert_refused(as_zip(b"\x80\x02Nr\xff\xff\xff\x7f."), "no state dict")  # a place in the memo
        self.assert_refused(as_zip(b"\x80\x04\x8e\xff\xff\xff\xff\xff\xff\xff\x7f."), "broken")

    def test_other_files_are_no_checkpoints(self) -> None:
        self.assert_refused(b"", "no PyTorch checkpoint")
        self.assert_refused(b"RIFF....WAVE", "no PyTorch checkpoint")
        self.assert_refused(pickle.dumps([1, 2]), "no PyTorch checkpoint")
        self.assert_refused(as_zip(pickle.dumps({"state": {"weight": "text"}}, 2)), "no state dict")
        beside = {"history": collections.defaultdict(list, {"loss": [1.0]}), "args": types.SimpleNamespace(rate=0.1),
                  "when": datetime.datetime.now(), "best": np.arange(3), "names": {"a", "b"}, "state": {}}
        for protocol in (2, 4):  # what trainers store beside the weights is passed over
            self.assert_refused(as_zip(pickle.dumps(beside, protocol)), "no state dict")
        with self.assertRaises(ConversionError):
            read_weights(Path(self.folder.name) / "nowhere.pt")


if __name__ == "__main__":
    unittest.main()
