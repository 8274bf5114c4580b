#!/usr/bin/env bash
# Builds GStreamer 0.10.36 (the device's) from the release sources beside the
# checkout, then the plug-in against it, and runs the element tests there.
# Part of the CI tier (scripts/run-tests.sh --ci); also runs alone.
#   scripts/run-gst010-tests.sh [extra ctest arguments]
# GST010_PREFIX (default /opt/gst010): where 0.10 is installed; a rebuild
# with the same inputs returns at once. GST010_SOURCES: the folder with its
# build.sh (default ../shared/gst010).
set -euo pipefail
cd "$(dirname "$0")/.."
prefix=${GST010_PREFIX:-/opt/gst010}
sources=${GST010_SOURCES:-$PWD/../shared/gst010}
build=build-gst010

if [ ! -f "$sources/build.sh" ]; then
  echo "GStreamer 0.10 sources not found in $sources (set GST010_SOURCES)" >&2
  exit 1
fi
bash "$sources/build.sh" "$prefix"
# shellcheck disable=SC1091
. "$prefix/env.sh"
export GST_REGISTRY="$PWD/$build/registry-0.10.bin"

cmake -S . -B "$build" -G Ninja -DKEL_WERROR=ON -DKELJPEG_GST_API=0.10
cmake --build "$build" -j "$(nproc)" --target gstkeljpeg element_test
bash scripts/ctest.sh --test-dir "$build" -L gst -j "$(nproc)" --output-on-failure "$@"
