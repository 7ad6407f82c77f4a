#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Fuzzes every target for a number of minutes, beginning with the committed seeds and what earlier runs have found.
#
#   tools/fuzz.sh MINUTES [TARGET...]
#
# The corpus grows in build/fuzz/TARGET, logs and inputs that break something lie in build/fuzz. Ends with 1 if any did.
# What a committed seed adds is a place of the code: fuzz_TARGET -merge=1 -use_counters=0 SEEDS CORPUS picks such inputs;
# name them by what they show.
set -euo pipefail
cd "$(dirname "$0")/.."

[ $# -ge 1 ] || { sed -n '3,9s/^# \{0,1\}//p' "$0" >&2; exit 2; }
minutes=$1
shift
[ $# -gt 0 ] || set -- calls parts model audio onnx receipt options

status=0
for target in "$@"; do
    corpus=build/fuzz/$target
    mkdir -p "$corpus"
    echo "fuzz_$target, $minutes min"
    # The library logs to standard output, so the fuzzer's own lines are taken from the log.
    build/linux-fuzz/fuzz_"$target" -max_total_time=$((60 * minutes)) -timeout=120 -rss_limit_mb=8000 \
        -artifact_prefix="build/fuzz/$target-" -print_final_stats=1 "$corpus" tests/fuzz/seeds/"$target" \
        >build/fuzz/"$target".log 2>&1 || status=1
    grep -aE '^(stat::number_of_executed_units|Done |broken promise|SUMMARY)|DONE +cov' build/fuzz/"$target".log || true
done
exit $status
