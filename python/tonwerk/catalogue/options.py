# SPDX-License-Identifier: MIT
"""What is made of each song."""

import hashlib
import json
from dataclasses import asdict, dataclass

from tonwerk import _stems
from tonwerk.files import FORMATS
from tonwerk.streams import presets


@dataclass(frozen=True)
class Options:
    """What decides about the content of the results."""

    stems: tuple[str, ...] = ("vocals", "drum", "bass", "residual")
    format: str = "flac24"
    quality: str = "normal"
    longest_seconds: float = 3 * 3600.0
    """Longer songs are refused: this bounds the scratch space. Without effect on the others."""

    def __post_init__(self) -> None:
        object.__setattr__(self, "stems", _stems.checked(self.stems))
        if self.format not in FORMATS:
            raise ValueError(f"There is no format {self.format!r}; there are {', '.join(FORMATS)}.")
        if self.quality not in presets():
            raise ValueError(f"There is no quality {self.quality!r}; there are {', '.join(presets())}.")

    def described(self) -> dict[str, object]:
        """What decides about the samples, for receipts and keys."""
        return {name: list(value) if isinstance(value, tuple) else value for name, value in asdict(self).items()
                if name != "longest_seconds"}

    def key(self, song_sha256: str, model_sha256: str) -> str:
        """The key of a result: SHA-256 of what it follows from."""
        text = json.dumps([song_sha256, model_sha256, self.described()], sort_keys=True)
        return hashlib.sha256(text.encode()).hexdigest()
