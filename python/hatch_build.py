# SPDX-License-Identifier: MIT
"""Puts the native files of a platform into a wheel, if the environment names them.

TONWERK_WHEEL_FILES: a folder that becomes tonwerk/native; TONWERK_WHEEL_PLATFORM: the platform's tag. Without them the
wheel is pure Python and uses the library of the system.
"""

import os
from typing import Any

from hatchling.builders.hooks.plugin.interface import BuildHookInterface


class NativeFiles(BuildHookInterface[Any]):
    """Called by hatchling."""

    def initialize(self, version: str, build_data: dict[str, Any]) -> None:
        folder = os.environ.get("TONWERK_WHEEL_FILES")
        if self.target_name != "wheel" or not folder:
            return
        build_data["pure_python"] = False
        build_data["tag"] = f"py3-none-{os.environ['TONWERK_WHEEL_PLATFORM']}"
        build_data["force_include"][folder] = "tonwerk/native"
