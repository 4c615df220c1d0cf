#!/usr/bin/env bash
# Runs the thread-heavy tests (runtime services and the lock kinds) under ThreadSanitizer,
# in a separate build in build-tsan/.
#   scripts/tsan.sh [build-dir]
set -euo pipefail
cd "$(dirname "$0")/.."

build="${1:-build-tsan}"
jobs="$(nproc)"

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKINEFIX_TSAN=ON -DKINEFIX_GUI=OFF >/dev/null
cmake --build "$build" -j "$jobs" --target zp_runtime_tests zp_core_tests

export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:exitcode=66"
# TSan needs a randomised-layout-free address space on some kernels; retry without ASLR.
run() {
  if ! "$@"; then
    if command -v setarch >/dev/null && setarch "$(uname -m)" -R true 2>/dev/null; then
      echo "-- retrying without address-space randomisation" >&2
      setarch "$(uname -m)" -R "$@"
    else
      return 1
    fi
  fi
}

echo "== ThreadSanitizer: runtime services"
run "$build/tests/zp_runtime_tests" --gtest_brief=1
echo "== ThreadSanitizer: locks"
run "$build/tests/zp_core_tests" --gtest_filter='MutexTest.*:ReadWriteMutexTest.*' --gtest_brief=1
