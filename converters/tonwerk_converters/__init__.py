# SPDX-License-Identifier: MIT
"""Converters from public networks to models of the library.

Needs Python 3.11 with NumPy and ONNX 1.12, which Debian 12 has; no framework that networks are trained with.
"""
