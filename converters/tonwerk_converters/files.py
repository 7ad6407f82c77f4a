# SPDX-License-Identifier: MIT
"""Models and checkpoints as files."""

import hashlib
import os
from pathlib import Path

import onnx
from google.protobuf.message import DecodeError
from onnx import ModelProto

from .errors import ConversionError

LARGEST_FILE = 2**31 - 1  # a model is one protobuf message, which cannot be larger


def read_whole(path: Path, largest: int = LARGEST_FILE) -> bytes:
    """The bytes of a file.
    Raises ConversionError if it cannot be read or is larger than what is allowed."""
    try:
        if path.stat().st_size > largest:
            raise ConversionError(f"{path} has more than {largest:,} bytes.")
        return path.read_bytes()
    except OSError as failure:
        raise ConversionError(f"{path} cannot be read: {failure.strerror}.") from failure


def sha256_of(path: Path) -> str:
    """The SHA-256 of a file, in hexadecimal."""
    digest = hashlib.sha256()
    try:
        with path.open("rb") as file:
            while block := file.read(1 << 20):
                digest.update(block)
    except OSError as failure:
        raise ConversionError(f"{path} cannot be read: {failure.strerror}.") from failure
    return digest.hexdigest()


def read_model(path: Path) -> ModelProto:
    """An ONNX model, checked. Weights in other files are refused.
    Raises ConversionError if the file is none."""
    data = read_whole(path)
    try:
        model = onnx.load_from_string(data)
        if any(tensor.external_data for tensor in model.graph.initializer):
            raise ConversionError(f"{path} has weights in other files; the library takes one file.")
        onnx.checker.check_model(model, full_check=True)
    except (DecodeError, onnx.checker.ValidationError, onnx.shape_inference.InferenceError, RuntimeError) as failure:
        reason = str(failure).strip().splitlines()
        raise ConversionError(f"{path} is no valid ONNX model" + (f": {reason[0]}" if reason else ".")) from failure
    return model


def write_model(path: Path, model: ModelProto) -> int:
    """Writes a model; a reader sees the former file or the whole new one. Returns the number of bytes."""
    try:
        data = model.SerializeToString(deterministic=True)
    except ValueError as failure:
        raise ConversionError("The model is larger than the 2 GB that an ONNX file can have.") from failure
    partial = path.with_name(f".{path.name}.{os.getpid()}.part")
    try:
        path.parent.mkdir(parents=True, exist_ok=True)
        partial.write_bytes(data)
        partial.replace(path)
    except OSError as failure:
        partial.unlink(missing_ok=True)
        raise ConversionError(f"{path} cannot be written: {failure.strerror}.") from failure
    return len(data)
