#!/usr/bin/env bash
# Installs the dependencies, builds Kinefix and runs the whole test suite.
#   scripts/test.sh              normal build in build/
#   scripts/test.sh --sanitize   AddressSanitizer + UndefinedBehaviorSanitizer build in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."

mode="${1:-}"
bash scripts/install_deps.sh

build=build
flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DKINEFIX_BENCH=ON)
if [ "$mode" = "--sanitize" ]; then
  build=build-asan
  flags=(-DCMAKE_BUILD_TYPE=Debug -DKINEFIX_SANITIZE=ON -DKINEFIX_GUI=OFF)
  export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1:abort_on_error=0:exitcode=99"
  export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:exitcode=98"
fi

cmake -S . -B "$build" -G Ninja "${flags[@]}"
cmake --build "$build" -j "$(nproc)"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)" --timeout 600
