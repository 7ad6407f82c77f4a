#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian 12 packages that the named groups need. Installs only what is missing: when everything is
# there, nothing is run as root and the network is not touched.
#
#   tools/setup.sh GROUP...      groups: native fetch models windows test browser lint fuzz deep training demo peers
#                                    python, or all
set -euo pipefail

declare -A packages=(
    # lv2-dev has the headers of the plug-in.
    [native]="g++ cmake ninja-build googletest lv2-dev python3-minimal"
    # patchelf gives the fetched runtime a name of its own.
    [fetch]="ca-certificates debian-archive-keyring patch patchelf xz-utils"
    # Fetches and converts the public network in the default model.
    [models]="python3 python3-numpy python3-onnx python3-pip"
    # clang, lld and llvm link the DLL (delayed loading needs lld); wine runs the Windows tests.
    [windows]="g++-mingw-w64-x86-64-posix clang lld llvm wine wine64"
    # parallel is the batch example of docs/separate.md; lilv-utils and sordi validate the LV2 plug-in and run it.
    [test]="binutils lilv-utils parallel python3 python3-numpy python3-onnx python3-pefile sordi unzip"
    # The report page is tested in it.
    [browser]="chromium chromium-driver python3-selenium"
    [lint]="clang-format clang-tidy python3 python3-venv python3-numpy"
    [fuzz]="clang libclang-rt-14-dev llvm"
    [deep]="valgrind"
    [peers]="python3 python3-numpy python3-scipy python3-torch"
    # Without this OpenBLAS PyTorch multiplies matrices 30 times slower. From libfluidsynth3 on: what training/make-data
    # renders with and from (training/SOURCES.md has the licences of the sounds).
    [training]="python3 python3-numpy python3-scipy python3-onnx python3-torch python3-matplotlib libopenblas0-pthread
        libfluidsynth3 sox libsox-fmt-base
        ffmpeg fluid-soundfont-gm musescore-general-soundfont csound-soundfont timgm6mb-soundfont sonic-pi-samples
        hydrogen-drumkits asterisk-core-sounds-ru-g722 asterisk-core-sounds-it-g722 asterisk-core-sounds-en-g722
        asterisk-prompt-fr-armelle festvox-ru pocketsphinx-testdata espeak-ng flite"
    [python]="python3 python3-venv"
    [demo]="python3 sox libsox-fmt-base"
)

fail() {
    echo "setup.sh: $*" >&2
    exit 1
}

[ $# -gt 0 ] || { sed -n '3,7s/^# \{0,1\}//p' "$0" >&2; exit 2; }
[ "$*" != all ] || set -- "${!packages[@]}"

missing=()
for group in "$@"; do
    [ -n "${packages[$group]:-}" ] || fail "there is no group '$group' (known: ${!packages[*]})."
    for package in ${packages[$group]}; do
        state=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
        [ "$state" = installed ] || missing+=("$package")
    done
    # npm also comes with other packagings of Node.js, so the program counts and not the package.
    [ "$group" != fetch ] || command -v npm >/dev/null || missing+=(npm)
done
[ ${#missing[@]} -gt 0 ] || exit 0

asRoot=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "these packages are missing, run as root: apt-get install ${missing[*]}"
    asRoot=(sudo)
fi

mapfile -t missing < <(printf '%s\n' "${missing[@]}" | sort -u)
echo "Installing Debian packages: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() {
    "${asRoot[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o Acquire::Retries=3 -o Dpkg::Use-Pty=0 "$@" \
        >"$log" 2>&1 </dev/null || { cat "$log" >&2; fail "apt-get $1 failed (its output stands above)."; }
}
apt update
apt install -y --no-install-recommends "${missing[@]}"
