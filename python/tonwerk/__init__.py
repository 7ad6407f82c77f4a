# SPDX-License-Identifier: MIT
"""Separates music into stems, whole or while it streams.

import tonwerk
stems = tonwerk.separate(audio, 44100)             # arrays in, arrays out
tonwerk.separate_file("song.flac", "stems")        # files in, files out, in bounded memory
with tonwerk.Stream(quality="smooth") as stream:   # blocks in, blocks out
...
"""

from importlib.metadata import version

from tonwerk import _library
from tonwerk._stems import MODEL_STEMS, STEMS
from tonwerk.errors import (
    AudioError,
    CancelledError,
    LibraryMissingError,
    ModelError,
    ProviderError,
    StreamEndedError,
    StreamFailedError,
    TonwerkError,
)
from tonwerk.files import FORMATS, separate_file
from tonwerk.live import Live, LiveInfo, default_live_model
from tonwerk.models import Model, default_model
from tonwerk.separation import separate
from tonwerk.streams import Stream, StreamInfo, presets

__version__ = version("tonwerk")


def library_version() -> str:
    """The version of the native library, such as "1.2.3"."""
    return str(_library.library().ask("version").decode())


__all__ = [
    "FORMATS", "MODEL_STEMS", "STEMS", "AudioError", "CancelledError", "LibraryMissingError", "Live", "LiveInfo",
    "Model", "ModelError", "ProviderError", "Stream", "StreamEndedError", "StreamFailedError", "StreamInfo",
    "TonwerkError", "__version__", "default_live_model", "default_model", "library_version", "presets", "separate",
    "separate_file"]
