# SPDX-License-Identifier: MIT
"""The one kind of failure that a user sees as a sentence."""


class ConversionError(Exception):
    """What is given cannot be converted; the message is a whole sentence for the user."""
