#!/usr/bin/env bash
# Times a kinefix repair against cp and ffmpeg -c copy on the same recording and disk, and
# checks that the repair gives back every packet of the intact recording.
#   bench/run.sh [--size quick|full|MB[,...]] [--runs N] [--dir DIR] [--bin BUILD_DIR] [--no-verify]
# Sizes: quick = 0.5 GB, full = 5 GB; several (quick,full) also report how memory grows.
# Each timed run starts from a dropped page cache when the machine allows it (root); otherwise
# from a warm one, and the output says so. Every time includes a sync of what was written.
# Without --bin, kinefix is built in Release into ${KINEFIX_BUILD_DIR:-build-release}.
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/bench_lib.sh

sizes=quick
runs=7
dir=${KINEFIX_BENCH_DIR:-${TMPDIR:-/tmp}/kinefix-bench}
bin=
verify=1
command_line="bench/run.sh $*"
while [ $# -gt 0 ]; do
  case $1 in
    --size) sizes=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --dir) dir=$2; shift 2 ;;
    --bin) bin=$2; shift 2 ;;
    --no-verify) verify=0; shift ;;
    *) sed -n '4,8p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2 ;;
  esac
done
case $runs in *[!0-9]* | '' | 0) echo "run.sh: --runs takes a positive number" >&2; exit 2 ;; esac

[ -x /usr/bin/time ] || { echo "run.sh: needs GNU time in /usr/bin/time (apt-get install time)" >&2; exit 1; }
if [ -z "$bin" ]; then
  bin=${KINEFIX_BUILD_DIR:-build-release}
  cmake -S . -B "$bin" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$bin" --target kinefix kinefix-index >/dev/null
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
prepare() {
  rm -f "$out"/*
  sync
  if [ "$cold" = 1 ]; then
    echo 3 >/proc/sys/vm/drop_caches
  else
    cat "$@" >/dev/null
  fi
}

# time_one TOOL STDOUT COMMAND...: wall time including the sync, and peak memory.
time_one() {
  local tool=$1 stdout=$2 t0 t1
  shift 2
  t0=$(date +%s%N)
  if ! /usr/bin/time -v -o "$out/../time.txt" "$@" >"$stdout" 2>"$out/../$tool.err"; then
    echo "run.sh: $tool failed:" >&2
    tail -5 "$out/../$tool.err" >&2
    exit 1
  fi
  sync
  t1=$(date +%s%N)
  secs[$tool]+=" $(awk -v n=$((t1 - t0)) 'BEGIN { printf "%.3f", n / 1e9 }')"
  kb[$tool]+=" $(awk '/Maximum resident set size/ { print $NF }' "$out/../time.txt")"
}

tools=(cat cp ffmpeg kinefix)
declare -A first_mb last_mb
first_packets=0
last_packets=0
report_sizes=()

bench_size() {
  local size=$1 set_dir damaged intact index bytes intact_bytes packets tool i j order
  set_dir=$(bash bench/make_data.sh --bin "$bin" --size "$size" --dir "$dir" | tail -1)
  damaged=$set_dir/damaged.mp4
  intact=$set_dir/intact.mp4
  index=$set_dir/intact.idx
  out=$set_dir/out
  mkdir -p "$out"
  bytes=$(stat -c %s "$damaged")
  intact_bytes=$(stat -c %s "$intact")
  packets=$(tr -cd ';' <"$index" | wc -c)

  declare -gA secs=() kb=()
  echo
  echo "== $size: damaged $bytes bytes + index $(stat -c %s "$index") bytes ($packets packets); intact $intact_bytes bytes"
  echo "   $runs runs, $cache; load average at start:$(cut -d' ' -f1-3 /proc/loadavg | sed 's/^/ /')"
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
          time_one kinefix "$out/../kinefix.out" "$bin/kinefix" "$damaged" "$index" "$out/kinefix.mp4"
          mv "$out/kinefix.mp4" "$set_dir/kinefix.keep"
          ;;
      esac
    done
  done
  echo "   load average at end:$(cut -d' ' -f1-3 /proc/loadavg | sed 's/^/ /')"

  declare -A med mib
  printf '   %-22s %9s %9s %10s   %s\n' "" "median s" "MB/s" "peak MiB" "all runs (s)"
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
    esac
    printf '   %-22s %9.3f %9.1f %10s  %s\n' "$label" "${med[$tool]}" \
      "$(awk -v b="$input" -v s="${med[$tool]}" 'BEGIN { print b / s / 1e6 }')" "${mib[$tool]}" "${secs[$tool]}"
  done
  local vs_cp vs_ffmpeg
  vs_cp=$(awk -v k="${med[kinefix]}" -v c="${med[cp]}" 'BEGIN { printf "%.2f", k / c }')
  vs_ffmpeg=$(awk -v k="${med[kinefix]}" -v f="${med[ffmpeg]}" 'BEGIN { printf "%.2f", k / f }')
  verdict() { awk -v r="$1" -v t="$2" 'BEGIN { print (r <= t ? "OK" : "MISSED") }'; }
  echo "   kinefix / cp      = $vs_cp  (target <= 1.25: $(verdict "$vs_cp" 1.25))"
  echo "   kinefix / ffmpeg  = $vs_ffmpeg  (target <= 0.75: $(verdict "$vs_ffmpeg" 0.75))"
  echo "   peak memory kinefix ${mib[kinefix]} MiB, ffmpeg ${mib[ffmpeg]} MiB ($(verdict "${mib[kinefix]}" "${mib[ffmpeg]}"))"

  mv "$set_dir/kinefix.keep" "$out/kinefix.mp4"
  local moov
  moov=$(moov_offset "$out/kinefix.mp4")
  if [ -n "$moov" ] && tail -c +$((moov + 1)) "$out/kinefix.mp4" | grep -qa co64; then
    echo "   repaired file's chunk offsets: co64 (64-bit)"
  else
    echo "   repaired file's chunk offsets: stco (32-bit)"
  fi
  if [ "$verify" = 1 ]; then
    local a=$set_dir/intact.framemd5 b=$out/kinefix.framemd5
    [ -s "$a" ] || ffmpeg -v error -nostdin -i "$intact" -map 0 -c copy -f framemd5 - | grep -v '^#' >"$a"
    ffmpeg -v error -nostdin -i "$out/kinefix.mp4" -map 0 -c copy -f framemd5 - | grep -v '^#' >"$b"
    if cmp -s "$a" "$b"; then
      echo "   bit-exact: all $(wc -l <"$a") packets equal the intact recording's (framemd5 -c copy: stream, dts, pts, duration, size, MD5)"
    else
      echo "   NOT bit-exact: the repaired packets differ from the intact recording's:"
      diff "$a" "$b" | head -5 | sed 's/^/     /'
      exit 1
    fi
  fi
  rm -f "$out"/*

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
