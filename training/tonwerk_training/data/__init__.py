# SPDX-License-Identifier: MIT
"""What all rooms share: the transform and its bands, chunks on disk, WAV files, multitracks."""
