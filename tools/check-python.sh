#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks the Python with ruff and mypy, as pyproject.toml sets them. Scripts of different folders may bear one name, so
# mypy sees them folder by folder.
#
#   tools/check-python.sh PYTHON      (whose packages the scripts use)
set -euo pipefail
cd "$(dirname "$0")/.."
[ $# -eq 1 ] || { sed -n '3,6s/^# \{0,1\}//p' "$0" >&2; exit 2; }

tools=.deps/python/lint/bin
"$tools/ruff" check
while read -r group; do
    # In a test whatever is missing (a match, a pipe) ends it, as it should.
    [[ $group != *tests* ]] || group+=" --disable-error-code union-attr --disable-error-code index"
    # The package is typed for its users, and stands on packages that Debian does not have.
    python=$1
    [[ $group != *python/tonwerk* ]] || group+=" --strict"
    [[ $group != *python/tonwerk* && $group != *tests/wheel* && $group != *tests/catalogue* ]] || python=.deps/python/package/bin/python
    # shellcheck disable=SC2086  # a group is several words
    "$tools/mypy" --no-error-summary --python-executable "$python" $group
done <<GROUPS
converters/tonwerk_converters
training/tonwerk_training training/train training/export training/evaluate training/make-data training/adapt training/measure-geometries
tools tests/c tests/checks tests/docs tests/embedding tests/examples tests/lv2 tests/models tests/package tests/python
tests/apps tests/models
tests/training
python/release.py python/hatch_build.py python/tonwerk
tests/wheel tests/docs
tests/catalogue
bench/peers tests/python
examples/model examples/python
converters/tonwerk_converters
GROUPS
