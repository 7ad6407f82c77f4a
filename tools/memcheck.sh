#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the native tests under Valgrind's memcheck; any error or leaked block that is ours fails. What dependencies do
# stands in memcheck.supp, with the cause.
#
#   tools/memcheck.sh [PROGRAM...]
set -euo pipefail
cd "$(dirname "$0")/.."

[ $# -gt 0 ] || set -- build/linux/unit_tests build/linux/fake_backend_tests build/linux/fault_tests \
    build/linux/standin/backend_tests build/linux/boundary_tests build/linux/c_interface_tests
# Valgrind knows no mode that takes denormals for zero, and aborts where an allocation by new is too large.
without='TonwerkProcTest.AHostsFloatingPointModeIsBackAfterEveryCall:ChannelCount.OtherThanTwoIsRefused'
# Some tests watch or refuse memory by an operator new of their own, which Valgrind is told to leave in its place.
status=0
for program in "$@"; do
    echo "$program"
    valgrind --quiet --soname-synonyms=somalloc=nouserintercepts --error-exitcode=99 --leak-check=full \
        --show-leak-kinds=definite --errors-for-leak-kinds=definite \
        --suppressions=tools/memcheck.supp "$program" --gtest_brief=1 \
        --gtest_filter="-$without" || status=1
done
exit $status
