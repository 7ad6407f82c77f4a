# SPDX-License-Identifier: MIT
"""The network, its training on chunks, and the file that the library reads."""
