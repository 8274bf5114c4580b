#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja
cmake --build build -j "$(nproc)"
out=$(mktemp -d)
build/tools/mmcat README.md "$out/README.copy"
cmp README.md "$out/README.copy" && echo "main job: stream round trip OK"
