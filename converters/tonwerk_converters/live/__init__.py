# SPDX-License-Identifier: MIT
"""Models that compute the newest rows of their window only, for hosts that stream with a small step."""
