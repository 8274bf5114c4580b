#!/usr/bin/env bash
# Installs everything the build and the tests need on Debian 12. Idempotent:
# packages already present are not fetched again.
#   scripts/install-deps.sh          host build, tests, peers, GStreamer
#   scripts/install-deps.sh --arm    also the armhf cross toolchain and qemu
#   scripts/install-deps.sh --bench  also gnuplot, for the benchmark's chart
# The armhf build needs no multiarch (no dpkg --add-architecture): the cross
# packages bring the target libc and libstdc++, GoogleTest is built from the
# googletest sources, and scripts/run-arm-tests.sh unpacks the armhf peer
# library privately.
set -euo pipefail

want_arm=0 want_bench=0
[ "${1:-}" = "--arm" ] && want_arm=1
[ "${1:-}" = "--bench" ] && want_bench=1

host_pkgs=(
  build-essential cmake ninja-build pkg-config git
  libgtest-dev libgmock-dev googletest
  libjpeg-turbo-progs libturbojpeg0-dev imagemagick libpng-dev libcli11-dev graphviz valgrind bc
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad
  check clang-14 libclang-rt-14-dev
)
arm_pkgs=(
  g++-arm-linux-gnueabihf binutils-arm-linux-gnueabihf qemu-user googletest
)
bench_pkgs=(gnuplot-nox)

SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"

missing() {
  local out=()
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || out+=("$p")
  done
  echo "${out[@]:-}"
}

pkgs=("${host_pkgs[@]}")
[ "$want_arm" = 1 ] && pkgs+=("${arm_pkgs[@]}")
[ "$want_bench" = 1 ] && pkgs+=("${bench_pkgs[@]}")

todo=$(missing "${pkgs[@]}")
if [ -n "$todo" ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt_opts=(-o DPkg::Lock::Timeout=300)
  for try in 1 2 3; do
    # A mirror mid-sync can fail one index; the others are still usable, so
    # go on to the install and retry both only if that fails.
    $SUDO apt-get "${apt_opts[@]}" update -qq ||
      echo "apt-get update reported errors (try $try); going on with the indexes it got" >&2
    # shellcheck disable=SC2086
    $SUDO apt-get "${apt_opts[@]}" install -y -qq --no-install-recommends $todo && exit 0
    echo "apt-get install failed (try $try), retrying" >&2
    sleep $((try * 10))
  done
  exit 1
fi
