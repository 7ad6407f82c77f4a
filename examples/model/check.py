#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that a model keeps the library's contract, first by reading it and then by running it in the library.

usage: check.py LIBRARY MODEL.onnx [--pytorch]

LIBRARY is libtonwerk_c.so. With --pytorch the stems must also be those of the network of network.py, as PyTorch works
them out.
"""
import sys
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import numpy as np
import onnx
from onnx import TensorProto

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "python"))
from separate import STEMS, Library, Stream

SPECTRUM = [1, 4, 256, 2048]
INPUTS = {"unified_input": (TensorProto.FLOAT, SPECTRUM),
          **{f"{stem}_flag": (TensorProto.BOOL, [1]) for stem in STEMS[:6]}}
OUTPUTS = {f"{stem}_output": (TensorProto.FLOAT, SPECTRUM) for stem in STEMS[:6]}

FFT_SIZE, HOP, CHUNK = 4096, 1024, 254976
INSIDE = slice(CHUNK + 100 * HOP, CHUNK + 110 * HOP)  # frames whose neighbours are all of the same run of the model


def complaints(kind: str, values: Any, wanted: dict[str, Any]) -> Iterator[str]:
    """What is wrong with the model's inputs or outputs, as sentences."""
    found = {value.name: (value.type.tensor_type.elem_type,
                          [size.dim_value for size in value.type.tensor_type.shape.dim]) for value in values}
    if kind == "input":  # further outputs do no harm
        yield from (f"The input {name} is one too many." for name in found if name not in wanted)
    for name, (element, shape) in wanted.items():
        if name not in found:
            yield f"The {kind} {name} is missing."
        elif found[name] != (element, shape):
            yield (f"The {kind} {name} is {TensorProto.DataType.Name(found[name][0])} {found[name][1]} "
                   f"and should be {TensorProto.DataType.Name(element)} {shape} (0 means: left open).")


def separated(library: Library, model: bytes, sound: np.ndarray) -> np.ndarray:
    with Stream(library, model, STEMS[:6], "normal") as stream:
        stream.push(sound)
        stream.flush()
        return stream.read()


def periodic_noise() -> np.ndarray:
    """Twenty seconds of noise that repeats with every hop, so that every frame of its spectrogram is the same."""
    period = np.random.default_rng(1).uniform(-0.3, 0.3, (HOP, 2))
    spectrum = np.fft.rfft(period, axis=0)
    spectrum[-1] = 0  # half the sample rate, which the library drops
    return np.tile(np.fft.irfft(spectrum, axis=0), (862, 1)).astype(np.float32)


def by_pytorch(sound: np.ndarray) -> np.ndarray:
    """The stems of such noise: [6, HOP, 2], one hop of what repeats with every hop too."""
    import torch
    from network import example
    window = 0.42 - 0.5 * np.cos(np.arange(FFT_SIZE) * 2 * np.pi / FFT_SIZE)
    window += 0.08 * np.cos(np.arange(FFT_SIZE) * 4 * np.pi / FFT_SIZE)
    frame = np.fft.rfft(sound[:FFT_SIZE] * window[:, None], axis=0)[:2048].T  # [channel, bin]
    planes = np.stack([frame.real, frame.imag], axis=1).reshape(1, 4, 1, 2048).repeat(256, axis=2)
    with torch.no_grad():
        spectra = [result.numpy()[0, :, 128] for result in example()(torch.from_numpy(planes.astype(np.float32)))]
    stems = []
    for planes in spectra:
        bins = np.pad(planes[::2] + 1j * planes[1::2], ((0, 0), (0, 1)))
        frame = np.fft.irfft(bins, axis=1).T * window[:, None]
        # Least-squares overlap-add of equal frames, of which four lie on each other, a hop apart.
        stems.append(sum(frame.reshape(4, HOP, 2)) / sum((window ** 2).reshape(4, HOP))[:, None])
    return np.array(stems)


def run_in_library(library: Library, model: bytes, compare: bool) -> Iterator[str]:
    """Runs the model on noise and on silence; returns what is wrong, as sentences."""
    noise = periodic_noise()
    began = time.perf_counter()
    stems = separated(library, model, noise)
    print(f"{len(noise) / 44100:.0f} s of noise took {time.perf_counter() - began:.2f} s")
    if not stems[:6].any():
        yield "All stems are silent: the run of the model failed, and the log says why."
    if not np.isfinite(stems).all():
        yield "There are numbers that are not finite."
    if np.abs(stems[:6].sum(axis=0) + stems[6] - noise).max() > 1e-5:
        yield "The stems and the residual do not add up to the input."
    if separated(library, model, np.zeros((2 * CHUNK, 2)))[:6].any():
        yield "Silence does not give silence."
    if compare:
        expected = np.tile(by_pytorch(noise), (1, (INSIDE.stop - INSIDE.start) // HOP, 1))
        error = np.abs(stems[:6, INSIDE] - expected).max()
        print(f"off from PyTorch by {error:.1e}, where the stems reach {np.abs(expected).max():.2f}")
        if error > 1e-5:
            yield "The stems are not those of the network in PyTorch."


def main() -> None:
    if len(sys.argv) not in (3, 4) or sys.argv[3:] not in ([], ["--pytorch"]):
        sys.exit(__doc__)
    model = Path(sys.argv[2]).read_bytes()
    graph = onnx.load_from_string(model).graph
    wrong = [*complaints("input", graph.input, INPUTS), *complaints("output", graph.output, OUTPUTS)]
    if not wrong:
        wrong = [*run_in_library(Library(Path(sys.argv[1])), model, compare=len(sys.argv) == 4)]
    print("\n".join(wrong) or "The model keeps the contract.")
    sys.exit(bool(wrong))


if __name__ == "__main__":
    main()
