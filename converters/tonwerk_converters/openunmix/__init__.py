# SPDX-License-Identifier: MIT
"""Open-Unmix (Stöter et al., Journal of Open Source Software 4(41), 1667, 2019): a recurrent network per stem."""
