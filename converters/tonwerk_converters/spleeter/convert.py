# SPDX-License-Identifier: MIT
"""The subcommand for checkpoints of Spleeter."""

from argparse import ArgumentParser, Namespace
from pathlib import Path

from .. import contract
from ..command import Command, Converted
from ..errors import ConversionError
from ..passport import Passport, origin
from .checkpoint import read_checkpoint
from .model import Separator, separation
from .unet import Activation, unets_of

# What the released networks of so many U-Nets give, in the order of their variables.
STEMS = {2: ("vocals", "accompaniment"),
         4: ("vocals", "drums", "bass", "other"),
         5: ("vocals", "piano", "drums", "bass", "other")}
SOURCE = "Spleeter by Deezer Research, https://github.com/deezer/spleeter"
AUTHORS = ("Romain Hennequin, Anis Khlif, Felix Voituret, Manuel Moussallam: Spleeter: a fast and efficient music source "
           "separation tool with pre-trained models. Journal of Open Source Software 5(50), 2154, 2020")
LICENSE = "MIT, Copyright (c) 2019-present, Deezer SA"
TRAINING_DATA = "24,097 songs of the authors' own, not published"
LICENSE_NOTE = ("The authors' paper says that source code and pre-trained models are distributed under an MIT license; the "
                "front page of the project's repository says it of the code.")


def _add_arguments(parser: ArgumentParser) -> None:
    parser.add_argument("checkpoint", type=Path, metavar="DIR", help="folder of a checkpoint as TensorFlow wrote it "
                        "(model.index, model.data-00000-of-00001), or its .index file")
    parser.add_argument("--stems", metavar="NAME,NAME", help="what the networks give, in their order; default by their "
                        "number: " + "; ".join(f"{count}: {','.join(names)}" for count, names in STEMS.items()))
    parser.add_argument("--activation", choices=[kind.value for kind in Activation],
                        help="default: leaky for two stems, elu for others")
    parser.add_argument("--output-layer", choices=["sigmoid", "softmax"],
                        help="default: softmax for five stems, sigmoid for others")
    parser.add_argument("--above", choices=["mean", "zero"], default="mean", help="the mask of frequencies above 11 kHz, "
                        "which the networks do not see: the mean of the row's mask (default), or zero")

    parser.add_argument("--origin", metavar="TEXT", help="what the checkpoint came in, for the model's passport")


def _convert(options: Namespace) -> Converted:
    variables, files = read_checkpoint(options.checkpoint)
    unets = unets_of(variables)
    names = _stem_names(options.stems, len(unets))
    stems = [contract.stem_of(name) for name in names]
    if not any(stems):
        raise ConversionError(f"None of the stems {', '.join(names)} is one of the library's: "
                              f"{', '.join(contract.STEMS)}.")
    default = Activation.LEAKY if len(unets) == 2 else Activation.ELU
    activation = Activation(options.activation) if options.activation else default
    softmax = options.output_layer == "softmax" if options.output_layer else len(unets) == 5
    model = separation(Separator(unets, stems, activation, softmax, options.above == "mean"))
    return Converted(model, Passport(
        name=f"Spleeter, {len(unets)} stems", license=LICENSE, source=SOURCE, authors=AUTHORS,
        stems=[stem for stem in contract.STEMS if stem in stems],
        converted_from=[*([options.origin] if options.origin else []), *(origin(file) for file in files)],
        training_data=TRAINING_DATA, notes=LICENSE_NOTE))


def _stem_names(given: str | None, count: int) -> list[str]:
    if given is None and count not in STEMS:
        raise ConversionError(f"The checkpoint holds {count} networks, and no release has so many: name what they give "
                              "with --stems.")
    names = list(STEMS[count]) if given is None else [name.strip() for name in given.split(",")]
    known = [contract.stem_of(name) for name in names if contract.stem_of(name)]
    if len(names) != count or len(known) != len(set(known)):
        raise ConversionError(f"--stems must name {count} different stems, one for each network of the checkpoint.")
    return names


COMMAND = Command(
    name="spleeter",
    summary="Converts a checkpoint of Spleeter with any number of stems.",
    example="spleeter pretrained_models/5stems -o spleeter5.onnx",
    add_arguments=_add_arguments,
    convert=_convert)
