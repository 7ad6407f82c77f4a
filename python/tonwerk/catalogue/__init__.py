# SPDX-License-Identifier: MIT
"""Catalogues of songs, on one machine, on a Ray cluster, or as an array job.

A manifest goes in, a folder per song and a ledger come out, both through fsspec. The command is `tonwerk-catalogue`;
docs/catalogue.md tells what is guaranteed.
"""

from tonwerk.catalogue.failures import PassingError, PermanentError
from tonwerk.catalogue.manifest import Song, read_manifest, shard_of
from tonwerk.catalogue.options import Options

__all__ = ["Options", "PassingError", "PermanentError", "Song", "read_manifest", "shard_of"]
