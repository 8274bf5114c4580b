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

# Target libraries that the cross toolchain does not bring, unpacked from
# Debian's armhf packages into a private root under the build directory: the
# peer (TurboJPEG) for the differential tests, GStreamer with GLib for the
# plug-in, and libpng with CLI11 (headers only) for the keljpeg tool. A
# private apt state keeps this away from the machine's package database, so
# no multiarch install (and no version skew with the host's libraries) is
# involved. Nothing is installed, so dependencies are not
# resolved: the list holds the -dev packages whose .pc files pkg-config walks
# (Requires.private included) and the shared libraries they link against,
# taken from the packages' Depends. libc, libgcc and libstdc++ come from the
# cross toolchain.
armhf_root=$PWD/$build/armhf-root
armhf_pkgs=(
  libturbojpeg0 libturbojpeg0-dev
  libgstreamer1.0-0 libgstreamer1.0-dev
  libgstreamer-plugins-base1.0-0 libgstreamer-plugins-base1.0-dev
  libglib2.0-0 libglib2.0-dev libffi8 libffi-dev libpcre2-8-0 libpcre2-dev
  libunwind8 libunwind-dev libdw1 libdw-dev libelf1 libelf-dev
  liborc-0.4-0 liborc-0.4-dev zlib1g zlib1g-dev liblzma5 liblzma-dev
  libbz2-1.0 libcap2 libmount1 libblkid1 libselinux1
  libpng16-16 libpng-dev libcli11-dev
)
fetch_armhf_root() {
  local state=$PWD/$build/apt
  local opts=(-o Dir::State::Lists="$state/lists" -o Dir::Cache="$state"
    -o Dir::Cache::archives="$state/archives" -o Dir::State::Status=/dev/null
    -o APT::Architecture=armhf -o APT::Architectures::=armhf
    -o APT::Sandbox::User="$(id -un)" -o Debug::NoLocking=1)
  mkdir -p "$state/lists/partial" "$state/archives/partial" "$state/debs"
  for try in 1 2 3; do
    # One index failing (mirror mid-sync) is fine as long as the packages come.
    apt-get -qq "${opts[@]}" update 2>"$state/update.log" || true
    rm -f "$state"/debs/*.deb
    if (cd "$state/debs" && apt-get -qq "${opts[@]}" download "${armhf_pkgs[@]}"); then
      local tmp=$armhf_root.tmp
      rm -rf "$tmp"
      for deb in "$state"/debs/*.deb; do dpkg-deb -x "$deb" "$tmp"; done
      # Debian 12 ships some libraries in /lib: merge it into /usr/lib as on
      # the device (usrmerge), so one library directory serves the linker,
      # pkg-config and the emulator.
      if [ -d "$tmp/lib" ] && [ ! -L "$tmp/lib" ]; then
        cp -a "$tmp/lib/." "$tmp/usr/lib/" && rm -rf "${tmp:?}/lib" && ln -s usr/lib "$tmp/lib"
      fi
      # Absolute links (libfoo.so -> /lib/...) would point at the build
      # machine: make them relative, inside the root.
      local link
      while IFS= read -r -d '' link; do
        ln -sfnr "$tmp$(readlink "$link")" "$link"
      done < <(find "$tmp" -type l -lname '/*' -print0)
      printf '%s\n' "${armhf_pkgs[@]}" >"$tmp/.packages"
      rm -rf "$armhf_root" && mv "$tmp" "$armhf_root"
      return 0
    fi
    echo "armhf package download failed (try $try)" >&2
    cat "$state/update.log" >&2
    sleep $((try * 10))
  done
  return 1
}
# The root before GStreamer was added to it.
rm -rf "$PWD/$build/peer-root"
# The plug-in and the peer comparisons need the root: no root, no run.
if ! printf '%s\n' "${armhf_pkgs[@]}" | cmp -s - "$armhf_root/.packages" && ! fetch_armhf_root; then
  echo "no armhf TurboJPEG/GStreamer could be fetched" >&2
  exit 1
fi

# -O2 as on the host: GCC 12 at -O3 raises false -Warray-bounds errors inside
# libstdc++'s vector insertion.
cmake -S . -B "$build" -G Ninja -DKEL_WERROR=ON -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-armhf.cmake" -DKEL_ARMHF_EXTRA_ROOT="$armhf_root"
cmake --build "$build" -j "$jobs"

# The suite must run target code, not host code that slipped in.
if ! readelf -h "$build/tests/abi_test" | grep -q 'Machine: *ARM$'; then
  echo "build-armhf/tests/abi_test is not an ARM binary" >&2
  exit 1
fi

# A hang under emulation fails its test instead of stalling the CI run.
bash scripts/ctest.sh --test-dir "$build" -j "$jobs" --timeout 600 --output-on-failure "$@"
