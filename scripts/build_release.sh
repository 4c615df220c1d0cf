#!/usr/bin/env bash
# Builds the release kinefix: optimised, without tests, linked against a minimal static FFmpeg
# (scripts/build_ffmpeg.sh), so that it starts without loading Debian's FFmpeg libraries.
#
# Usage: scripts/build_release.sh [BUILD_DIR]     (default: build-release)
# The build directory is printed on the last line of standard output.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/shell_helpers.sh
. scripts/shell_helpers.sh

build=${1:-build-release}
prefix=$(bash scripts/build_ffmpeg.sh | tail -n1)
forget_other_ffmpeg "$build" "$prefix"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKINEFIX_TESTS=OFF -DKINEFIX_GUI=OFF \
  -DKINEFIX_FFMPEG_PREFIX="$prefix" >&2
cmake --build "$build" --target kinefix kinefix-index kinefix-crypt >&2
cd "$build" && pwd
