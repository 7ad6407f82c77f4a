# SPDX-License-Identifier: MIT
"""Names of the stems, in the order of the C interface."""

from collections.abc import Iterable

MODEL_STEMS = ("vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass")
RESIDUAL = "residual"
MIX = "mix"
STEMS = (*MODEL_STEMS, RESIDUAL, MIX)


def checked(stems: Iterable[str]) -> tuple[str, ...]:
    """The named stems in the order of STEMS. Raises ValueError for a name that is none, and for no stem at all."""
    wanted = {stems} if isinstance(stems, str) else set(stems)
    unknown = sorted(wanted.difference(STEMS))
    if unknown:
        raise ValueError(f"There is no stem {', '.join(map(repr, unknown))}; there are {', '.join(STEMS)}.")
    if not wanted:
        raise ValueError("At least one stem must be asked for.")
    return tuple(stem for stem in STEMS if stem in wanted)


def asked_of_model(stems: Iterable[str]) -> tuple[str, ...]:
    """The stems that the model must give for those to be complete: residual and mix need all six."""
    wanted = checked(stems)
    return MODEL_STEMS if RESIDUAL in wanted or MIX in wanted else wanted


def bits(stems: Iterable[str]) -> int:
    """The stems of a model as the C interface has them, bit 0 for vocals."""
    return sum(1 << MODEL_STEMS.index(stem) for stem in stems)
