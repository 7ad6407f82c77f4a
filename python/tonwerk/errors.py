# SPDX-License-Identifier: MIT
"""What can go wrong, one class for each kind that a caller may want to treat by itself.

Wrong arguments are ValueError or TypeError, and memory that runs out is MemoryError, as everywhere in Python.
"""


class TonwerkError(Exception):
    """Base of all errors of this package; its text is a sentence for people."""


class LibraryMissingError(TonwerkError):
    """The native library cannot be found, or is of another interface version."""


class ModelError(TonwerkError):
    """The bytes are no model, or one that does not keep the contract, or the inference runtime cannot be loaded."""


class ProviderError(TonwerkError):
    """The execution provider that was asked for by name cannot be had."""


class StreamEndedError(TonwerkError):
    """A push or flush after a flush. What is available can still be read; `reset` begins anew."""


class StreamFailedError(TonwerkError):
    """The stream broke down, or the model failed during a song. `reset` begins anew."""


class CancelledError(TonwerkError):
    """The stream was cancelled. What is available can still be read; `reset` begins anew."""


class AudioError(TonwerkError):
    """A file is no audio that can be read, or is cut off, or has more than two channels."""
