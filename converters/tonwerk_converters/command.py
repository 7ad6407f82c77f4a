# SPDX-License-Identifier: MIT
"""What the command needs of a converter. A module of a converter ends in one Command; cli.py lists them all."""

from argparse import ArgumentParser, Namespace
from collections.abc import Callable
from dataclasses import dataclass
from typing import NamedTuple

from onnx import ModelProto

from .passport import Passport


class Converted(NamedTuple):
    """A finished model and what it says of itself."""

    model: ModelProto
    passport: Passport


@dataclass(frozen=True)
class Command:
    """One subcommand. `-o MODEL.onnx` is added by the command itself.

    convert raises ConversionError with a sentence if the input cannot be converted.
    """

    name: str
    summary: str  # one line for the list of subcommands
    example: str  # one command line, shown by --help
    add_arguments: Callable[[ArgumentParser], None]
    convert: Callable[[Namespace], Converted]
