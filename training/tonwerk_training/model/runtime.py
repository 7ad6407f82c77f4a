# SPDX-License-Identifier: MIT
"""Runs a model of the library's interface on the ONNX Runtime that the library ships, through its C interface.

Debian has no Python package of ONNX Runtime, and this is the build that counts anyway.
"""

import ctypes
from pathlib import Path

import numpy as np

RUNTIME = Path(__file__).resolve().parents[3] / ".deps/runtime/linux/libonnxruntime_pelagrin.so"
API_VERSION = 16  # the table only ever grows at its end, so any later runtime gives it too
SHAPE = (1, 4, 256, 2048)
FLAGS = ("vocals", "drum", "bass", "piano", "acoustic_guitar", "electric_guitar")
OUTPUTS = ("vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass")

# Places in the table OrtApi (onnxruntime_c_api.h).
GET_ERROR_MESSAGE, CREATE_ENV, CREATE_SESSION_FROM_ARRAY, RUN, CREATE_SESSION_OPTIONS = 2, 3, 8, 9, 10
ENABLE_PROFILING, SET_INTRA_OP_THREADS, CREATE_TENSOR, CREATE_CPU_MEMORY_INFO = 14, 24, 49, 69
RELEASE_ENV, RELEASE_MEMORY_INFO, RELEASE_SESSION, RELEASE_VALUE, RELEASE_OPTIONS = 92, 94, 95, 96, 100
ELEMENT_FLOAT, ELEMENT_BOOL = 1, 9
WARNING = 2


class _ApiBase(ctypes.Structure):
    _fields_ = [("getApi", ctypes.CFUNCTYPE(ctypes.c_void_p, ctypes.c_uint32)), ("getVersion", ctypes.c_void_p)]


# Prototypes without parameters: ctypes passes on whatever it is given, and every argument here has its exact type.
_StatusFunction = ctypes.CFUNCTYPE(ctypes.c_void_p)
_MessageFunction = ctypes.CFUNCTYPE(ctypes.c_char_p, ctypes.c_void_p)
_ReleaseFunction = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


class Runtime:
    """One model, ready to run. model: its bytes."""

    def __init__(self, model, threads=1, library=RUNTIME, profile=None):
        self.library = ctypes.CDLL(str(library))
        self.library.OrtGetApiBase.restype = ctypes.POINTER(_ApiBase)
        table = self.library.OrtGetApiBase().contents.getApi(API_VERSION)
        self.functions = ctypes.cast(table, ctypes.POINTER(ctypes.c_void_p))
        self.environment, self.memory, self.session = (ctypes.c_void_p() for _ in range(3))
        self._call(CREATE_ENV, WARNING, b"training", ctypes.byref(self.environment))
        self._call(CREATE_CPU_MEMORY_INFO, 0, -1, ctypes.byref(self.memory))
        options = ctypes.c_void_p()
        self._call(CREATE_SESSION_OPTIONS, ctypes.byref(options))
        self._call(SET_INTRA_OP_THREADS, options, threads)
        if profile:
            self._call(ENABLE_PROFILING, options, str(profile).encode())
        self.model = bytes(model)
        self._call(CREATE_SESSION_FROM_ARRAY, self.environment, self.model, ctypes.c_size_t(len(self.model)),
                   options, ctypes.byref(self.session))
        self._release(RELEASE_OPTIONS, options)
        self.results = {stem: np.empty(SHAPE, np.float32) for stem in OUTPUTS}

    def run(self, spectrum):
        """Spectrum float32 of SHAPE to a dictionary of the stems' spectra, which the next run overwrites."""
        spectrum = np.ascontiguousarray(spectrum, dtype=np.float32)
        if spectrum.shape != SHAPE:
            raise ValueError(f"The model takes {SHAPE}, not {spectrum.shape}.")
        flag = np.ones(1, np.bool_)
        inputs = [self._tensor(spectrum)] + [self._tensor(flag) for _ in FLAGS]
        outputs = [self._tensor(self.results[stem]) for stem in OUTPUTS]
        names = [b"unified_input"] + [f"{stem}_flag".encode() for stem in FLAGS]
        results = [f"{stem}_output".encode() for stem in OUTPUTS]
        try:
            self._call(RUN, self.session, None, (ctypes.c_char_p * 7)(*names), (ctypes.c_void_p * 7)(*inputs),
                       ctypes.c_size_t(7), (ctypes.c_char_p * 6)(*results), ctypes.c_size_t(6),
                       (ctypes.c_void_p * 6)(*outputs))
        finally:
            for value in inputs + outputs:
                self._release(RELEASE_VALUE, ctypes.c_void_p(value))
        return self.results

    def close(self):
        """Frees the session; writes the profile if one was asked for."""
        self._release(RELEASE_SESSION, self.session)
        self._release(RELEASE_MEMORY_INFO, self.memory)
        self._release(RELEASE_ENV, self.environment)

    def _tensor(self, array):
        value = ctypes.c_void_p()
        element = ELEMENT_BOOL if array.dtype == np.bool_ else ELEMENT_FLOAT
        self._call(CREATE_TENSOR, self.memory, ctypes.c_void_p(array.ctypes.data), ctypes.c_size_t(array.nbytes),
                   (ctypes.c_int64 * array.ndim)(*array.shape), ctypes.c_size_t(array.ndim), element,
                   ctypes.byref(value))
        return value.value

    def _call(self, place, *arguments):
        status = _StatusFunction(self.functions[place])(*arguments)
        if status:
            message = _MessageFunction(self.functions[GET_ERROR_MESSAGE])(status)
            raise RuntimeError(f"ONNX Runtime: {message.decode()}")

    def _release(self, place, thing):
        _ReleaseFunction(self.functions[place])(thing)
