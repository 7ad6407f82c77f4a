#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes a virtual environment of Debian's Python in .deps/python/NAME, with the packages that
# tools/requirements-NAME.txt pins by version and hash. Their wheels stay in its folder wheels, for tests that make
# environments of their own. A second run finds it there and is offline.
#
#   tools/python-env.sh NAME
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
    echo "python-env.sh: $*" >&2
    exit 1
}

[ $# -eq 1 ] || { sed -n '3,7s/^# \{0,1\}//p' "$0" >&2; exit 2; }
requirements=tools/requirements-$1.txt
home=.deps/python/$1
[ -r "$requirements" ] || fail "there is no $requirements."
! cmp -s "$requirements" "$home/.requirements" || exit 0

echo "Making the Python environment $home"
rm -rf "$home" # a half-made one, or one of other versions
mkdir -p "${home%/*}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
{
    /usr/bin/python3 -m venv "$home" &&
        "$home/bin/pip" download --disable-pip-version-check --no-deps --only-binary :all: --require-hashes \
            -r "$requirements" -d "$home/wheels" &&
        "$home/bin/pip" install --disable-pip-version-check --no-deps --no-index --find-links "$home/wheels" \
            --require-hashes -r "$requirements"
} >"$log" 2>&1 </dev/null || { cat "$log" >&2; fail "$home cannot be made (the reason stands above)."; }
cp "$requirements" "$home/.requirements"
