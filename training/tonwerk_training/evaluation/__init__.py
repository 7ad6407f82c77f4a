# SPDX-License-Identifier: MIT
"""Measures a model through the program, as its users meet it."""
