# SPDX-License-Identifier: MIT
"""Training of the default model: data, network, trainer, export and evaluation."""
