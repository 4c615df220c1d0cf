#!/usr/bin/env bash
# Builds a minimal static FFmpeg from Debian's ffmpeg source, cached: for this Linux machine
# (the release build of kinefix) or, with --windows, for 64-bit Windows (mingw-w64).
#
# Usage: scripts/build_ffmpeg.sh [--windows]
# The install prefix is printed on the last line of standard output; pass it to CMake as
# KINEFIX_FFMPEG_PREFIX. A prefix that holds a complete build is reused without touching the
# network, so CI can cache $KINEFIX_CACHE.
#
# A static FFmpeg spares kinefix the start-up cost of Debian's shared FFmpeg, which loads some
# 135 libraries (every codec library it was built with) before the first byte is copied: a
# fifth of a second from a cold cache, as long as the copy of half a gigabyte itself.
#
# Only what the repair and the index tool need is configured: libavformat with the file
# protocol and the MP4/MOV/Matroska muxers and demuxers, the H.264 and AAC parsers and the
# bitstream filters those muxers pull in, libavcodec's descriptors, libavutil, and the H.264
# and AAC decoders, without which kinefix-index cannot learn pixel and sample formats. No asm,
# so no nasm and the same C code paths as everywhere else. The patches beside this script are
# applied to Debian's source (ffmpeg_win_*.patch: they touch Windows-only code).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
patches=("$here"/ffmpeg_win_*.patch)
[ -e "${patches[0]}" ] || patches=()

target=linux
case "${1:-}" in
  --windows) target=windows ;;
  "") ;;
  *) echo "usage: $0 [--windows]" >&2; exit 2 ;;
esac

cache="${KINEFIX_CACHE:-$HOME/.cache/kinefix}"
jobs="${KINEFIX_JOBS:-2}"
tag=$([ "$target" = windows ] && echo win || echo linux)

log() { echo "[ffmpeg-$tag] $*" >&2; }

# Same Debian source version as the Linux development packages, so both builds mux alike.
version=""
if version=$(dpkg-query -W -f='${source:Version}' libavformat-dev 2>/dev/null) && [ -n "$version" ]; then
  :
else
  version=$(apt-cache policy libavformat-dev 2>/dev/null | awk '/Candidate:/ {print $2}')
fi
[ -n "$version" ] && [ "$version" != "(none)" ] || { log "cannot tell which ffmpeg version to build"; exit 1; }
upstream_version="${version#*:}"

if [ "$target" = windows ]; then
  host=x86_64-w64-mingw32
  cc="${host}-gcc"
  configure_flags=(--enable-cross-compile --arch=x86_64 --target-os=mingw32 --cross-prefix="${host}-")
else
  cc=gcc
  configure_flags=()
fi
configure_flags+=(
  --pkg-config=pkg-config
  --enable-static --disable-shared --enable-pic
  --disable-everything --disable-autodetect --disable-programs --disable-doc
  --disable-network --disable-asm --disable-debug
  --disable-avdevice --disable-avfilter --disable-swscale --disable-swresample --disable-postproc
  --enable-avformat --enable-avcodec --enable-avutil
)
if [ "$target" = windows ]; then
  configure_flags+=(
    --enable-protocol=file
    --enable-muxer=mp4,mov,matroska,ipod
    --enable-demuxer=mov,matroska
    --enable-parser=h264,hevc,aac
    --enable-decoder=h264,hevc,aac,pcm_s16le
    --enable-bsf=aac_adtstoasc,h264_mp4toannexb,extract_extradata
  )
else
  # Every container Debian's FFmpeg reads and writes stays available, and every decoder, so
  # kinefix-index learns stream parameters as before; encoders, filters and devices stay out.
  configure_flags+=(
    --enable-protocol=file,pipe
    --enable-muxers --enable-demuxers --enable-parsers --enable-bsfs --enable-decoders
  )
fi

command -v "$cc" >/dev/null || { log "$cc missing (run scripts/install_deps.sh, with --windows for mingw-w64)"; exit 1; }
compiler_id=$("$cc" --version | head -n1)
patch_hash=$(cat /dev/null "${patches[@]}" | sha256sum | cut -c1-8)
config_hash=$(printf '%s\n' "$version" "$compiler_id" "$patch_hash" "${configure_flags[@]}" | sha256sum | cut -c1-12)
prefix="$cache/ffmpeg-$tag-${upstream_version}-${config_hash}"

if [ -f "$prefix/.complete" ]; then
  log "cached: $prefix"
  echo "$prefix"
  exit 0
fi

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# apt-get source needs deb-src entries; derive them once from the binary ones.
ensure_deb_src() {
  if apt-get source --print-uris ffmpeg >/dev/null 2>&1; then
    return 0
  fi
  local list=/etc/apt/sources.list.d/kinefix-deb-src.sources
  if [ ! -f "$list" ]; then
    log "adding deb-src entries ($list)"
    local tmp
    tmp=$(mktemp)
    if [ -f /etc/apt/sources.list.d/debian.sources ]; then
      sed 's/^Types:.*$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources >"$tmp"
    else
      local codename
      codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")
      cat >"$tmp" <<EOF
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: ${codename} ${codename}-updates
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg

Types: deb-src
URIs: http://deb.debian.org/debian-security
Suites: ${codename}-security
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
EOF
    fi
    as_root install -m 0644 "$tmp" "$list"
    rm -f "$tmp"
  fi
  as_root apt-get update -qq
}

srcroot="$cache/ffmpeg-src-${upstream_version}-${patch_hash}"
srcdir=""
find_srcdir() {
  srcdir=$(find "$srcroot" -mindepth 1 -maxdepth 1 -type d -name 'ffmpeg-*' 2>/dev/null | head -n1 || true)
}
find_srcdir
if [ -z "$srcdir" ] || [ ! -x "$srcdir/configure" ]; then
  command -v dpkg-source >/dev/null || { log "dpkg-source missing (install dpkg-dev)"; exit 1; }
  ensure_deb_src
  rm -rf "$srcroot"
  mkdir -p "$srcroot"
  log "fetching Debian ffmpeg source $version"
  # Prefer the exact version of the Linux packages; fall back to the current one.
  (cd "$srcroot" && { apt-get source -qq "ffmpeg=$version" || apt-get source -qq ffmpeg; }) >&2
  find_srcdir
  [ -n "$srcdir" ] || { log "apt-get source produced no ffmpeg tree"; exit 1; }
  for p in "${patches[@]}"; do
    log "applying $(basename "$p")"
    patch -d "$srcdir" -p1 --forward --quiet <"$p" || { log "$(basename "$p") does not apply"; rm -rf "$srcroot"; exit 1; }
  done
fi

builddir="$cache/ffmpeg-$tag-build-${config_hash}"
stage="${prefix}.partial"
rm -rf "$builddir" "$stage"
mkdir -p "$builddir"

start=$(date +%s)
log "configuring in $builddir"
(cd "$builddir" && "$srcdir/configure" --prefix="$prefix" "${configure_flags[@]}") >"$builddir/configure.log" 2>&1 || {
  tail -n 30 "$builddir/configure.log" >&2
  tail -n 30 "$builddir/ffbuild/config.log" >&2 || true
  exit 1
}
log "building with $jobs jobs"
make -C "$builddir" -j"$jobs" >"$builddir/make.log" 2>&1 || { tail -n 40 "$builddir/make.log" >&2; exit 1; }
make -C "$builddir" install DESTDIR="$stage" >>"$builddir/make.log" 2>&1 || { tail -n 20 "$builddir/make.log" >&2; exit 1; }

# DESTDIR keeps the final paths inside the .pc files; move the tree into place in one step.
rm -rf "$prefix"
mv "$stage$prefix" "$prefix"
rm -rf "$stage" "$builddir"
printf '%s\n' "$version" "${configure_flags[@]}" >"$prefix/.complete"
log "built in $(( $(date +%s) - start )) s: $prefix"
echo "$prefix"
