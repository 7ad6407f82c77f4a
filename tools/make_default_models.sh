#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes tonwerk-standard.onnx and tonwerk-live.onnx: a public network finds the vocals, and our own small network the
# other stems in what is left. What the public network takes for vocals where nobody sings, the small one's opinion
# weakens by 5 dB on the records that we have, at no cost where somebody sings; the live model has no time for that. Nothing
# is done when the models are newer than what they are made of.
#
#   tools/make_default_models.sh PYTHON WEIGHTS SMALL.onnx OUTDIR
#
# WEIGHTS is the folder that tools/fetch-deps.sh leaves. The same input gives the same bytes.
set -euo pipefail
[ $# -eq 4 ] || { sed -n '8,10s/^# \{0,1\}//p' "$0" >&2; exit 2; }
python=$1 weights=$2 small=$3 outdir=$4
converters=$(cd "$(dirname "$0")/../converters" && pwd)

isCurrent() {
    [ -e "$outdir/tonwerk-standard.onnx" ] && [ -e "$outdir/tonwerk-live.onnx" ] &&
        [ -z "$(find "$0" "$weights" "$small" "$converters" -name __pycache__ -prune -o -type f \
            -newer "$outdir/tonwerk-standard.onnx" -print -quit)" ]
}
! isCurrent || exit 0

work=$(mktemp -d "$outdir/.models.XXXXXX")
trap 'rm -rf "$work"' EXIT
convert() {
    PYTHONDONTWRITEBYTECODE=1 "$python" "$converters/tonwerk-convert" "$@" >"$work/log" || { cat "$work/log" >&2; exit 1; }
}
convert spleeter "$weights/model.index" --origin "$(cat "$weights/origin")" -o "$work/vocals.onnx"
convert compact "$work/vocals.onnx" --weights int8 --no-measure -o "$work/compact.onnx"
convert cascade "$work/compact.onnx" "$small" --second-opinion 0.2 --name tonwerk-standard -o "$work/tonwerk-standard.onnx"
convert cascade "$work/compact.onnx" "$small" -o "$work/plain.onnx"
convert live "$work/plain.onnx" --rows 64 --name tonwerk-live -o "$work/tonwerk-live.onnx"
mv "$work"/tonwerk-{live,standard}.onnx "$outdir/"
