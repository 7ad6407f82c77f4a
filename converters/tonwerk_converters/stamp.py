# SPDX-License-Identifier: MIT
"""Writes a passport into a model that has none, for networks that no converter here has made."""

from argparse import ArgumentParser, Namespace
from pathlib import Path

from . import contract
from .command import Command, Converted
from .errors import ConversionError
from .files import read_model
from .passport import Passport

TEXTS = {"name": "the network's name", "license": "the licence of its weights, as exactly as you know it",
         "source": "where it is published", "authors": "whom to cite", "training-data": "what it was trained with",
         "notes": "what else its users must know"}


def _add_arguments(parser: ArgumentParser) -> None:
    parser.add_argument("model", type=Path, metavar="MODEL.onnx", help="a model of the library")
    for name, meaning in TEXTS.items():
        parser.add_argument(f"--{name}", metavar="TEXT", help=meaning)
    parser.add_argument("--stems", metavar="STEM,STEM", help="the stems that it really gives; default: as before, or all")


def _convert(options: Namespace) -> Converted:
    model = read_model(options.model)
    contract.require(model, str(options.model))
    passport = Passport.read(model) or Passport(options.model.name, "unknown", "unknown", "unknown",
                                                list(contract.STEMS))
    for name in TEXTS:
        entry = name.replace("-", "_")
        if getattr(options, entry) is not None:
            setattr(passport, entry, getattr(options, entry))
    if options.stems is not None:
        stems = [name.strip() for name in options.stems.split(",")]
        if set(stems) - set(contract.STEMS):
            raise ConversionError(f"--stems takes some of {', '.join(contract.STEMS)}.")
        passport.stems = stems
    return Converted(model, passport)


COMMAND = Command(
    name="passport",
    summary="Writes into a model who made it and under which licence, or changes that.",
    example="passport my.onnx --name 'My network' --license MIT --stems vocals,drum -o my-model.onnx",
    add_arguments=_add_arguments,
    convert=_convert)
