# SPDX-License-Identifier: MIT
"""Two models in one: what the first leaves over of the sound is what the second hears."""

from argparse import ArgumentParser, Namespace
from pathlib import Path

from onnx import ModelProto

from . import contract, spectra
from .command import Command, Converted
from .errors import ConversionError
from .files import read_model
from .passport import Passport, origin
from .surgery import at_our_opset, prune, take_in


def _add_arguments(parser: ArgumentParser) -> None:
    parser.add_argument("first", type=Path, metavar="FIRST.onnx", help="the model whose stems are taken out first")
    parser.add_argument("second", type=Path, metavar="SECOND.onnx",
                        help="the model that works on the rest, and gives the stems that the first lacks")
    parser.add_argument("--first-stems", metavar="STEM,STEM",
                        help="the stems to take from the first; default: those that its passport names")
    parser.add_argument("--second-opinion", type=float, default=0.0, metavar="SHARE",
                        help="let the second model hear the whole sound too, and its estimate of the first's stems count with "
                             "this share, 0 to 0.5: that takes away much of what the first finds where there is nothing; "
                             "default: 0, which saves the run")
    parser.add_argument("--name", help="the name in the new model's passport")


def _convert(options: Namespace) -> Converted:
    first, second = (at_our_opset(read_model(path), str(path)) for path in (options.first, options.second))
    first_passport, second_passport = _passport(first, options.first), _passport(second, options.second)
    if options.first_stems:
        chosen = [name.strip() for name in options.first_stems.split(",")]
    elif Passport.read(first):
        chosen = first_passport.stems
    else:
        raise ConversionError(f"{options.first} has no passport that says which stems it really gives: name them with "
                              "--first-stems.")
    if not chosen or set(chosen) - set(contract.STEMS):
        raise ConversionError(f"The first model's stems must be some of {', '.join(contract.STEMS)}.")
    others = [stem for stem in second_passport.stems if stem not in chosen]
    if not others:
        raise ConversionError(f"{options.second} has no stem that {options.first} lacks.")
    if not 0 <= options.second_opinion <= 0.5:
        raise ConversionError("--second-opinion is a share between 0 and 0.5.")
    unheard = [stem for stem in chosen if stem not in second_passport.stems]
    if options.second_opinion and unheard:
        raise ConversionError(f"{options.second} has no opinion on {', '.join(unheard)}.")
    model = cascade(first, second, chosen, others, options.second_opinion)
    return Converted(model, _joined(first_passport, second_passport, chosen, others, options))


def _passport(model: ModelProto, path: Path) -> Passport:
    """A model's passport, or what can be said of one that has none."""
    contract.require(model, str(path))
    return Passport.read(model) or Passport(path.name, "unknown", "unknown", "unknown", list(contract.STEMS))


def cascade(first: ModelProto, second: ModelProto, chosen: list[str], others: list[str],
            opinion: float = 0.0) -> ModelProto:
    """The model that gives the chosen stems of the first, and others of the second. With an opinion above 0, that share
    of the first's stems is the second's, as a geometric mean of both."""
    graph, spectrum = contract.open_graph()
    flags = {f"{stem}_flag": f"{stem}_flag" for stem in contract.FLAGS}
    sane = spectra.without_nonsense(graph, spectrum)
    own = take_in(graph, first.graph, "first/", {contract.INPUT: sane, **flags})
    stems = {stem: own(f"{stem}_output") for stem in chosen}
    if opinion:
        shared = {tensor.name: f"second/{tensor.name}" for tensor in second.graph.initializer}
        own = take_in(graph, second.graph, "opinion/", {**shared, contract.INPUT: sane, **flags})
        stems = {stem: spectra.geometric_mean(graph, value, own(f"{stem}_output"), opinion)
                 for stem, value in stems.items()}
    taken = graph.add("Sum", *stems.values()) if len(stems) > 1 else next(iter(stems.values()))
    rest = graph.add("Sub", sane, taken)
    own = take_in(graph, second.graph, "second/", {contract.INPUT: rest, **flags})
    stems.update({stem: own(f"{stem}_output") for stem in others})
    contract.close_graph(graph, stems)
    prune(graph)
    return graph.model("cascade", f"{first.graph.name}, then {second.graph.name} on what it leaves over.")


def _joined(first: Passport, second: Passport, chosen: list[str], others: list[str], options: Namespace) -> Passport:
    """One passport out of two. Where they differ, both say which stems they speak of."""

    def both(one: str, other: str) -> str:
        if one == other:
            return one
        parts = [f"{', '.join(stems)}: {text.rstrip('.')}." for stems, text in ((chosen, one), (others, other)) if text]
        return " ".join(parts)

    if first.sample_rate != second.sample_rate:
        raise ConversionError(f"The models work at different sample rates: {first.sample_rate} and "
                              f"{second.sample_rate} Hz.")
    rows = [passport.rows for passport in (first, second) if passport.rows]
    return Passport(
        name=options.name or f"{first.name}, then {second.name}",
        license=both(first.license, second.license), source=both(first.source, second.source),
        authors=both(first.authors, second.authors), stems=[stem for stem in contract.STEMS if stem in (*chosen, *others)],
        converted_from=[entry for passport, path in ((first, options.first), (second, options.second))
                        for entry in passport.converted_from or [origin(path)]],
        sample_rate=first.sample_rate, rows=min(rows) if rows else None,
        training_data=both(first.training_data, second.training_data),
        notes=" ".join(note for note in (first.notes, second.notes) if note))


COMMAND = Command(
    name="cascade",
    summary="Joins two models: the second works on what the first leaves over.",
    example="cascade spleeter2.onnx tonwerk-small.onnx -o both.onnx",
    add_arguments=_add_arguments,
    convert=_convert)
