#!/usr/bin/env bash
# The release build checked as users get it: kinefix linked against the minimal static FFmpeg
# (scripts/build_release.sh), run by the end-to-end tests of the test build, then a small
# benchmark run so the benchmark keeps working.
#   scripts/release_check.sh [TEST_BUILD_DIR]     (default: build, made by scripts/test.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
tests=${1:-build}

[ -d "$tests/tests" ] || { echo "release_check.sh: no test build in $tests (run scripts/test.sh)" >&2; exit 1; }
t0=$(date +%s)
release=$(bash scripts/build_release.sh build-release | tail -n1)
echo "   release build in $(($(date +%s) - t0)) s: $release"
if ldd "$release/kinefix" | grep -q libavformat; then
  echo "release_check.sh: the release kinefix still loads a shared libavformat" >&2
  exit 1
fi

status=0
for exe in "$tests"/tests/e2e_*_tests; do
  [ -x "$exe" ] || continue
  echo "   $(basename "$exe") against the release binaries"
  KINEFIX_BIN_DIR=$release "$exe" --gtest_brief=1 || status=1
done
[ "$status" = 0 ] || exit 1

dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
bash bench/run.sh --size 40 --runs 1 --bin "$release" --dir "$dir" | sed 's/^/   /'
