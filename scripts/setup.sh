#!/bin/sh
# Installs the Debian packages the build, tests and tools need. Idempotent and
# silent when everything is already present.
set -e

packages="cmake make g++ clang libclang-rt-14-dev pkg-config libgtest-dev libgmock-dev libbenchmark-dev libstb-dev astcenc python3-pil imagemagick libnvtt-bin chromium"
# KTX 2 supercompression.
packages="$packages libzstd-dev"
# The Python package and its tests (Dask's distributed scheduler among them).
packages="$packages pybind11-dev python3-dev python3-numpy python3-distributed python3-pytest"
# Node.js and npm run the KTX 2 checks against the npm package ktx-parse (which
# CMake installs into the build folder); any installation of them will do.
command -v npm >/dev/null 2>&1 || packages="$packages nodejs npm"

missing=""
for p in $packages; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $p"
    fi
done

[ -z "$missing" ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    SUDO=""
elif command -v sudo >/dev/null 2>&1; then
    SUDO="sudo"
else
    echo "setup.sh: missing packages:$missing (run as root or install sudo)" >&2
    exit 1
fi

echo "setup.sh: installing$missing" >&2

log=$(mktemp)
if ! { $SUDO apt-get update -qq && $SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing; } >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    echo "setup.sh: apt-get failed" >&2
    exit 1
fi
rm -f "$log"
