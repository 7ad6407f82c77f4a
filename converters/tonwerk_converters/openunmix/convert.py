# SPDX-License-Identifier: MIT
"""The subcommand for checkpoints of Open-Unmix."""

import re
from argparse import ArgumentParser, Namespace
from pathlib import Path

from .. import contract
from ..command import Command, Converted
from ..errors import ConversionError
from ..passport import Passport, origin
from ..torch_checkpoint import read_weights
from .model import TARGETS, separation
from .network import target_of

ENDINGS = (".pth", ".pt", ".th", ".ckpt", ".chkpnt")  # the earlier ones are taken if there are several of a target
SOURCE = "Open-Unmix, https://github.com/sigsep/open-unmix-pytorch"
AUTHORS = ("Fabian-Robert Stöter, Stefan Uhlich, Antoine Liutkus, Yuki Mitsufuji: Open-Unmix - a reference implementation "
           "for music source separation. Journal of Open Source Software 4(41), 1667, 2019")
LICENSE = "depends on the weights: umxhq MIT, umxl for non-commercial use only"


def _add_arguments(parser: ArgumentParser) -> None:
    parser.add_argument("checkpoints", type=Path, metavar="DIR", help="folder with a checkpoint per target, whose file "
                        f"names begin with {', '.join(TARGETS)}; any of them may be missing")
    parser.add_argument("--level", type=float, metavar="MEAN", help="bring the sound to this mean magnitude before the "
                        "networks see it, so that its level does not matter; default: leave it, as the authors do")
    parser.add_argument("--license", default=LICENSE, help="licence of the weights for the model's passport")


def _convert(options: Namespace) -> Converted:
    if options.level is not None and not 0 < options.level < 1e6:
        raise ConversionError("--level must be a positive number.")
    files = _files(options.checkpoints)
    targets = {name: target_of(read_weights(path), str(path)) for name, path in files.items()}
    stems = {contract.stem_of(name) for name in targets}
    if stems == {None}:
        raise ConversionError(f"{options.checkpoints} has only the target other, which is no stem of the library.")
    return Converted(separation(targets, options.level), Passport(
        name=f"Open-Unmix, {', '.join(targets)}", license=options.license, source=SOURCE, authors=AUTHORS,
        stems=[stem for stem in contract.STEMS if stem in stems],
        converted_from=[origin(path) for path in files.values()]))


def _files(folder: Path) -> dict[str, Path]:
    """The checkpoint of each target that a folder has."""
    if not folder.is_dir():
        raise ConversionError(f"{folder} is no folder.")
    found = {}
    for target in TARGETS:
        own = [path for path in sorted(folder.iterdir())
               if path.suffix in ENDINGS and re.match(rf"{target}(?![a-z])", path.name)]
        first = [path for path in own if path.suffix == min((entry.suffix for entry in own), key=ENDINGS.index)]
        if len(first) > 1:
            raise ConversionError(f"{folder} has several checkpoints of the target {target}: {first[0].name} and "
                                  f"{first[1].name}.")
        if first:
            found[target] = first[0]
    if not found:
        raise ConversionError(f"{folder} has no checkpoint whose name begins with {', '.join(TARGETS[:-1])} or "
                              f"{TARGETS[-1]} and ends in {', '.join(ENDINGS)}.")
    return found


COMMAND = Command(
    name="open-unmix",
    summary="Converts checkpoints of Open-Unmix, one per target.",
    example="open-unmix umxhq -o umxhq.onnx",
    add_arguments=_add_arguments,
    convert=_convert)
