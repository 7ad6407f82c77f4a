# SPDX-License-Identifier: MIT
"""Training of the default model: data, network, trainer, export and evaluation."""

import sys
from pathlib import Path

# What the library's interface is, all scripts have from one place.
sys.path.append(str(Path(__file__).resolve().parents[2] / "tools"))
