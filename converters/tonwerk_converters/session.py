# SPDX-License-Identifier: MIT
"""Runs any ONNX model on the ONNX Runtime that the library ships, through its C interface.

Debian has no Python package of ONNX Runtime, and this is the build that counts anyway.
"""

import ctypes
import os
from collections.abc import Mapping
from pathlib import Path
from typing import Any

import numpy as np
import onnx

NAME = "libonnxruntime_pelagrin.so"
ROOT = Path(__file__).resolve().parents[2]
PLACES = (ROOT / ".deps/runtime/linux", ROOT / "lib")  # in the repository, and in a package
API_VERSION = 16  # the table only ever grows at its end, so any later runtime gives it too

# Places in the table OrtApi (onnxruntime_c_api.h).
GET_ERROR_MESSAGE, CREATE_ENV, CREATE_SESSION_FROM_ARRAY, RUN, CREATE_SESSION_OPTIONS = 2, 3, 8, 9, 10
ENABLE_PROFILING, SET_INTRA_OP_THREADS, CREATE_TENSOR, CREATE_CPU_MEMORY_INFO = 14, 24, 49, 69
RELEASE_ENV, RELEASE_MEMORY_INFO, RELEASE_SESSION, RELEASE_VALUE, RELEASE_OPTIONS = 92, 94, 95, 96, 100
ELEMENTS = {np.dtype(np.float32): 1, np.dtype(np.bool_): 9}
WARNING = 2


def find_runtime() -> Path | None:
    """The runtime's library, or None: the one that TONWERK_RUNTIME names, else where this project keeps it."""
    named = os.environ.get("TONWERK_RUNTIME")
    places = [Path(named)] if named else [place / NAME for place in PLACES]
    return next((place for place in places if place.is_file()), None)


class _ApiBase(ctypes.Structure):
    _fields_ = [("getApi", ctypes.CFUNCTYPE(ctypes.c_void_p, ctypes.c_uint32)), ("getVersion", ctypes.c_void_p)]


# Prototypes without parameters: ctypes passes on whatever it is given, and every argument here has its exact type.
_StatusFunction = ctypes.CFUNCTYPE(ctypes.c_void_p)
_MessageFunction = ctypes.CFUNCTYPE(ctypes.c_char_p, ctypes.c_void_p)
_ReleaseFunction = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


class Session:
    """One model, ready to run: its inputs float32 or bool, its outputs float32, all shapes fixed."""

    def __init__(self, model: onnx.ModelProto, threads: int = 2, profile: str | None = None) -> None:
        runtime = find_runtime()
        if runtime is None:
            raise RuntimeError(f"There is no ONNX Runtime ({NAME}) to run models on; scripts/fetch-deps.sh fetches it.")
        self.library = ctypes.CDLL(str(runtime))
        self.library.OrtGetApiBase.restype = ctypes.POINTER(_ApiBase)
        table = self.library.OrtGetApiBase().contents.getApi(API_VERSION)
        self.functions = ctypes.cast(table, ctypes.POINTER(ctypes.c_void_p))
        self.environment, self.memory, self.session = (ctypes.c_void_p() for _ in range(3))
        self._call(CREATE_ENV, WARNING, b"converters", ctypes.byref(self.environment))
        self._call(CREATE_CPU_MEMORY_INFO, 0, -1, ctypes.byref(self.memory))
        options = ctypes.c_void_p()
        self._call(CREATE_SESSION_OPTIONS, ctypes.byref(options))
        self._call(SET_INTRA_OP_THREADS, options, threads)
        if profile:
            self._call(ENABLE_PROFILING, options, profile.encode())
        data = model.SerializeToString()
        self._call(CREATE_SESSION_FROM_ARRAY, self.environment, data, ctypes.c_size_t(len(data)),
                   options, ctypes.byref(self.session))
        self._release(RELEASE_OPTIONS, options)
        self.inputs = [value.name for value in model.graph.input]
        self.outputs = {value.name: [size.dim_value for size in value.type.tensor_type.shape.dim]
                        for value in model.graph.output}

    def run(self, **inputs: np.ndarray) -> Mapping[str, np.ndarray]:
        """All inputs by name (flags that are left out are true) to all outputs by name."""
        given = [np.ascontiguousarray(inputs.get(name, np.ones(1, np.bool_))) for name in self.inputs]
        results = {name: np.empty(shape, np.float32) for name, shape in self.outputs.items()}
        values = [self._tensor(array) for array in (*given, *results.values())]
        try:
            self._call(RUN, self.session, None, *self._list(self.inputs, values[:len(given)]),
                       *self._list(list(results), values[len(given):], outputs=True))
        finally:
            for value in values:
                self._release(RELEASE_VALUE, ctypes.c_void_p(value))
        return results

    def close(self) -> None:
        """Frees the session; writes the profile if one was asked for."""
        self._release(RELEASE_SESSION, self.session)
        self._release(RELEASE_MEMORY_INFO, self.memory)
        self._release(RELEASE_ENV, self.environment)

    @staticmethod
    def _list(names: list[str], values: list[int], outputs: bool = False) -> list[Any]:
        """The arguments of Run for inputs or outputs; the count of outputs comes before their values."""
        count = ctypes.c_size_t(len(names))
        texts = (ctypes.c_char_p * len(names))(*(name.encode() for name in names))
        tensors = (ctypes.c_void_p * len(names))(*values)
        return [texts, count, tensors] if outputs else [texts, tensors, count]

    def _tensor(self, array: np.ndarray) -> int:
        value = ctypes.c_void_p()
        self._call(CREATE_TENSOR, self.memory, ctypes.c_void_p(array.ctypes.data), ctypes.c_size_t(array.nbytes),
                   (ctypes.c_int64 * array.ndim)(*array.shape), ctypes.c_size_t(array.ndim), ELEMENTS[array.dtype],
                   ctypes.byref(value))
        return value.value or 0

    def _call(self, place: int, *arguments: Any) -> None:
        status = _StatusFunction(self.functions[place])(*arguments)
        if status:
            message = _MessageFunction(self.functions[GET_ERROR_MESSAGE])(status)
            raise RuntimeError(f"ONNX Runtime: {message.decode()}")

    def _release(self, place: int, thing: ctypes.c_void_p) -> None:
        _ReleaseFunction(self.functions[place])(thing)
