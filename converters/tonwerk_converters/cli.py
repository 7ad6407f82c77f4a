# SPDX-License-Identifier: MIT
"""The command tonwerk-convert."""

import argparse
import sys
from collections.abc import Sequence
from pathlib import Path

from . import cascade, compact, stamp
from .command import Command
from .errors import ConversionError
from .files import write_model
from .live import convert as live
from .openunmix import convert as openunmix
from .scnet import convert as scnet
from .spleeter import convert as spleeter
from .waveform import convert as waveform

COMMANDS: tuple[Command, ...] = (spleeter.COMMAND, scnet.COMMAND, openunmix.COMMAND, waveform.COMMAND, cascade.COMMAND,
                                 compact.COMMAND, live.COMMAND, stamp.COMMAND)


def parser() -> argparse.ArgumentParser:
    """The command line, with an example in the help of each subcommand."""
    whole = argparse.ArgumentParser(prog="tonwerk-convert", description="Turns networks of other makers into models "
                                    "of the library. Each subcommand has its own --help.")
    subcommands = whole.add_subparsers(metavar="COMMAND", required=True)
    for command in COMMANDS:
        own = subcommands.add_parser(command.name, help=command.summary, description=command.summary,
                                     epilog=f"example:\n  tonwerk-convert {command.example}",
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
        command.add_arguments(own)
        own.add_argument("-o", "--output", type=Path, required=True, metavar="MODEL.onnx", help="the file to write")
        own.set_defaults(command=command)
    return whole


def main(arguments: Sequence[str]) -> int:
    """Runs one subcommand; returns the exit status."""
    options = parser().parse_args(arguments)
    try:
        converted = options.command.convert(options)
        converted.passport.write(converted.model)
        size = write_model(options.output, converted.model)
    except ConversionError as failure:
        print(f"tonwerk-convert: {failure}", file=sys.stderr)
        return 1
    except MemoryError:
        print("tonwerk-convert: There is not enough memory for this.", file=sys.stderr)
        return 1
    stems = ", ".join(converted.passport.stems) or "none"
    print(f"{options.output}: {size:,} bytes, stems {stems}; {converted.passport.license}")
    return 0
