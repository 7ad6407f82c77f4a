#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs Python with the catalogue's packages and our own, installed as its users have it.
#
#   tests/catalogue/run.sh SOURCES MODELS LIBRARY PROGRAM ARGUMENTS...      (ARGUMENTS are Python's)
set -euo pipefail
sources=$1 models=$2 library=$3 program=$4
shift 4
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
"$sources/.deps/python/package/bin/pip" install -q --disable-pip-version-check --no-deps --no-index \
    --no-build-isolation --target "$home/site" "$sources/python"
cd "$sources/tests/catalogue"
# A Ray of this test alone: no statistics, no token in the user's folder. Paths of sockets must be short.
HOME=$home TMPDIR=$home RAY_TMPDIR=$home RAY_AUTH_MODE=disabled RAY_USAGE_STATS_ENABLED=0 \
    PYTHONPATH=$home/site PYTHONDONTWRITEBYTECODE=1 TONWERK_LIBRARY=$library TONWERK_PROGRAM=$program \
    TONWERK_TEST_MODELS=$models "$sources/.deps/python/catalogue/bin/python" "$@"
