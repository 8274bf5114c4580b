#!/usr/bin/env bash
# Runs the README's shell examples as a new user would, from a checkout
# whose build/ is BUILD_DIR. Convention: fenced ```sh blocks are run, in
# order, in one bash with -e; ```console blocks and indented blocks are only
# shown (the two set-up commands, pipelines needing a display, installing).
#   readme_test.sh BUILD_DIR README.md
set -euo pipefail
build=$1 readme=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
ln -s "$build" "$tmp/build"
{
  echo 'set -euo pipefail'
  awk '/^```sh$/ { on = 1; next } /^```$/ { on = 0; next } on' "$readme"
} >"$tmp/examples.sh"
[ "$(wc -l <"$tmp/examples.sh")" -gt 5 ] || { echo "readme test: no sh blocks in $readme" >&2; exit 1; }
# A registry of its own, so the examples do not touch the user's.
cd "$tmp" && GST_REGISTRY_1_0=$tmp/registry.bin bash "$tmp/examples.sh"
echo "readme test: OK ($(grep -c . "$tmp/examples.sh") lines run)"
