#!/usr/bin/env bash
# Times the rescue path (kinefix-index --reference, then kinefix) on a recording whose index was
# cut off, against cp of the same file, and checks the repair packet for packet.
#   bench/rescue.sh [--size quick|full|MB] [--runs N] [--dir DIR] [--bin BUILD_DIR] [--realtime]
# The data is bench/make_data.sh's: damaged.mp4 (0.5 GB for quick) and, as the reference, a
# 6 s recording with the same settings. Each timed run starts from a dropped
# page cache when the machine allows it (root) and ends with a sync. Targets: scan + repair
# within 1.5 x cp + sync, and the scan's peak memory at most 32 MiB.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=bench/bench_lib.sh
. bench/bench_lib.sh

size=quick
runs=5
dir=${KINEFIX_BENCH_DIR:-${TMPDIR:-/tmp}/kinefix-bench}
bin=
rt=()
while [ $# -gt 0 ]; do
  case $1 in
    --size) size=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --dir) dir=$2; shift 2 ;;
    --bin) bin=$2; shift 2 ;;
    --realtime) rt=(chrt -f 10); shift ;;
    *) sed -n '4,9p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2 ;;
  esac
done
[ -x /usr/bin/time ] || { echo "rescue.sh: needs GNU time in /usr/bin/time" >&2; exit 1; }
if [ -z "$bin" ]; then
  bin=$(bash scripts/build_release.sh "${KINEFIX_BUILD_DIR:-build-release}" | tail -n1)
fi
bin=$(cd "$bin" && pwd)
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
export XDG_STATE_HOME="$dir/state"
set_dir=$(bash bench/make_data.sh --bin "$bin" --size "$size" --dir "$dir" | tail -1)
damaged=$set_dir/damaged.mp4
intact=$set_dir/intact.mp4
work=$set_dir/rescue
# The reference: the recording's first 6 s as a file of its own, so that it starts on the same
# clock (the data's audio was laid down clip after clip and does not start at the clip's time).
reference=$set_dir/reference.mp4
[ -s "$reference" ] || ffmpeg -v error -nostdin -y -i "$intact" -t 6 -map 0 -c copy \
  -video_track_timescale 90000 "$reference"
mkdir -p "$work"

cold=0
if (sync && echo 3 >/proc/sys/vm/drop_caches) 2>/dev/null; then cold=1; fi
prepare() {
  rm -f "$work"/out.* "$work"/index.idx
  sync
  cat "$damaged" "$reference" >/dev/null
  if [ "$cold" = 1 ]; then sync; echo 3 >/proc/sys/vm/drop_caches; fi
}
now() { date +%s%N; }
secs() { awk -v n="$1" 'BEGIN { printf "%.3f", n / 1e9 }'; }
peak() { awk '/Maximum resident set size/ { printf "%.1f", $NF / 1024 }' "$1"; }

cp_s=() rescue_s=() scan_s=() scan_mib=() repair_mib=()
for ((i = 0; i < runs; i++)); do
  prepare
  t0=$(now)
  "${rt[@]}" cp "$damaged" "$work/out.cp"
  "${rt[@]}" sync
  cp_s+=("$(secs $(($(now) - t0)))")

  prepare
  t0=$(now)
  "${rt[@]}" /usr/bin/time -v -o "$work/scan.time" "$bin/kinefix-index" --reference "$reference" \
    "$damaged" "$work/index.idx" >/dev/null 2>"$work/scan.err" ||
    { cat "$work/scan.err" >&2; exit 1; }
  t1=$(now)
  "${rt[@]}" /usr/bin/time -v -o "$work/repair.time" "$bin/kinefix" "$damaged" "$work/index.idx" \
    "$work/out.mp4" >/dev/null 2>&1
  "${rt[@]}" sync
  rescue_s+=("$(secs $(($(now) - t0)))")
  scan_s+=("$(secs $((t1 - t0)))")
  scan_mib+=("$(peak "$work/scan.time")")
  repair_mib+=("$(peak "$work/repair.time")")
done

bytes=$(stat -c %s "$damaged")
cp_m=$(median "${cp_s[@]}")
rescue_m=$(median "${rescue_s[@]}")
ratio=$(awk -v a="$rescue_m" -v b="$cp_m" 'BEGIN { printf "%.2f", a / b }')
mem=$(maximum "${scan_mib[@]}")
echo "rescue benchmark: $size ($bytes bytes), $runs runs, $([ "$cold" = 1 ] && echo "cold cache" || echo "WARM cache (not root)")"
echo "  cp + sync:                      median $cp_m s   (${cp_s[*]})"
echo "  scan + repair + sync:           median $rescue_m s   (${rescue_s[*]})"
echo "    of which the scan:            median $(median "${scan_s[@]}") s"
echo "  ratio (target <= 1.5):          $ratio $(awk -v r="$ratio" 'BEGIN { print (r <= 1.5 ? "OK" : "MISSED") }')"
echo "  peak memory scan / repair:      $mem / $(maximum "${repair_mib[@]}") MiB (scan target <= 32: $(awk -v m="$mem" 'BEGIN { print (m <= 32 ? "OK" : "MISSED") }'))"
tail -1 "$work/scan.err" | sed 's/^/  /'
# Every packet's bytes, in order per stream, and the video's times exactly. The audio's times cannot be
# compared: the data's audio jumps where one copy of the clip ends and the next begins, which
# no camera does and a rescue by frame count does not reproduce.
a=$set_dir/intact.framemd5
[ -s "$a" ] || ffmpeg -v error -nostdin -i "$intact" -map 0 -c copy -f framemd5 - | grep -v '^#' >"$a"
ffmpeg -v error -nostdin -i "$work/out.mp4" -map 0 -c copy -f framemd5 - | grep -v '^#' >"$work/out.framemd5"
per_stream() { cut -d, -f1,5,6 "$1" | sort -s -t, -k1,1; }
if cmp -s <(per_stream "$a") <(per_stream "$work/out.framemd5") &&
  cmp -s <(grep '^0,' "$a") <(grep '^0,' "$work/out.framemd5"); then
  echo "  all $(wc -l <"$a") packets equal the intact recording's (framemd5: bytes; video times too)"
else
  echo "  the repair differs from the intact recording" >&2
  exit 1
fi
rm -rf "$work"
