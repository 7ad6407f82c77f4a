# SPDX-License-Identifier: MIT
"""The subcommand for checkpoints of SCNet."""

from argparse import ArgumentParser, ArgumentTypeError, Namespace
from pathlib import Path

from .. import contract
from ..command import Command, Converted
from ..errors import ConversionError
from ..passport import Passport, origin
from ..torch_checkpoint import read_weights
from .model import separation
from .sizes import Sizes, read_sizes

STEMS = ("drums", "bass", "other", "vocals")  # the sources of the released networks, in their order
SHARES = (0.175, 0.392)  # of the bins that the low and the middle band have
LARGE_SHARES = (0.225, 0.372)  # of the released large network,
LARGE_CHANNELS = (4, 64, 128, 256)  # which is known by its channels
SOURCE = "SCNet by Weinan Tong et al., https://github.com/starrytong/SCNet"
AUTHORS = ("Weinan Tong, Jiaxu Zhu, Jun Chen, Shiyin Kang, Tao Jiang, Yang Li, Zhiyong Wu, Helen Meng: SCNet: Sparse "
           "Compression Network for Music Source Separation. ICASSP 2024, arXiv 2401.13276")
LICENSE = "MIT for the authors' releases; for other checkpoints, ask whoever trained them"


def _shares(text: str) -> tuple[float, float]:
    try:
        low, middle = (float(part) for part in text.split(","))
    except ValueError as failure:
        raise ArgumentTypeError("two numbers with a comma between them") from failure
    if not (low >= 0.01 and middle >= 0.01 and low + middle <= 0.99):
        raise ArgumentTypeError("each of the three bands needs at least 0.01 of the bins")
    return low, middle


def _rows(text: str) -> int:
    if not text.isdecimal() or not 8 <= int(text) <= contract.FRAMES or int(text) % 2:
        raise ArgumentTypeError(f"an even number from 8 to {contract.FRAMES}, please")
    return int(text)


def _add_arguments(parser: ArgumentParser) -> None:
    parser.add_argument("checkpoint", type=Path, metavar="CHECKPOINT", help="a file that PyTorch wrote: a state dict, "
                        "or one under state, state_dict or best_state")
    parser.add_argument("--stems", metavar="NAME,NAME", help="what the network gives, in its order; default for four: "
                        + ",".join(STEMS))
    parser.add_argument("--bands", type=_shares, metavar="LOW,MIDDLE", help="the parts of the bins that the low and "
                        f"the middle band have; no checkpoint says it. Default: {','.join(map(str, SHARES))}, and "
                        f"{','.join(map(str, LARGE_SHARES))} for the large network")
    parser.add_argument("--rows", type=_rows, default=contract.FRAMES, metavar="N", help="compute the newest rows "
                        "only, for streaming with a small step: an even number")


def _convert(options: Namespace) -> Converted:
    weights = read_weights(options.checkpoint)
    sizes = read_sizes(weights)
    names = _names(options.stems, sizes)
    stems = [contract.stem_of(name) for name in names]
    shares = options.bands or (LARGE_SHARES if sizes.channels == LARGE_CHANNELS else SHARES)
    return Converted(separation(weights, sizes, stems, shares, options.rows), Passport(
        name=f"SCNet, {sum(values.size for values in weights.values()) / 1e6:.1f} M weights", license=LICENSE,
        source=SOURCE, authors=AUTHORS, stems=[stem for stem in contract.STEMS if stem in stems],
        converted_from=[origin(options.checkpoint)], rows=options.rows if options.rows < contract.FRAMES else None))


def _names(given: str | None, sizes: Sizes) -> list[str]:
    if given is None and sizes.sources != len(STEMS):
        raise ConversionError(f"The network gives {sizes.sources} sources: name them with --stems.")
    names = list(STEMS) if given is None else [name.strip() for name in given.split(",")]
    known = [contract.stem_of(name) for name in names if contract.stem_of(name)]
    if len(names) != sizes.sources or not known or len(known) != len(set(known)):
        raise ConversionError(f"--stems must name {sizes.sources} different sources, one at least of the library's "
                              f"stems: {', '.join(contract.STEMS)}.")
    return names


COMMAND = Command(
    name="scnet",
    summary="Converts a checkpoint of SCNet or SCNet-large, or of any other size of it.",
    example="scnet SCNet.th -o scnet.onnx",
    add_arguments=_add_arguments,
    convert=_convert)
