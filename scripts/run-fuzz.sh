#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer + UndefinedBehaviorSanitizer)
# into build-fuzz, seeds them from fuzz/make-corpus.sh and runs each for a
# while. Any crash, leak, timeout or out-of-memory fails the run; its input is
# left in build-fuzz/findings/<target>/ (fixed, it goes to fuzz/regressions/<target>/).
#   scripts/run-fuzz.sh [seconds per target, default 45] [target ...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-45}
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(decode decode_yuv feed encode streams)
build=build-fuzz

CC=clang-14 CXX=clang++-14 cmake -S . -B "$build" -G Ninja -DKEL_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKEL_SANITIZE=address,undefined -DKEL_FUZZ=ON
cmake --build "$build" -j "$(nproc)"

rm -rf "$build/corpus"
bash fuzz/make-corpus.sh "$build/corpus"
failed=()
for t in "${targets[@]}"; do
  findings=$PWD/$build/findings/$t
  mkdir -p "$findings"
  # Stdout closed: refused inputs print their diagnostic line, thousands a second.
  # The limits keep a header's claims from being mistaken for a finding only
  # up to what the target itself bounds.
  if ! ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1 \
    "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -malloc_limit_mb=1024 \
    -close_fd_mask=1 -print_final_stats=1 -artifact_prefix="$findings/" "$build/corpus/$t" fuzz/regressions/"$t" \
    >"$build/fuzz-$t.log" 2>&1; then
    tail -n 60 "$build/fuzz-$t.log" >&2
    failed+=("$t")
  fi
  grep -E '^stat::number_of_executed_units|^#[0-9]+.*DONE' "$build/fuzz-$t.log" | tr '\n' ' ' | sed "s/^/fuzz $t: /"
  echo
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]} (inputs under $build/findings/)" >&2
  exit 1
fi
