#!/usr/bin/env bash
# Installs every build and test dependency of Kinefix on Debian 12. Safe to run again.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  libavformat-dev libavcodec-dev libavutil-dev ffmpeg
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  clang llvm libclang-rt-14-dev
  binutils time
  qt6-base-dev qt6-qpa-plugins fonts-dejavu-core xvfb xauth dpkg-dev
)
if [ "${1:-}" = "--windows" ]; then
  packages+=(mingw-w64 wine wine64 locales)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
