# SPDX-License-Identifier: MIT
"""Writes checkpoints as PyTorch's zip format has them, without PyTorch."""

import io
import pickle
import sys
import types
import zipfile
from collections.abc import Callable, Mapping
from pathlib import Path
from unittest import mock

import numpy as np


def _rebuild_tensor_v2(*_: object) -> None:
    raise NotImplementedError("only its name goes into a file")


class FloatStorage:
    """Only its name goes into a file."""


_rebuild_tensor_v2.__module__ = "torch._utils"
FloatStorage.__module__ = "torch"
_MODULES = {"torch": types.SimpleNamespace(FloatStorage=FloatStorage),
            "torch._utils": types.SimpleNamespace(_rebuild_tensor_v2=_rebuild_tensor_v2)}


class _Tensor:
    def __init__(self, key: str, values: np.ndarray) -> None:
        self.key, self.values = key, values

    def __reduce__(self) -> tuple[Callable[..., object], tuple[object, ...]]:
        strides = tuple(stride // self.values.itemsize for stride in self.values.strides)
        return _rebuild_tensor_v2, (self, 0, self.values.shape, strides, False, {})


class _Pickler(pickle.Pickler):
    """Tensors are pickled as calls; their first argument, the tensor again, as what names a storage."""

    def __init__(self, file: io.BytesIO) -> None:
        super().__init__(file, 2)
        self.reduced = set()

    def persistent_id(self, item: object) -> tuple[object, ...] | None:
        if isinstance(item, _Tensor):
            if item.key in self.reduced:
                return "storage", FloatStorage, item.key, "cpu", item.values.size
            self.reduced.add(item.key)
        return None


def save(path: Path, weights: Mapping[str, np.ndarray], under: str | None = None) -> None:
    """Writes a state dict of float32 arrays, alone or under a name."""
    tensors = {name: _Tensor(str(index), np.ascontiguousarray(values, np.float32))
               for index, (name, values) in enumerate(weights.items())}
    pickled = io.BytesIO()
    with mock.patch.dict(sys.modules, _MODULES):
        _Pickler(pickled).dump({under: tensors, "epoch": 1} if under else tensors)
    with zipfile.ZipFile(path, "w") as archive:
        archive.writestr("archive/data.pkl", pickled.getvalue())
        for tensor in tensors.values():
            archive.writestr(f"archive/data/{tensor.key}", tensor.values.tobytes())
