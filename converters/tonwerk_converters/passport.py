# SPDX-License-Identifier: MIT
"""A model's passport: who made the network and under which licence, kept in the model file's own metadata.

Every entry is a string under the name KEY_PREFIX + field. `check-model`, receipts and report pages show them.
"""

from collections.abc import Sequence
from dataclasses import dataclass, field, fields
from pathlib import Path

from onnx import ModelProto, helper

from .contract import SAMPLE_RATE, STEMS
from .files import sha256_of

KEY_PREFIX = "tonwerk."


@dataclass
class Passport:
    """What a model says of itself. Lists are stored with semicolons between entries."""

    name: str  # of the network, for people
    license: str  # of the weights, as exactly as it is known
    source: str  # where the network is published
    authors: str  # whom to cite, with the publication
    stems: list[str]  # the library's stems that the network really gives; the others are silent
    converted_from: list[str] = field(default_factory=list)  # "FILE sha256:HASH"
    sample_rate: int = SAMPLE_RATE
    rows: int | None = None  # the newest rows that are computed, if not all
    training_data: str = ""
    notes: str = ""  # what else a user must know

    def write(self, model: ModelProto) -> None:
        """Puts the passport into a model, in place of the one that it may have."""
        kept = {item.key: item.value for item in model.metadata_props if not item.key.startswith(KEY_PREFIX)}
        own = {KEY_PREFIX + entry.name: _as_text(getattr(self, entry.name)) for entry in fields(self)}
        helper.set_model_props(model, {**kept, **{key: value for key, value in own.items() if value}})

    @staticmethod
    def read(model: ModelProto) -> "Passport | None":
        """A model's passport, or None if it has none."""
        found = {item.key.removeprefix(KEY_PREFIX): item.value for item in model.metadata_props
                 if item.key.startswith(KEY_PREFIX)}
        if "name" not in found or "stems" not in found:
            return None
        return Passport(name=found["name"], license=found.get("license", "unknown"),
                        source=found.get("source", "unknown"), authors=found.get("authors", "unknown"),
                        stems=[stem for stem in _as_list(found["stems"]) if stem in STEMS],
                        converted_from=_as_list(found.get("converted_from", "")),
                        sample_rate=_as_number(found.get("sample_rate")) or SAMPLE_RATE,
                        rows=_as_number(found.get("rows")), training_data=found.get("training_data", ""),
                        notes=found.get("notes", ""))


def origin(path: Path) -> str:
    """How a file that something was converted from is named in a passport."""
    return f"{path.name} sha256:{sha256_of(path)}"


def _as_text(value: str | int | Sequence[str] | None) -> str:
    if value is None:
        return ""
    return "; ".join(value) if isinstance(value, list) else str(value)


def _as_list(text: str) -> list[str]:
    return [entry.strip() for entry in text.split(";") if entry.strip()]


def _as_number(text: str | None) -> int | None:
    return int(text) if text and text.isdecimal() else None
