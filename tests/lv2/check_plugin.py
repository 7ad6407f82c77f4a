#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks the LV2 bundle: its description by LV2's validator, and its sound by a host that runs a song through it.

usage: check_plugin.py [--song SONG.wav] BUNDLES LIBRARY MODEL

BUNDLES is the folder that holds tonwerk.lv2, LIBRARY is libtonwerk_c.so. The host is lv2apply of Debian's lilv-utils.
Without SONG (44.1 kHz, stereo, 32-bit floats), noise is played.
"""

import argparse
import ctypes
import os
import re
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

import numpy as np
from compare_geometries import Library, Options, pointer_to

URI = "urn:tonwerk:stems"
STEMS = ("vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass")
RESIDUAL, MIX = 6, 7


def require(condition: object, *facts: object) -> None:
    if not condition:
        sys.exit(" ".join(map(str, facts)))


def run(*command: object, **environment: str) -> str:
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True,
                          env={**os.environ, **environment})
    require(done.returncode == 0, *command, "fails:", done.stdout, done.stderr)
    return done.stdout + done.stderr


def write_wav(path: Path, samples: np.ndarray) -> None:
    """32-bit floats, a row for each channel."""
    data = samples.T.astype("<f4").tobytes()
    channels = samples.shape[0]
    form = struct.pack("<HHIIHH", 3, channels, 44100, 44100 * 4 * channels, 4 * channels, 32)
    path.write_bytes(b"RIFF" + struct.pack("<I", 36 + len(data)) + b"WAVEfmt " + struct.pack("<I", 16) + form +
                     b"data" + struct.pack("<I", len(data)) + data)


def read_wav(path: Path) -> np.ndarray:
    content = path.read_bytes()
    at, channels = 12, 0
    while at < len(content):
        name, size = content[at:at + 4], struct.unpack("<I", content[at + 4:at + 8])[0]
        if name == b"fmt ":
            channels, bits = struct.unpack("<H", content[at + 10:at + 12])[0], struct.unpack(
                "<H", content[at + 22:at + 24])[0]
            require(bits == 32, path, "has samples of", bits, "bits")
        if name == b"data":
            return np.frombuffer(content[at + 8:at + 8 + size], "<f4").reshape(-1, channels).T
        at += 8 + size + size % 2
    sys.exit(f"{path} has no samples.")


class LiveOptions(ctypes.Structure):
    """tonwerk_live_options"""

    _fields_ = [(name, ctypes.c_uint32) for name in ("size", "flags", "block", "run_frames")] + [
        ("stream", ctypes.c_void_p)]


def streamed(library: Library, context: ctypes.c_void_p, song: np.ndarray) -> np.ndarray:
    """What the C interface's stream gives in the plug-in's preset: a row for each channel of each stem."""
    options = Options(ctypes.sizeof(Options), 0x3F, 0, 0, 0)
    library.call("preset", b"live", ctypes.byref(options))
    stream = ctypes.c_void_p()
    library.call("stream_open", context, ctypes.byref(options), ctypes.byref(stream))
    left, right = (np.ascontiguousarray(channel, dtype=np.float32) for channel in song)
    library.call("stream_push_planar", stream, pointer_to(left), pointer_to(right), ctypes.c_size_t(left.size))
    rows = np.zeros((16, left.size), np.float32)
    targets = (ctypes.c_void_p * 16)(*(row.ctypes.data for row in rows))
    count = ctypes.c_size_t()
    library.call("stream_read_planar", stream, targets, ctypes.c_size_t(left.size), ctypes.byref(count))
    library.functions.tonwerk_stream_destroy(stream)
    return rows


def latency_of(library: Library, context: ctypes.c_void_p) -> int:
    live = ctypes.c_void_p()
    options = LiveOptions(ctypes.sizeof(LiveOptions), 0, 0, 0, None)
    library.call("live_open", context, ctypes.byref(options), ctypes.byref(live))
    library.functions.tonwerk_live_latency.restype = ctypes.c_uint64
    latency = library.functions.tonwerk_live_latency(live)
    library.functions.tonwerk_live_destroy(live)
    return latency


def check_description(bundle: Path, bundles: Path) -> None:
    verdict = run("lv2_validate", bundle / "manifest.ttl", bundle / "tonwerk.ttl")
    require("Found 0 errors" in verdict, verdict)
    ports = run("lv2info", URI, LV2_PATH=str(bundles))
    require(len(re.findall(r"^\s+Port \d+:", ports, re.MULTILINE)) == 27, "not 27 ports:", ports)
    require(re.search(r"Has latency:\s+yes", ports), "lv2info sees no latency:", ports)


def applied(bundles: Path, model: Path, folder: Path, *controls: str) -> np.ndarray:
    """What lv2apply makes of the folder's song."""
    arguments = [part for control in controls for part in ("-c", *control.split("="))]
    run("lv2apply", "-i", folder / "song.wav", "-o", folder / "stems.wav", *arguments, URI,
        LV2_PATH=str(bundles), TONWERK_MODEL=str(model))
    return read_wav(folder / "stems.wav")


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("--song", type=Path)
    parser.add_argument("paths", type=Path, nargs=3)
    arguments = parser.parse_args()
    bundles, library, model = arguments.paths
    check_description(bundles / "tonwerk.lv2", bundles)

    functions = Library(library)
    context = ctypes.c_void_p()
    content = model.read_bytes()
    functions.call("context_open", content, ctypes.c_size_t(len(content)), None, ctypes.byref(context))
    latency = latency_of(functions, context)
    song = read_wav(arguments.song) if arguments.song else np.random.default_rng(1).uniform(-0.5, 0.5, (2, 70_001))
    song = np.hstack([song, np.zeros((2, latency))]).astype(np.float32)
    expected = streamed(functions, context, song)
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        write_wav(folder / "song.wav", song)
        stems = applied(bundles, model, folder, "offline=1")
        require(stems.shape == expected.shape, "the host gives", stems.shape)
        require(not stems[:, :latency].any(), "There is sound before the latency has passed.")
        difference = np.abs(stems[:, latency:] - expected[:, :-latency]).max()
        require(difference == 0, "The stems differ from those of a stream by", difference)
        require(np.abs(stems[0]).max() > 0.01, "The vocals are silent.")

        switched = applied(bundles, model, folder, "offline=1", "drum_on=0")
        begin = latency + 1000  # behind the fade
        require(not switched[2:4, begin:].any(), "A stem that is switched off sounds.")
        both = expected[12:14] + expected[2:4]
        difference = np.abs(switched[12:14, begin:] - both[:, begin - latency:-latency]).max()
        require(difference < 1e-6, "The residual lacks the stem that is switched off:", difference)
        require(np.array_equal(switched[8:12, begin:], stems[8:12, begin:]), "The other stems change.")
    print(f"{song.shape[1]} frames equal the stream's, {latency} frames later.")


if __name__ == "__main__":
    main()
