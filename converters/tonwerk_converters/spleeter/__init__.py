# SPDX-License-Identifier: MIT
"""Spleeter (Hennequin et al., Journal of Open Source Software 5(50), 2154, 2020): one U-Net per stem, on magnitudes."""
