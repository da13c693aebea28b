#!/bin/sh
# Prints the pinned digests of Tests/PinnedOutputsTest.cpp as the code now
# computes them, in the table's own form, for a deliberate change of output.
# Usage: scripts/update-digests.sh [BUILD_DIR]   (default: build)
set -e
cd "$(dirname "$0")/.."
build=${1:-build}
make build BUILD_DIR="$build" >/dev/null
ORBTEX_PRINT_DIGESTS=1 "$build/Tests/orbtexlib_tests" --gtest_filter='PinnedOutputs.*' | grep '^    {"'
