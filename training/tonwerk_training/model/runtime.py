# SPDX-License-Identifier: MIT
"""Runs a model of the library's interface on the ONNX Runtime that the library ships, through its C interface.

Debian has no Python package of ONNX Runtime, and this is the build that counts anyway.
"""

import ctypes
import re
from functools import cache
from pathlib import Path
from typing import Any

import numpy as np
from stream_contract import FLAGS, INPUT, SHAPE, STEMS

DEPENDENCIES = Path(__file__).resolve().parents[3] / ".deps"
RUNTIME = DEPENDENCIES / "runtime/linux/libonnxruntime_pelagrin.so"
HEADER = DEPENDENCIES / "include/onnxruntime/onnxruntime_c_api.h"

# onnxruntime_c_api.h: ONNXTensorElementDataType, OrtLoggingLevel, OrtDeviceAllocator, OrtMemTypeDefault.
ELEMENT_FLOAT, ELEMENT_BOOL = 1, 9
WARNING = 2
DEVICE_ALLOCATOR, DEFAULT_MEMORY = 0, 0


class _ApiBase(ctypes.Structure):
    _fields_ = [("getApi", ctypes.CFUNCTYPE(ctypes.c_void_p, ctypes.c_uint32)), ("getVersion", ctypes.c_void_p)]


# Prototypes without parameters: ctypes passes on whatever it is given, and every argument here has its exact type.
_StatusFunction = ctypes.CFUNCTYPE(ctypes.c_void_p)
_MessageFunction = ctypes.CFUNCTYPE(ctypes.c_char_p, ctypes.c_void_p)
_ReleaseFunction = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


@cache
def _interface() -> tuple[int, type[ctypes.Structure]]:
    """The version of the C interface that the header describes, and its struct OrtApi: a function pointer per member,
    by the header's names."""
    header = re.sub(r"//.*", "", HEADER.read_text())
    header = re.sub(r"/\*.*?\*/", "", header, flags=re.DOTALL)
    version = re.search(r"#define ORT_API_VERSION (\d+)", header)
    members = re.search(r"^struct OrtApi \{(.*?)^\};", header, re.DOTALL | re.MULTILINE)
    if not version or not members:
        raise RuntimeError(f"{HEADER} is not the header of ONNX Runtime's C interface.")
    found = re.findall(r"ORT_API2_STATUS\((\w+)|ORT_CLASS_RELEASE\((\w+)|\(ORT_API_CALL ?\* ?(\w+)\)", members[1])
    names = [status or pointer or f"Release{released}" for status, released, pointer in found]
    fields = [(name, ctypes.c_void_p) for name in names]
    return int(version[1]), type("OrtApi", (ctypes.Structure,), {"_fields_": fields})


class Runtime:
    """One model, ready to run. Owns what it made in the runtime until close()."""

    def __init__(self, model: bytes, threads: int = 1, library: Path = RUNTIME, profile: Path | None = None) -> None:
        """model: an ONNX file's bytes; profile: where the runtime writes times per operator, if it shall.

        Raises RuntimeError with the runtime's sentence, OSError if the library cannot be loaded.
        """
        version, table = _interface()
        self.library = ctypes.CDLL(str(library))
        self.library.OrtGetApiBase.restype = ctypes.POINTER(_ApiBase)
        address = self.library.OrtGetApiBase().contents.getApi(version)
        if not address:
            raise RuntimeError(f"{library} is older than version {version} of the C interface.")
        self.functions = table.from_address(address)
        self.environment, self.memory, self.session = (ctypes.c_void_p() for _ in range(3))
        self._call("CreateEnv", WARNING, b"training", ctypes.byref(self.environment))
        self._call("CreateCpuMemoryInfo", DEVICE_ALLOCATOR, DEFAULT_MEMORY, ctypes.byref(self.memory))
        options = ctypes.c_void_p()
        self._call("CreateSessionOptions", ctypes.byref(options))
        self._call("SetIntraOpNumThreads", options, threads)
        if profile:
            self._call("EnableProfiling", options, str(profile).encode())
        self.model = bytes(model)
        self._call("CreateSessionFromArray", self.environment, self.model, ctypes.c_size_t(len(self.model)),
                   options, ctypes.byref(self.session))
        self._release("SessionOptions", options)
        self.results = {stem: np.empty(SHAPE, np.float32) for stem in STEMS}

    def run(self, spectrum: np.ndarray) -> dict[str, np.ndarray]:
        """Spectrum float32 of SHAPE to a dictionary of the stems' spectra, which the next run overwrites."""
        spectrum = np.ascontiguousarray(spectrum, dtype=np.float32)
        if spectrum.shape != SHAPE:
            raise ValueError(f"The model takes {SHAPE}, not {spectrum.shape}.")
        flag = np.ones(1, np.bool_)
        inputs = [self._tensor(spectrum)] + [self._tensor(flag) for _ in FLAGS]
        outputs = [self._tensor(self.results[stem]) for stem in STEMS]
        names = [INPUT.encode()] + [f"{stem}_flag".encode() for stem in FLAGS]
        results = [f"{stem}_output".encode() for stem in STEMS]
        try:
            self._call("Run", self.session, None, (ctypes.c_char_p * 7)(*names), (ctypes.c_void_p * 7)(*inputs),
                       ctypes.c_size_t(7), (ctypes.c_char_p * 6)(*results), ctypes.c_size_t(6),
                       (ctypes.c_void_p * 6)(*outputs))
        finally:
            for value in inputs + outputs:
                self._release("Value", ctypes.c_void_p(value))
        return self.results

    def close(self) -> None:
        """Frees the session; writes the profile if one was asked for."""
        self._release("Session", self.session)
        self._release("MemoryInfo", self.memory)
        self._release("Env", self.environment)

    def _tensor(self, array: np.ndarray) -> int | None:
        """The address of an OrtValue over the array's memory."""
        value = ctypes.c_void_p()
        element = ELEMENT_BOOL if array.dtype == np.bool_ else ELEMENT_FLOAT
        self._call("CreateTensorWithDataAsOrtValue", self.memory, ctypes.c_void_p(array.ctypes.data),
                   ctypes.c_size_t(array.nbytes), (ctypes.c_int64 * array.ndim)(*array.shape),
                   ctypes.c_size_t(array.ndim), element, ctypes.byref(value))
        return value.value

    def _call(self, name: str, *arguments: Any) -> None:
        status = _StatusFunction(getattr(self.functions, name))(*arguments)
        if status:
            message = _MessageFunction(self.functions.GetErrorMessage)(status).decode()
            self._release("Status", ctypes.c_void_p(status))
            raise RuntimeError(f"ONNX Runtime: {message}")

    def _release(self, kind: str, thing: ctypes.c_void_p) -> None:
        _ReleaseFunction(getattr(self.functions, f"Release{kind}"))(thing)
