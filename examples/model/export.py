#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Exports the network of network.py as a model for the library.

usage: export.py MODEL.onnx
"""
import io
import sys
import warnings
from pathlib import Path

import onnx
import torch
from network import BINS, FRAMES, STEMS, example
from onnx import TensorProto, helper

FLAGS = ("vocals", "drum", "bass", "piano", "acoustic_guitar", "electric_guitar")
OPSET = 17


def export(network: torch.nn.Module) -> onnx.ModelProto:
    """The network as an ONNX ModelProto of the library's contract."""
    target = io.BytesIO()
    with torch.no_grad(), warnings.catch_warnings():
        warnings.simplefilter("ignore")  # of constants in the trace: the shapes are constant
        torch.onnx.export(network, torch.randn(1, 4, FRAMES, BINS), target, opset_version=OPSET,
                          input_names=["unified_input"], output_names=[f"{stem}_output" for stem in STEMS])
    model = onnx.load_from_string(target.getvalue())
    # The exporter drops inputs that the network does not use, and the library gives all seven: so they are added here.
    # A network that does use flags takes them as further arguments of forward().
    present = {value.name for value in model.graph.input}
    model.graph.input.extend(helper.make_tensor_value_info(f"{stem}_flag", TensorProto.BOOL, [1])
                             for stem in FLAGS if f"{stem}_flag" not in present)
    onnx.checker.check_model(model, full_check=True)
    return model


def main() -> None:
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    path = Path(sys.argv[1])
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(export(example()).SerializeToString())
    print(f"{path}: {path.stat().st_size:,} bytes")


if __name__ == "__main__":
    main()
