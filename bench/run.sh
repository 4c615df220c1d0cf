#!/usr/bin/env bash
# Times a kinefix repair against cp and ffmpeg -c copy on the same recording and disk, and
# checks that the repair gives back every packet of the intact recording.
#   bench/run.sh [--size quick|full|MB[,...]] [--runs N] [--dir DIR] [--bin BUILD_DIR] [--no-verify]
#                [--realtime]
# Sizes: quick = 0.5 GB, full = 5 GB; several (quick,full) also report how memory grows.
# --realtime runs every timed command (and its sync) at real-time priority, so that other work
# on a busy machine disturbs the comparison less.
# Each timed run starts from a dropped page cache when the machine allows it (root); otherwise
# from a warm one, and the output says so. Every time includes a sync of what was written.
# Without --bin, the release kinefix (static FFmpeg, scripts/build_release.sh) is built into
# ${KINEFIX_BUILD_DIR:-build-release}.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=bench/bench_lib.sh
. bench/bench_lib.sh

sizes=quick
runs=7
dir=${KINEFIX_BENCH_DIR:-${TMPDIR:-/tmp}/kinefix-bench}
bin=
verify=1
rt=()
command_line="bench/run.sh $*"
while [ $# -gt 0 ]; do
  case $1 in
    --size) sizes=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --dir) dir=$2; shift 2 ;;
    --bin) bin=$2; shift 2 ;;
    --no-verify) verify=0; shift ;;
    --realtime) rt=(chrt -f 10); shift ;;
    *) sed -n '4,12p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2 ;;
  esac
done
case $runs in *[!0-9]* | '' | 0) echo "run.sh: --runs takes a positive number" >&2; exit 2 ;; esac

[ -x /usr/bin/time ] || { echo "run.sh: needs GNU time in /usr/bin/time (apt-get install time)" >&2; exit 1; }
if [ -z "$bin" ]; then
  build_log=$(mktemp)
  bin=$(bash scripts/build_release.sh "${KINEFIX_BUILD_DIR:-build-release}" 2>"$build_log" | tail -n1) ||
    { cat "$build_log" >&2; rm -f "$build_log"; exit 1; }
  rm -f "$build_log"
fi
bin=$(cd "$bin" && pwd)
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
# kinefix's log and settings stay with the benchmark, not in the home directory.
export XDG_STATE_HOME="$dir/state"

if (sync && echo 3 >/proc/sys/vm/drop_caches) 2>/dev/null; then
  cache="cold (page cache dropped before each run)"
  cold=1
else
  cache="WARM (cannot drop the page cache without root; inputs read once before each run)"
  cold=0
fi

# Clean slate for one timed run: no earlier output, nothing dirty, inputs cold (or all warm).
# The recordings are read once before the cache is dropped, so that every run finds the same
# amount of recently used free memory: a virtual machine's host takes idle free memory back,
# and the first touch of such a page is slow, which would favour whichever tool happened to
# run right after a big one.
prepare() {
  rm -f "$out"/*
  sync
  cat "$damaged" "$intact" "$@" >/dev/null
  if [ "$cold" = 1 ]; then
    sync
    echo 3 >/proc/sys/vm/drop_caches
  fi
}

# time_one TOOL STDOUT COMMAND...: wall time including the sync, the program's own time, and its
# peak memory.
time_one() {
  local tool=$1 stdout=$2 t0 tp t1
  shift 2
  t0=$(date +%s%N)
  if ! "${rt[@]}" /usr/bin/time -v -o "$work/time.txt" "$@" >"$stdout" 2>"$work/$tool.err"; then
    echo "run.sh: $tool failed:" >&2
    tail -5 "$work/$tool.err" >&2
    exit 1
  fi
  tp=$(date +%s%N)
  "${rt[@]}" sync
  t1=$(date +%s%N)
  secs[$tool]+=" $(awk -v n=$((t1 - t0)) 'BEGIN { printf "%.3f", n / 1e9 }')"
  proc[$tool]+=" $(awk -v n=$((tp - t0)) 'BEGIN { printf "%.3f", n / 1e9 }')"
  kb[$tool]+=" $(awk '/Maximum resident set size/ { print $NF }' "$work/time.txt")"
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
verdict() { awk -v r="$1" -v t="$2" 'BEGIN { print (r <= t ? "OK" : "MISSED") }'; }

# What starting each program costs with nothing to do, from a cold cache: shared libraries
# are read from disk then, and that weighs on small inputs.
cold_start() {
  local i tool t0 t1
  declare -A start=()
  for ((i = 0; i < 5; i++)); do
    for tool in cp ffmpeg kinefix; do
      sync
      [ "$cold" = 1 ] && echo 3 >/proc/sys/vm/drop_caches
      t0=$(date +%s%N)
      case $tool in
        cp) "${rt[@]}" cp --version >/dev/null ;;
        ffmpeg) "${rt[@]}" ffmpeg -version >/dev/null ;;
        kinefix) "${rt[@]}" "$bin/kinefix" >/dev/null || true ;;  # no argument: exits at once
      esac
      t1=$(date +%s%N)
      start[$tool]+=" $(awk -v n=$((t1 - t0)) 'BEGIN { printf "%.3f", n / 1e9 }')"
    done
  done
  for tool in cp ffmpeg kinefix; do
    # shellcheck disable=SC2086
    start_s[$tool]=$(median ${start[$tool]})
  done
  echo "start-up with nothing to do ($( [ "$cold" = 1 ] && echo cold || echo warm ), median of 5):" \
    "cp ${start_s[cp]} s, ffmpeg ${start_s[ffmpeg]} s, kinefix ${start_s[kinefix]} s"
}

tools=(cat cp ffmpeg kinefix kinefix-pos)
declare -A first_mb last_mb start_s
first_packets=0
last_packets=0
report_sizes=()

bench_size() {
  local size=$1 set_dir damaged intact index positions bytes intact_bytes packets tool i j order
  set_dir=$(bash bench/make_data.sh --bin "$bin" --size "$size" --dir "$dir" | tail -1)
  damaged=$set_dir/damaged.mp4
  intact=$set_dir/intact.mp4
  index=$set_dir/intact.idx
  positions=$set_dir/positions.idx
  out=$set_dir/out
  work=$set_dir/work
  mkdir -p "$out" "$work"
  bytes=$(stat -c %s "$damaged")
  intact_bytes=$(stat -c %s "$intact")
  packets=$(tr -cd ';' <"$index" | wc -c)

  declare -gA secs=() proc=() kb=()
  echo
  echo "== $size: damaged $bytes bytes + index $(stat -c %s "$index") bytes ($packets packets); intact $intact_bytes bytes"
  echo "   $runs runs, $cache${rt:+, real-time priority}; load average at start:$(cut -d' ' -f1-3 /proc/loadavg | sed 's/^/ /')"
  for ((i = 0; i < runs; i++)); do
    # A different tool goes first in each round.
    order=()
    for ((j = 0; j < ${#tools[@]}; j++)); do order+=("${tools[(i + j) % ${#tools[@]}]}"); done
    for tool in "${order[@]}"; do
      case $tool in
        cat) prepare "$damaged"; time_one cat /dev/null cat "$damaged" ;;
        cp) prepare "$damaged"; time_one cp /dev/null cp "$damaged" "$out/cp.mp4" ;;
        ffmpeg)
          prepare "$intact"
          time_one ffmpeg /dev/null ffmpeg -v error -nostdin -y -i "$intact" -map 0 -c copy "$out/ffmpeg.mp4" ;;
        kinefix)
          prepare "$damaged" "$index"
          time_one kinefix "$work/kinefix.out" "$bin/kinefix" "$damaged" "$index" "$out/kinefix.mp4"
          mv "$out/kinefix.mp4" "$work/kinefix.mp4" ;;
        kinefix-pos)
          prepare "$damaged" "$positions"
          time_one kinefix-pos "$work/kinefix-pos.out" "$bin/kinefix" "$damaged" "$positions" "$out/kinefix.mp4"
          mv "$out/kinefix.mp4" "$work/kinefix-pos.mp4" ;;
      esac
    done
  done
  echo "   load average at end:$(cut -d' ' -f1-3 /proc/loadavg | sed 's/^/ /')"

  declare -A med mib
  printf '   %-31s %9s %8s %9s %9s   %s\n' "" "median s" "MB/s" "w/o sync" "peak MiB" "all runs (s)"
  for tool in "${tools[@]}"; do
    # shellcheck disable=SC2086
    med[$tool]=$(median ${secs[$tool]})
    # shellcheck disable=SC2086
    mib[$tool]=$(awk -v k="$(maximum ${kb[$tool]})" 'BEGIN { printf "%.1f", k / 1024 }')
    local input=$bytes label
    [ "$tool" = ffmpeg ] && input=$intact_bytes
    case $tool in
      cat) label="cat (read only)" ;;
      cp) label="cp + sync" ;;
      ffmpeg) label="ffmpeg -c copy + sync" ;;
      kinefix) label="kinefix + sync" ;;
      kinefix-pos) label="kinefix, positions given + sync" ;;
    esac
    # shellcheck disable=SC2086
    printf '   %-31s %9.3f %8.1f %9.3f %9s  %s\n' "$label" "${med[$tool]}" \
      "$(awk -v b="$input" -v s="${med[$tool]}" 'BEGIN { print b / s / 1e6 }')" "$(median ${proc[$tool]})" \
      "${mib[$tool]}" "${secs[$tool]}"
  done
  local k r
  for k in kinefix kinefix-pos; do
    r=$(ratio "${med[$k]}" "${med[cp]}")
    echo "   $k / cp = $r (target <= 1.25: $(verdict "$r" 1.25));" \
      "$k / ffmpeg = $(ratio "${med[$k]}" "${med[ffmpeg]}")" \
      "(target <= 0.75: $(verdict "$(ratio "${med[$k]}" "${med[ffmpeg]}")" 0.75))"
  done
  if [ -n "${start_s[kinefix]:-}" ]; then
    echo "   less each program's cold start: kinefix / cp = $(ratio \
      "$(awk -v a="${med[kinefix]}" -v b="${start_s[kinefix]}" 'BEGIN { print a - b }')" \
      "$(awk -v a="${med[cp]}" -v b="${start_s[cp]}" 'BEGIN { print a - b }')"), kinefix / ffmpeg = $(ratio \
      "$(awk -v a="${med[kinefix]}" -v b="${start_s[kinefix]}" 'BEGIN { print a - b }')" \
      "$(awk -v a="${med[ffmpeg]}" -v b="${start_s[ffmpeg]}" 'BEGIN { print a - b }')")"
  fi
  echo "   peak memory: kinefix ${mib[kinefix]} MiB, ffmpeg ${mib[ffmpeg]} MiB" \
    "(kinefix <= ffmpeg: $(verdict "${mib[kinefix]}" "${mib[ffmpeg]}"))"

  local moov repaired=$work/kinefix.mp4
  moov=$(moov_offset "$repaired")
  if [ -n "$moov" ] && [ "$(tail -c +$((moov + 1)) "$repaired" | grep -ca co64 || true)" -gt 0 ]; then
    echo "   repaired file's chunk offsets: co64 (64-bit)"
  else
    echo "   repaired file's chunk offsets: stco (32-bit)"
  fi
  if cmp -s "$repaired" "$work/kinefix-pos.mp4"; then
    echo "   both indexes give byte-identical files"
  else
    echo "   the two indexes gave different files" >&2
    exit 1
  fi
  if [ "$verify" = 1 ]; then
    local a=$set_dir/intact.framemd5 b=$work/kinefix.framemd5
    [ -s "$a" ] || ffmpeg -v error -nostdin -i "$intact" -map 0 -c copy -f framemd5 - | grep -v '^#' >"$a"
    ffmpeg -v error -nostdin -i "$repaired" -map 0 -c copy -f framemd5 - | grep -v '^#' >"$b"
    if cmp -s "$a" "$b"; then
      echo "   bit-exact: all $(wc -l <"$a") packets equal the intact recording's" \
        "(framemd5 -c copy: stream, dts, pts, duration, size, MD5)"
    else
      echo "   NOT bit-exact: the repaired packets differ from the intact recording's:"
      diff "$a" "$b" | head -5 | sed 's/^/     /'
      exit 1
    fi
  fi
  rm -rf "$out" "$work"

  if [ "${#report_sizes[@]}" -eq 0 ]; then
    for tool in kinefix ffmpeg; do first_mb[$tool]=${mib[$tool]}; done
    first_packets=$packets
  fi
  for tool in kinefix ffmpeg; do last_mb[$tool]=${mib[$tool]}; done
  last_packets=$packets
  report_sizes+=("$size")
}

echo "kinefix benchmark: $command_line"
echo "kinefix from $bin; $(ffmpeg -version | head -1 | cut -d' ' -f1-3); $(nproc) cores; data in $dir"
cold_start
IFS=, read -r -a size_list <<<"$sizes"
for size in "${size_list[@]}"; do bench_size "$size"; done

if [ "${#report_sizes[@]}" -gt 1 ] && [ "$last_packets" -gt "$first_packets" ]; then
  echo
  echo "== memory growth from ${report_sizes[0]} to ${report_sizes[-1]} ($((last_packets - first_packets)) more packets)"
  for tool in kinefix ffmpeg; do
    awk -v t="$tool" -v a="${first_mb[$tool]}" -v b="${last_mb[$tool]}" -v n=$((last_packets - first_packets)) \
      'BEGIN { printf "   %-8s %.1f -> %.1f MiB: %+.1f MiB, %.0f bytes per extra packet\n", t, a, b, b - a, (b - a) * 1048576 / n }'
  done
fi
