#!/usr/bin/env bash
# Installs the build into a staging root (DESTDIR) and uses the result as a
# user would: the README's C++ example compiled only with
# `pkg-config --cflags --libs keljpeg` decodes a file, the installed tool
# runs, and gst-inspect-1.0 finds the installed plug-in via GST_PLUGIN_PATH.
#   install_test.sh BUILD_DIR README.md
set -euo pipefail
build=$1 readme=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() {
  echo "install test: $*" >&2
  exit 1
}

DESTDIR=$tmp/root cmake --install "$build" >"$tmp/install.log"
pc=$(find "$tmp/root" -name keljpeg.pc)
plugin=$(find "$tmp/root" -name libgstkeljpeg.so)
tool=$(find "$tmp/root" -path '*/bin/keljpeg')
[ -n "$pc" ] && [ -n "$plugin" ] && [ -n "$tool" ] || fail "missing from the install: $(cat "$tmp/install.log")"

# The README's first C++ block, compiled against the staged tree only.
awk '/^```cpp$/ { on = 1; next } /^```$/ { if (on) exit } on' "$readme" >"$tmp/example.cpp"
[ -s "$tmp/example.cpp" ] || fail "no C++ example in $readme"
export PKG_CONFIG_PATH=$(dirname "$pc")
# shellcheck disable=SC2046
c++ -std=c++17 -o "$tmp/example" "$tmp/example.cpp" $(pkg-config --cflags --libs keljpeg)
convert -size 96x64 gradient:'#204080'-'#f0c060' -depth 8 "$tmp/in.ppm"
"$tool" encode "$tmp/in.ppm" "$tmp/in.jpg"
(cd "$tmp" && ./example in.jpg) >"$tmp/example.out" || fail "the example failed: $(cat "$tmp/example.out")"
grep -q '^in.jpg: 96x64' "$tmp/example.out" || fail "the example printed: $(cat "$tmp/example.out")"
[ -s "$tmp/in.jpg.q50.jpg" ] || fail "the example wrote no JPEG"

# Only the staged plug-in is on the path, with a registry of its own.
GST_PLUGIN_PATH_1_0=$(dirname "$plugin") GST_PLUGIN_SYSTEM_PATH_1_0=$tmp GST_REGISTRY_1_0=$tmp/registry.bin \
  gst-inspect-1.0 keljpeg >"$tmp/inspect.out" || fail "gst-inspect-1.0: $(cat "$tmp/inspect.out")"
grep -q "Filename *$plugin" "$tmp/inspect.out" || fail "gst-inspect-1.0 shows: $(cat "$tmp/inspect.out")"
grep -q 'keljpeg_dec' "$tmp/inspect.out" && grep -q 'keljpeg_enc' "$tmp/inspect.out" || fail "elements missing"
echo "install test: OK ($(find "$tmp/root" -type f | wc -l) files installed)"
