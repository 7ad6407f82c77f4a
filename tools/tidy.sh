#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs clang-tidy over the sources that a compilation database lists.
#
#   tools/tidy.sh BUILD_FOLDER JOBS
set -euo pipefail
cd "$(dirname "$0")/.."
[ $# -eq 2 ] || { sed -n '3,5s/^# \{0,1\}//p' "$0" >&2; exit 2; }

# GCC's own warning flags mean nothing to Clang. Its summary of what it left out goes nowhere.
find src apps plugins -name '*.cpp' ! -name '*_win32.cpp' -print0 | sort -z |
    xargs -0 -n 1 -P "$2" clang-tidy -p "$1" --quiet --extra-arg=-Wno-unknown-warning-option 2> >(grep -v 'warnings\? generated\.$' >&2)
