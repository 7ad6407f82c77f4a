# SPDX-License-Identifier: MIT
"""Two kinds of failures: those that another try may mend, and those that it cannot."""

import errno

from tonwerk import errors


class PermanentError(Exception):
    """The song itself, or what was asked for, is the reason: it is recorded, and not tried again."""


class PassingError(Exception):
    """The machine, the network or the store is the reason: the song is tried again."""


# What the system says of a path that is wrong, now and later.
_PERMANENT_ERRNO = {errno.ENOENT, errno.EISDIR, errno.ENOTDIR, errno.ENAMETOOLONG}


def classified(song_id: str, failure: Exception) -> Exception:
    """The failure as one of the two kinds, with the song's id in its sentence."""
    if isinstance(failure, PermanentError | PassingError):
        return failure
    text = f"{song_id}: {failure or type(failure).__name__}"
    if isinstance(failure, OSError):
        permanent = isinstance(failure, FileNotFoundError) or failure.errno in _PERMANENT_ERRNO
    else:
        permanent = isinstance(failure, errors.AudioError | errors.StreamFailedError | ValueError)
    return PermanentError(text) if permanent else PassingError(text)
