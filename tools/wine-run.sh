#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs a Windows program under Wine, in a prefix of the build tree and without Wine's own messages.
#
#   tools/wine-run.sh PROGRAM.exe ARGUMENT...
#   tools/wine-run.sh --stop                       ends what is still running in that prefix
#
# The first program in an idle prefix starts Wine's services. They are kept for a minute after the last program, so
# that a test suite starts them once. They are started with their streams redirected: a service that inherited the
# pipe of a test runner would keep the runner waiting.
set -euo pipefail

export WINEPREFIX=${WINEPREFIX:-$(cd "$(dirname "$0")/.." && pwd)/build/wine}
export WINEDEBUG=${WINEDEBUG:--all}
# No offer to install a browser engine and a .NET runtime, which no test needs.
export WINEDLLOVERRIDES="mscoree,mshtml=${WINEDLLOVERRIDES:+;$WINEDLLOVERRIDES}"

wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver)

startServices() {
    if [ ! -e "$WINEPREFIX/.ready" ]; then
        wineboot --init || return
        "$wineserver" -w || return
        touch "$WINEPREFIX/.ready"
    fi
    # Fails if the server runs already: then so do its services.
    if "$wineserver" -p60; then
        wine cmd /c exit || return
    fi
}

if [ "${1:-}" = --stop ]; then
    [ ! -d "$WINEPREFIX" ] || "$wineserver" -k || true
    exit 0
fi

mkdir -p "$WINEPREFIX"
(
    flock 9
    startServices </dev/null >/dev/null 2>&1 9>&-
) 9>"$WINEPREFIX/.lock" || { echo "wine-run.sh: Wine cannot start in $WINEPREFIX." >&2; exit 1; }

exec wine "$@"
