#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer + UndefinedBehaviorSanitizer) in
# build-fuzz/, replays every stored corpus, then fuzzes each target for a bounded time.
#   scripts/fuzz.sh                       CI: corpus replay + 35 s per target
#   scripts/fuzz.sh --time 3600           nightly: one hour per target
#   scripts/fuzz.sh --only index --time 600
#   scripts/fuzz.sh --replay              stored corpus only (regression check)
# New interesting inputs collect in build-fuzz/work/<target>/ (kept between local runs); a
# crash leaves its input in build-fuzz/artifacts/ and makes the script fail. Copy a crashing
# input into fuzz/corpus/<target>/ once the bug is fixed, so every later run replays it.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=35
only=""
replay_only=0
while [ $# -gt 0 ]; do
  case "$1" in
    --time) seconds="$2"; shift 2 ;;
    --only) only="$2"; shift 2 ;;
    --replay) replay_only=1; shift ;;
    *) echo "usage: $0 [--time SECONDS] [--only TARGET] [--replay]" >&2; exit 2 ;;
  esac
done

mapfile -t targets < <(grep -E '^[a-z0-9_]+$' fuzz/targets.txt)
if [ -n "$only" ]; then targets=("$only"); fi

build=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKINEFIX_FUZZ=ON -DKINEFIX_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target fuzz_targets

# Targets that go through files (config, index) run many times faster on a memory file system.
if [ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
export ASAN_OPTIONS="detect_leaks=1:allocator_may_return_null=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
mkdir -p "$build/artifacts"

# Memory and time limits per input: a hostile index must not make the repair allocate
# what the damaged file cannot supply, nor spin.
common=(-rss_limit_mb=1024 -malloc_limit_mb=512 -timeout=20 -close_fd_mask=3
        -artifact_prefix="$build/artifacts/")

failed=()
for t in "${targets[@]}"; do
  bin="$build/fuzz/${t}_fuzz"
  corpus="fuzz/corpus/$t"
  dict=()
  [ -f "fuzz/dict/$t.dict" ] && dict=(-dict="fuzz/dict/$t.dict")
  max_len=4096
  [ "$t" = index ] && max_len=16384

  echo "== $t: replaying $(ls "$corpus" | wc -l) stored inputs"
  if ! "$bin" "${common[@]}" -runs=0 "$corpus" 2>"$build/artifacts/$t.replay.log"; then
    tail -n 40 "$build/artifacts/$t.replay.log"
    failed+=("$t (stored corpus)")
    continue
  fi
  [ "$replay_only" = 1 ] && continue

  echo "== $t: fuzzing for ${seconds} s"
  work="$build/work/$t"
  mkdir -p "$work"
  if ! "$bin" "${common[@]}" "${dict[@]}" -max_len="$max_len" -max_total_time="$seconds" \
        -print_final_stats=1 "$work" "$corpus" 2>"$build/artifacts/$t.fuzz.log"; then
    tail -n 60 "$build/artifacts/$t.fuzz.log"
    failed+=("$t")
    continue
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "$build/artifacts/$t.fuzz.log" |
    tr '\n' ' ' | sed 's/^/   /'
  echo
done

if [ "${#failed[@]}" -gt 0 ]; then
  echo "fuzzing found problems in: ${failed[*]} (inputs in $build/artifacts/)" >&2
  exit 1
fi
echo "== fuzzing: no crash, leak, hang or memory blow-up"
