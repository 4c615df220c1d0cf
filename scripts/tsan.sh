#!/usr/bin/env bash
# Runs the thread-heavy areas (locks, logger, config, runtime services: their contention tests
# fail on a missing lock even without it) under ThreadSanitizer, in a separate build in
# build-tsan/.
#   scripts/tsan.sh [build-dir]
set -euo pipefail
cd "$(dirname "$0")/.."

build="${1:-build-tsan}"
jobs="$(nproc)"

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKINEFIX_TSAN=ON -DKINEFIX_GUI=OFF >/dev/null
# Only the executables holding tsan-labelled tests; test discovery lists them by path.
cmake --build "$build" -j "$jobs" --target zp_sync_tests zp_log_tests zp_config_tests zp_runtime_tests

export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:exitcode=66"
labels='^(sync|log|config|runtime)$'
tests=(ctest --test-dir "$build" -L "$labels" --output-on-failure -j "$jobs" --timeout 300)
echo "== ThreadSanitizer: ${tests[*]}"
if ! "${tests[@]}"; then
  # TSan needs a randomised-layout-free address space on some kernels; retry without ASLR.
  if command -v setarch >/dev/null && setarch "$(uname -m)" -R true 2>/dev/null; then
    echo "-- retrying without address-space randomisation" >&2
    setarch "$(uname -m)" -R "${tests[@]}"
  else
    exit 1
  fi
fi
