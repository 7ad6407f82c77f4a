# SPDX-License-Identifier: MIT
"""Songs with known stems: composition, instruments, voices, mixing, and the chunks and held-out songs of them."""
