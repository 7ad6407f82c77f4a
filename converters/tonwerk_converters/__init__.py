# SPDX-License-Identifier: MIT
"""Converters from public networks to models of the library.

Needs Python 3.11 with NumPy and ONNX 1.12, which Debian 12 has; no framework that networks are trained with.
"""

import sys
from pathlib import Path

# What the library's interface is, all scripts have from one place.
sys.path.append(str(Path(__file__).resolve().parents[2] / "tools"))
