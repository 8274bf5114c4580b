#!/usr/bin/env bash
# Installs everything the build and the tests need on Debian 12. Idempotent:
# packages already present are not fetched again.
#   scripts/install-deps.sh          host build, tests, peers, GStreamer
#   scripts/install-deps.sh --arm    also the armhf cross toolchain and qemu
set -euo pipefail

want_arm=0
[ "${1:-}" = "--arm" ] && want_arm=1

host_pkgs=(
  build-essential cmake ninja-build pkg-config git
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  libjpeg-turbo-progs libturbojpeg0-dev imagemagick libpng-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  check
)
arm_pkgs=(
  g++-arm-linux-gnueabihf qemu-user
  libc6:armhf libstdc++6:armhf libturbojpeg0-dev:armhf
  libgstreamer1.0-dev:armhf libgstreamer-plugins-base1.0-dev:armhf
)

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
if [ "$want_arm" = 1 ]; then
  if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    $SUDO dpkg --add-architecture armhf
  fi
  pkgs+=("${arm_pkgs[@]}")
fi

todo=$(missing "${pkgs[@]}")
if [ -n "$todo" ]; then
  export DEBIAN_FRONTEND=noninteractive
  # A mirror mid-sync can fail one index; retry, then go on with what we have.
  for try in 1 2 3; do
    $SUDO apt-get update -qq && break
    echo "apt-get update failed (try $try), retrying" >&2
    sleep $((try * 10))
  done
  for try in 1 2 3; do
    # shellcheck disable=SC2086
    $SUDO apt-get install -y -qq --no-install-recommends $todo && exit 0
    echo "apt-get install failed (try $try), retrying" >&2
    sleep $((try * 10))
    $SUDO apt-get update -qq || true
  done
  exit 1
fi
