# SPDX-License-Identifier: MIT
"""The subcommand for networks from sound to sounds."""

from argparse import ArgumentParser, Namespace
from pathlib import Path

from .. import contract
from ..command import Command, Converted
from ..errors import ConversionError
from ..files import read_model
from ..passport import Passport, origin
from ..surgery import at_our_opset
from .foreign import waveforms
from .model import rows_of, separation

UNKNOWN = "unknown"


def _add_arguments(parser: ArgumentParser) -> None:
    parser.add_argument("network", type=Path, metavar="NETWORK.onnx", help="a network for 44.1 kHz sound with one "
                        "input [1, 2, length] and one output [1, sources, 2, length], or an output [1, 2, length] for "
                        "each source")
    parser.add_argument("--stems", required=True, metavar="NAME,NAME", help="what the network gives, in its order; "
                        f"names that are not among {', '.join(contract.STEMS)} stay in the residual")
    parser.add_argument("--length", type=int, metavar="SAMPLES", help="for a network that leaves it open")
    parser.add_argument("--normalise", action="store_true", help="give the network sound whose mean over the channels "
                        "has mean 0 and deviation 1, and undo it behind")
    for field, meaning in (("name", "what the network is called"), ("license", "the licence of its weights"),
                           ("source", "where it is published"), ("authors", "whom to cite, with the publication")):
        parser.add_argument(f"--{field}", default=UNKNOWN, metavar="TEXT", help=f"for the passport: {meaning}")


def _convert(options: Namespace) -> Converted:
    network = waveforms(at_our_opset(read_model(options.network), str(options.network)), options.length)
    names = [name.strip() for name in options.stems.split(",")]
    stems = [contract.stem_of(name) for name in names]
    known = [stem for stem in stems if stem]
    if len(names) != network.sources or not known or len(known) != len(set(known)):
        raise ConversionError(f"--stems must name {network.sources} different sources, one at least of the library's "
                              f"stems: {', '.join(contract.STEMS)}.")
    rows = rows_of(network.length)
    return Converted(separation(network, stems, options.normalise), Passport(
        name=options.network.stem if options.name == UNKNOWN else options.name, license=options.license,
        source=options.source, authors=options.authors, stems=[stem for stem in contract.STEMS if stem in stems],
        converted_from=[origin(options.network)], rows=rows if rows < contract.FRAMES else None))


COMMAND = Command(
    name="waveform",
    summary="Puts the library's transforms around any ONNX network from sound to sounds.",
    example="waveform network.onnx --stems drums,bass,other,vocals -o model.onnx",
    add_arguments=_add_arguments,
    convert=_convert)
