#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A small LV2 host that asks the plug-in for its state, gives it another one, and opens it at a wrong sample rate.

usage: check_state.py PLUGIN.so MODELS
"""

import ctypes
import os
import sys
from pathlib import Path

MODEL = "urn:tonwerk:stems#model"
LV2 = "http://lv2plug.in/ns/ext/"
LATENCY_PORT = 25

Text = ctypes.c_char_p
Pointer = ctypes.c_void_p


class Feature(ctypes.Structure):
    _fields_ = [("uri", Text), ("data", Pointer)]


class Map(ctypes.Structure):
    Function = ctypes.CFUNCTYPE(ctypes.c_uint32, Pointer, Text)
    _fields_ = [("handle", Pointer), ("map", Function)]


class MapPath(ctypes.Structure):
    Function = ctypes.CFUNCTYPE(Pointer, Pointer, Text)
    _fields_ = [("handle", Pointer), ("abstract_path", Function), ("absolute_path", Function)]


class FreePath(ctypes.Structure):
    Function = ctypes.CFUNCTYPE(None, Pointer, Pointer)
    _fields_ = [("handle", Pointer), ("free_path", Function)]


class Descriptor(ctypes.Structure):
    _fields_ = [
        ("uri", Text),
        ("instantiate", ctypes.CFUNCTYPE(Pointer, Pointer, ctypes.c_double, Text, Pointer)),
        ("connect_port", ctypes.CFUNCTYPE(None, Pointer, ctypes.c_uint32, Pointer)),
        ("activate", ctypes.CFUNCTYPE(None, Pointer)),
        ("run", ctypes.CFUNCTYPE(None, Pointer, ctypes.c_uint32)),
        ("deactivate", Pointer),
        ("cleanup", ctypes.CFUNCTYPE(None, Pointer)),
        ("extension_data", ctypes.CFUNCTYPE(Pointer, Text)),
    ]


class State(ctypes.Structure):
    Store = ctypes.CFUNCTYPE(ctypes.c_int, Pointer, ctypes.c_uint32, Text, ctypes.c_size_t, ctypes.c_uint32,
                             ctypes.c_uint32)
    Retrieve = ctypes.CFUNCTYPE(Pointer, Pointer, ctypes.c_uint32, Pointer, Pointer, Pointer)
    _fields_ = [
        ("save", ctypes.CFUNCTYPE(ctypes.c_int, Pointer, Store, Pointer, ctypes.c_uint32, Pointer)),
        ("restore", ctypes.CFUNCTYPE(ctypes.c_int, Pointer, Retrieve, Pointer, ctypes.c_uint32, Pointer)),
    ]


def require(condition: object, *facts: object) -> None:
    if not condition:
        sys.exit(" ".join(map(str, facts)))


class Host:
    """Maps URIs to numbers, and paths to themselves below the folder of a session."""

    SESSION = b"session:"

    def __init__(self) -> None:
        self.uris: list[bytes] = []
        self.texts: list[ctypes.Array[ctypes.c_char]] = []
        self.map = Map(None, Map.Function(self.number))
        self.paths = MapPath(None, MapPath.Function(lambda _, path: self.text(self.SESSION + path)),
                             MapPath.Function(lambda _, path: self.text(path.removeprefix(self.SESSION))))
        self.free = FreePath(None, FreePath.Function(lambda _, path: None))
        features = [(f"{LV2}urid#map", self.map), (f"{LV2}state#mapPath", self.paths),
                    (f"{LV2}state#freePath", self.free)]
        self.records = [Feature(uri.encode(), ctypes.addressof(data)) for uri, data in features]
        self.features = (Pointer * 4)(*map(ctypes.addressof, self.records), None)

    def number(self, _: object, uri: bytes) -> int:
        if uri not in self.uris:
            self.uris.append(uri)
        return self.uris.index(uri) + 1

    def text(self, content: bytes) -> int:
        self.texts.append(ctypes.create_string_buffer(content))
        return ctypes.addressof(self.texts[-1])

    def save(self, state: State, instance: int) -> dict[str, str]:
        kept = {}

        def store(_: object, key: int, value: bytes, size: int, kind: int, __: int) -> int:
            require(self.uris[kind - 1].endswith(b"atom#Path") and size == len(value) + 1, "stored", kind, size)
            kept[self.uris[key - 1].decode()] = value.decode()
            return 0

        status = state.save(instance, State.Store(store), None, 0, self.features)
        require(status == 0, "save returns", status)
        return kept

    def restore(self, state: State, instance: int, kept: dict[str, str]) -> int:
        def retrieve(_: object, key: int, *__: object) -> int | None:
            uri = self.uris[key - 1].decode()
            return self.text(kept[uri].encode()) if uri in kept else None

        status: int = state.restore(instance, State.Retrieve(retrieve), None, 0, self.features)
        return status


def main() -> None:
    plugin, models = Path(sys.argv[1]), Path(sys.argv[2])
    gains, neighbours = (str(models / f"{name}.onnx") for name in ("gains", "neighbours"))
    os.environ["TONWERK_MODEL"] = gains
    library = ctypes.CDLL(str(plugin))
    library.lv2_descriptor.restype = ctypes.POINTER(Descriptor)
    descriptor = library.lv2_descriptor(0).contents
    require(not library.lv2_descriptor(1), "There is a second plug-in.")
    host = Host()
    bundle = f"{plugin.parent}/".encode()
    require(descriptor.instantiate(None, 48000.0, bundle, host.features) is None, "It takes a wrong sample rate.")
    instance = descriptor.instantiate(None, 44100.0, bundle, host.features)
    require(instance, "It cannot be instantiated.")
    state = State.from_address(descriptor.extension_data(f"{LV2}state#interface".encode()))

    latency = ctypes.c_float(0)
    descriptor.connect_port(instance, LATENCY_PORT, ctypes.addressof(latency))
    descriptor.activate(instance)
    descriptor.run(instance, 0)
    require(latency.value > 10000, "It reports a latency of", latency.value)

    require(host.save(state, instance) == {MODEL: f"session:{gains}"}, "saved:", host.save(state, instance))
    require(host.restore(state, instance, {MODEL: f"session:{neighbours}"}) == 0, "It refuses another model.")
    require(host.save(state, instance) == {MODEL: f"session:{neighbours}"}, "The other model is not kept.")
    require(host.restore(state, instance, {MODEL: "session:/nowhere.onnx"}) != 0, "It takes a missing model.")
    require(host.restore(state, instance, {}) == 0, "It wants what an older version did not keep.")
    require(host.save(state, instance) == {MODEL: f"session:{neighbours}"}, "The model is lost.")
    descriptor.run(instance, 4096)
    descriptor.cleanup(instance)
    print("State and sample rate are as they should be.")


if __name__ == "__main__":
    main()
