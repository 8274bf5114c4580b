#!/usr/bin/env bash
# Installs what is missing, builds and runs the tests.
#   scripts/run-tests.sh        host build, all tests
#   scripts/run-tests.sh --ci   also a sanitizer build, the threads test under
#                               ThreadSanitizer, a short run of every fuzz
#                               target, the armhf build under emulation, and
#                               the plug-in built and tested against
#                               GStreamer 0.10 (the fuller CI tier)
set -euo pipefail
cd "$(dirname "$0")/.."
tier=${1:-}
jobs=$(nproc)

bash scripts/install-deps.sh

cmake -S . -B build -G Ninja -DKEL_WERROR=ON
cmake --build build -j "$jobs"
bash scripts/ctest.sh --test-dir build -j "$jobs" --output-on-failure

if [ "$tier" = "--ci" ]; then
  cmake -S . -B build-asan -G Ninja -DKEL_WERROR=ON -DCMAKE_BUILD_TYPE=Debug \
    -DKEL_SANITIZE=address,undefined
  cmake --build build-asan -j "$jobs"
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    bash scripts/ctest.sh --test-dir build-asan -j "$jobs" --output-on-failure
  # Threads under ThreadSanitizer: only the test that needs it is built.
  cmake -S . -B build-tsan -G Ninja -DKEL_WERROR=ON -DKEL_SANITIZE=thread
  cmake --build build-tsan -j "$jobs" --target threads_test
  TSAN_OPTIONS=halt_on_error=1 build-tsan/tests/threads_test
  bash scripts/run-fuzz.sh 45
  bash scripts/run-arm-tests.sh
  bash scripts/run-gst010-tests.sh
fi
