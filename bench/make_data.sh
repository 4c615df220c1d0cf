#!/usr/bin/env bash
# Makes the benchmark's data: a large H.264+AAC recording, its index, and the same recording
# with its index (moov) cut off, without hours of encoding.
#   bench/make_data.sh --bin BUILD_DIR [--size quick|full|MB] [--dir DIR]
# A few seconds of real 1080p video and stereo AAC are encoded once; ffmpeg's concat demuxer
# then lays their packets down again and again, with continuing timestamps, into one intact
# MP4 (ffmpeg's own muxer writes its moov, co64 past 4 GiB). kinefix-index writes that
# recording's index (positions.idx: the same with every position given), and a copy cut at its
# moov box is the damaged file, as a crash leaves it.
# Sizes: quick = 0.5 GB, full = 5 GB (past 4 GiB: 64-bit offsets), or a number of MB.
# Data sets already made are kept and reused. Prints the data set's directory last.
set -euo pipefail

size=quick
dir=${KINEFIX_BENCH_DIR:-${TMPDIR:-/tmp}/kinefix-bench}
bin=
while [ $# -gt 0 ]; do
  case $1 in
    --size) size=$2; shift 2 ;;
    --dir) dir=$2; shift 2 ;;
    --bin) bin=$2; shift 2 ;;
    *) echo "usage: $0 --bin BUILD_DIR [--size quick|full|MB] [--dir DIR]" >&2; exit 2 ;;
  esac
done
case $size in
  quick) mb=500 ;;
  full) mb=5000 ;;
  *[!0-9]* | '') echo "make_data: --size takes quick, full or a number of MB" >&2; exit 2 ;;
  *) mb=$size ;;
esac
if [ -z "$bin" ] || [ ! -x "$bin/kinefix-index" ]; then
  echo "make_data: --bin must name a build directory holding kinefix-index" >&2
  exit 2
fi
for tool in ffmpeg ffprobe; do
  command -v $tool >/dev/null || { echo "make_data: $tool is missing (apt-get install ffmpeg)" >&2; exit 1; }
done

# shellcheck source=bench/bench_lib.sh
. "$(dirname "$0")/bench_lib.sh"

# The index with every position spelled out, as a recorder's own index writer lists them.
write_positions() {
  awk -F';' '
    /^[#{]/ { print; next }
    {
      line = ""
      for (i = 1; i <= NF; i++) {
        if ($i ~ /^[\r\n]*$/) continue
        n = split($i, f, ",")
        pos = (f[2] == "" || f[2] == 0) ? next_pos : f[2]
        next_pos = pos + f[3]
        entry = f[1] "," sprintf("%.0f", pos)  # past 2^31, awk would print 5.006e+09
        for (j = 3; j <= n; j++) entry = entry "," f[j]
        line = line entry ";"
      }
      print line
    }' "$set_dir/intact.idx" >"$set_dir/positions.idx"
}

mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
set_dir="$dir/${mb}mb"
if [ -f "$set_dir/ready" ]; then
  [ -s "$set_dir/positions.idx" ] || write_positions
  echo "$set_dir"
  exit 0
fi

# The clip: camera-like 1080p30 at about 16 Mbit/s with B-frames, and 128 kbit/s stereo AAC.
clip="$dir/clip.mp4"
if [ ! -s "$clip" ]; then
  echo "make_data: encoding the 6 s clip" >&2
  ffmpeg -v error -y -nostdin \
    -f lavfi -i "testsrc2=size=1920x1080:rate=30:duration=6" \
    -f lavfi -i "sine=frequency=440:beep_factor=4:sample_rate=48000:duration=6" \
    -c:v libx264 -preset ultrafast -bf 2 -g 60 -b:v 16M -pix_fmt yuv420p \
    -c:a aac -ac 2 -b:a 128k -video_track_timescale 90000 "$clip.part.mp4"
  mv "$clip.part.mp4" "$clip"
fi
clip_bytes=$(stat -c %s "$clip")
repeats=$(( (mb * 1000000 + clip_bytes - 1) / clip_bytes ))

# The intact recording, its copy and the outputs of a benchmark run must all fit.
need_mb=$(( mb * 5 + 1000 ))
free_mb=$(df -Pm "$dir" | awk 'NR == 2 { print $4 }')
if [ "$free_mb" -lt "$need_mb" ]; then
  echo "make_data: $dir has $free_mb MB free; a ${mb} MB benchmark needs about $need_mb MB" >&2
  exit 1
fi

rm -rf "$set_dir"
mkdir -p "$set_dir"
echo "make_data: laying the clip down $repeats times into $set_dir/intact.mp4" >&2
for _ in $(seq "$repeats"); do echo "file '$clip'"; done >"$set_dir/clips.txt"
ffmpeg -v error -y -nostdin -f concat -safe 0 -i "$set_dir/clips.txt" -map 0 -c copy \
  -video_track_timescale 90000 "$set_dir/intact.mp4"
rm -f "$set_dir/clips.txt"

echo "make_data: writing the index" >&2
"$bin/kinefix-index" "$set_dir/intact.mp4" "$set_dir/intact.idx" >&2
write_positions

echo "make_data: cutting the index off a copy: damaged.mp4" >&2
cut_before_moov "$set_dir/intact.mp4" "$set_dir/damaged.mp4" ||
  { echo "make_data: no moov box in intact.mp4" >&2; exit 1; }
if ffprobe -v error "$set_dir/damaged.mp4" >/dev/null 2>&1; then
  echo "make_data: ffprobe still reads damaged.mp4" >&2
  exit 1
fi
sync
touch "$set_dir/ready"
echo "$set_dir"
