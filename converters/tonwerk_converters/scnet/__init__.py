# SPDX-License-Identifier: MIT
"""SCNet (Tong et al. 2024, arXiv 2401.13276): three bands that are kept the more coarsely the higher they lie, and
LSTMs along bins and frames."""
