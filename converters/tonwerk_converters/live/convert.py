# SPDX-License-Identifier: MIT
"""The subcommand for live models."""

from argparse import ArgumentParser, Namespace
from pathlib import Path

from .. import contract
from ..command import Command, Converted
from ..errors import ConversionError
from ..files import read_model
from ..passport import Passport, origin
from ..surgery import at_our_opset
from .cut import cut


def _add_arguments(parser: ArgumentParser) -> None:
    parser.add_argument("model", type=Path, metavar="MODEL.onnx", help="a model of the library")
    parser.add_argument("--rows", type=int, default=64, metavar="N",
                        help="how many of the newest rows to compute; default: %(default)s")
    parser.add_argument("--name", help="the name in the new model's passport; default: the name of before")


def _convert(options: Namespace) -> Converted:
    if not 1 <= options.rows < contract.FRAMES:
        raise ConversionError(f"--rows must be from 1 to {contract.FRAMES - 1}.")
    model = at_our_opset(read_model(options.model), str(options.model))
    contract.require(model, str(options.model))
    passport = Passport.read(model) or Passport(options.model.name, "unknown", "unknown", "unknown",
                                                list(contract.STEMS), [origin(options.model)])
    if passport.rows:
        raise ConversionError(f"{options.model} already computes its newest {passport.rows} rows only.")
    passport.rows = options.rows
    passport.name = options.name or passport.name
    return Converted(cut(model, options.rows), passport)


COMMAND = Command(
    name="live",
    summary="Makes a model compute its newest rows only, for streaming with a small step.",
    example="live spleeter2.onnx --rows 64 -o live.onnx",
    add_arguments=_add_arguments,
    convert=_convert)
