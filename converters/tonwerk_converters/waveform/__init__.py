# SPDX-License-Identifier: MIT
"""Any network from sound to sounds: the transforms go before and behind it."""
