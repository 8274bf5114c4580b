#!/usr/bin/env bash
# Cross-builds the codec, its tests and tools for the device (32-bit ARM,
# arm-linux-gnueabihf) into build-armhf and runs the test suite under
# qemu-user. Part of the CI tier (scripts/run-tests.sh --ci); also runs alone.
#   scripts/run-arm-tests.sh [extra ctest arguments]
set -euo pipefail
cd "$(dirname "$0")/.."
build="build-armhf"
jobs=$(nproc)

bash scripts/install-deps.sh --arm

# The peer (TurboJPEG) for the target, for the differential tests: unpacked
# from Debian's armhf packages into a private root under the build directory.
# A private apt state keeps this away from the machine's package database, so
# no multiarch install (and no version skew with the host's libraries) is
# involved.
peer_root=$PWD/$build/peer-root
fetch_peer() {
  local state=$PWD/$build/apt
  local opts=(-o Dir::State::Lists="$state/lists" -o Dir::Cache="$state"
    -o Dir::Cache::archives="$state/archives" -o Dir::State::Status=/dev/null
    -o APT::Architecture=armhf -o APT::Architectures::=armhf
    -o APT::Sandbox::User="$(id -un)" -o Debug::NoLocking=1)
  mkdir -p "$state/lists/partial" "$state/archives/partial" "$state/debs"
  for try in 1 2 3; do
    # One index failing (mirror mid-sync) is fine as long as the packages come.
    apt-get -qq "${opts[@]}" update 2>"$state/update.log" || true
    if (cd "$state/debs" && apt-get -qq "${opts[@]}" download libturbojpeg0 libturbojpeg0-dev); then
      rm -rf "$peer_root.tmp"
      for deb in "$state"/debs/*.deb; do dpkg-deb -x "$deb" "$peer_root.tmp"; done
      rm -rf "$peer_root" && mv "$peer_root.tmp" "$peer_root"
      return 0
    fi
    echo "armhf peer download failed (try $try)" >&2
    cat "$state/update.log" >&2
    sleep $((try * 10))
  done
  return 1
}
peer_note=""
if [ ! -f "$peer_root/usr/include/turbojpeg.h" ] && ! fetch_peer; then
  peer_note="WARNING: no armhf TurboJPEG: tests that need the peer library are built without it"
  echo "$peer_note" >&2
fi

# -O2 as on the host: GCC 12 at -O3 raises false -Warray-bounds errors inside
# libstdc++'s vector insertion.
cmake -S . -B "$build" -G Ninja -DKEL_WERROR=ON -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-armhf.cmake" -DKEL_ARMHF_EXTRA_ROOT="$peer_root"
cmake --build "$build" -j "$jobs"

# The suite must run target code, not host code that slipped in.
if ! readelf -h "$build/tests/abi_test" | grep -q 'Machine: *ARM$'; then
  echo "build-armhf/tests/abi_test is not an ARM binary" >&2
  exit 1
fi

# A hang under emulation fails its test instead of stalling the CI run.
ctest --test-dir "$build" -j "$jobs" --timeout 600 --output-on-failure "$@"
[ -z "$peer_note" ] || echo "$peer_note" >&2
