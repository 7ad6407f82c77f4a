# SPDX-License-Identifier: MIT
"""The network that goes before ours: a public one for vocals, frozen, of which only a model file is needed."""

from pathlib import Path

import numpy as np

from .runtime import SHAPE, Runtime


class FirstStage:
    """What a model of the library's interface takes out of mixtures as vocals; ours hears the rest."""

    def __init__(self, model: Path) -> None:
        self._runtime = Runtime(model.read_bytes())

    def __call__(self, mixture: np.ndarray) -> np.ndarray:
        """Vocals, complex64, of spectra [2, 256, 2048]."""
        planes = np.stack([mixture.real, mixture.imag], axis=1).reshape(SHAPE)
        vocals = self._runtime.run(planes)["vocals"].reshape(2, 2, *SHAPE[2:])
        return (vocals[:, 0] + 1j * vocals[:, 1]).astype(np.complex64)
