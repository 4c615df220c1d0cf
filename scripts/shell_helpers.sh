# shellcheck shell=bash
# Shell functions shared by the scripts (sourced, not run): the build directory's FFmpeg prefix
# and the top-level boxes of ISO media files (MP4, MOV). The tests' C++ twins live in
# tests/support/media_support.h.

# pkg-config results are cached: a build directory configured for another FFmpeg prefix needs a
# fresh configure, so its cache goes.
forget_other_ffmpeg() {  # BUILD_DIR PREFIX
  local cache=$1/CMakeCache.txt
  if [ -f "$cache" ] &&
    [ "$(sed -n 's/^KINEFIX_FFMPEG_PREFIX:[A-Z]*=//p' "$cache")" != "$2" ]; then
    rm -f "$cache"
  fi
}

# Offset of the first top-level box of a type (32- or 64-bit sizes, open-ended last box);
# nothing when there is none.
top_box() {  # FILE TYPE
  local file=$1 type=$2 off=0 size len head
  len=$(stat -c %s "$file")
  while [ $((off + 8)) -le "$len" ]; do
    head=$(od -An -tx1 -j "$off" -N 8 "$file" | tr -d ' \n')
    size=$((16#${head:0:8}))
    if [ "$size" -eq 1 ]; then
      size=$((16#$(od -An -tx1 -j $((off + 8)) -N 8 "$file" | tr -d ' \n')))
    elif [ "$size" -eq 0 ]; then
      size=$((len - off))
    fi
    [ "$size" -ge 8 ] || return 0
    if [ "${head:8:8}" = "$(printf '%s' "$type" | od -An -tx1 | tr -d ' \n')" ]; then
      echo "$off"
      return 0
    fi
    off=$((off + size))
  done
}

moov_offset() {  # FILE
  top_box "$1" moov
}

# Renames the moov box to a type no reader looks into: every media byte stays where it was, as
# after a crash that left the index unwritten. Fails when there is no moov box.
destroy_moov() {  # FILE
  local off
  off=$(moov_offset "$1")
  [ -n "$off" ] || return 1
  printf 'dead' | dd of="$1" bs=1 seek=$((off + 4)) conv=notrunc status=none
}

# DEST gets what SOURCE holds before its moov box, as a recording cut off while its index was
# being written. Fails, writing nothing, when there is no moov box.
cut_before_moov() {  # SOURCE DEST
  local off
  off=$(moov_offset "$1")
  [ -n "$off" ] || return 1
  cp "$1" "$2"
  truncate -s "$off" "$2"
}
