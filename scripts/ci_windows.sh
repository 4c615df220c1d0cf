#!/usr/bin/env bash
# CI stage for Windows: cross-builds the .exe files, runs the unit tests and real repairs under
# wine, and fails on any difference from what the Linux programs produce.
#
#   scripts/ci_windows.sh
#
# KINEFIX_CACHE (default ~/.cache/kinefix) keeps the Windows FFmpeg and a locale between runs.
# The wine prefix is fresh for every run unless KINEFIX_WINEPREFIX names one to reuse.
# KINEFIX_LINUX_BUILD / KINEFIX_WIN_BUILD choose the build directories (build, build-win);
# KINEFIX_CI_KEEP=1 keeps the scratch directory for a look after a failure.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/shell_helpers.sh
. scripts/shell_helpers.sh
root=$PWD
start=$(date +%s)
failures=0

step() { echo "== [windows] $*"; }
fail() {
  echo "FAIL [windows]: $*" >&2
  failures=$((failures + 1))
}

step "dependencies"
bash scripts/install_deps.sh --windows
export KINEFIX_CACHE="${KINEFIX_CACHE:-$HOME/.cache/kinefix}"
mkdir -p "$KINEFIX_CACHE"

step "FFmpeg for Windows (cached)"
t0=$(date +%s)
ffmpeg_prefix=$(bash scripts/build_ffmpeg.sh --windows)
echo "   $ffmpeg_prefix ($(($(date +%s) - t0)) s)"

jobs=$(nproc)
linux_build="${KINEFIX_LINUX_BUILD:-build}"
win_build="${KINEFIX_WIN_BUILD:-build-win}"

step "Linux programs ($linux_build)"
cmake -S . -B "$linux_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$linux_build" -j "$jobs" --target kinefix kinefix-index kinefix-crypt
linux_bin="$root/$linux_build"

step "cross build ($win_build)"
t0=$(date +%s)
forget_other_ffmpeg "$win_build" "$ffmpeg_prefix"
cmake -S . -B "$win_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
  -DKINEFIX_FFMPEG_PREFIX="$ffmpeg_prefix" >/dev/null
cmake --build "$win_build" -j "$jobs"
win_bin="$root/$win_build"
echo "   built in $(($(date +%s) - t0)) s"
for exe in kinefix.exe kinefix-index.exe; do
  [ -f "$win_bin/$exe" ] || { echo "missing $win_bin/$exe" >&2; exit 1; }
  # Self-contained: nothing but system DLLs may be imported.
  extra=$(x86_64-w64-mingw32-objdump -p "$win_bin/$exe" | awk '/DLL Name:/ {print tolower($3)}' |
    grep -v -E '^(kernel32|msvcrt|advapi32|shell32|user32|ole32|bcrypt|ws2_32|ntdll|gdi32|oleaut32|shlwapi)\.dll$' || true)
  [ -z "$extra" ] || fail "$exe needs DLLs beside it: $extra"
done

work=$(mktemp -d "${TMPDIR:-/tmp}/kinefix-win-ci.XXXXXX")
export WINEPREFIX="${KINEFIX_WINEPREFIX:-$work/wineprefix}"
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  if [ -n "${KINEFIX_CI_KEEP:-}" ]; then echo "kept $work"; else rm -rf "$work"; fi
}
trap cleanup EXIT

# The original users run a Chinese Windows: code page 936 for the ANSI arguments. Wine takes
# its code page from the Unix locale, which is generated once into the cache.
locale_dir="$KINEFIX_CACHE/locale"
if [ ! -d "$locale_dir/zh_CN.UTF-8" ]; then
  mkdir -p "$locale_dir"
  localedef -i zh_CN -f UTF-8 "$locale_dir/zh_CN.UTF-8" || true
fi
if [ -d "$locale_dir/zh_CN.UTF-8" ]; then
  cjk=(env LOCPATH="$locale_dir" LANG=zh_CN.UTF-8 LC_ALL=zh_CN.UTF-8)
else
  fail "cannot generate the zh_CN.UTF-8 locale (package locales)"
  cjk=(env LANG=C.UTF-8 LC_ALL=C.UTF-8)
fi
wine_c=(env LANG=C.UTF-8 LC_ALL=C.UTF-8 bash "$root/scripts/wine_run.sh")  # code page 1252
wine_zh=("${cjk[@]}" bash "$root/scripts/wine_run.sh")                     # code page 936
wine_run() { "${wine_c[@]}" "$@"; }
wine_cjk() { "${wine_zh[@]}" "$@"; }
# Unix path to the Windows spelling wine gives it: drive Z:, backslashes.
winpath() { printf 'Z:%s' "${1//\//\\}"; }

step "wine prefix $WINEPREFIX"
t0=$(date +%s)
wine_run cmd /c exit 0 >/dev/null 2>&1 || true
echo "   ready in $(($(date +%s) - t0)) s"

# ---- Unit tests -------------------------------------------------------------------------------

step "unit tests under wine"
unit_total=0
run_unit() {  # exe, label, runner...
  local exe=$1 label=$2 name log passed t0
  shift 2
  name=$(basename "$exe" .exe)
  log="$work/$name.$label.log"
  t0=$(date +%s)
  if (cd "$work" && timeout 900 "$@" "$exe" --gtest_brief=1 >"$log" 2>&1); then
    passed=$(tr -d '\r' <"$log" | sed -n 's/^\[  PASSED  \] \([0-9]*\) test.*/\1/p' | tail -n1)
    unit_total=$((unit_total + ${passed:-0}))
    echo "   $name ($label): ${passed:-?} passed ($(($(date +%s) - t0)) s)"
  else
    if ! tr -d '\r' <"$log" | grep -a -E -A6 'Failure|FAILED' | head -n 60 >&2; then
      tail -n 20 "$log" >&2
    fi
    fail "$name ($label) under wine"
  fi
}
for exe in "$win_bin"/tests/*.exe; do
  run_unit "$exe" "cp1252" "${wine_c[@]}"
  # The Windows-only tests depend on the ANSI code page: once more in the double-byte one.
  case $exe in *_win32_tests.exe) run_unit "$exe" "cp936" "${wine_zh[@]}" ;; esac
done
[ "$unit_total" -gt 0 ] || fail "no unit test ran"

# ---- Base directory: the four candidates --------------------------------------------------------

step "base directory candidates under wine"
bd="$work/basedir"
mkdir -p "$bd/temp/Temp" "$bd/home" "$bd/appdata" "$bd/prog dir"
touch "$bd/blocker"  # a file where a directory would be needed: no candidate below it can exist
cp "$win_bin/kinefix.exe" "$bd/prog dir/kinefix.exe"
W_BD=$(winpath "$bd")
# Wine sets TMP, HOMEPATH and APPDATA from its own profile, so a batch file sets them.
run_with_dirs() {  # tmp home appdata -> stderr of `kinefix a b`
  printf '@echo off\r\nset TMP=%s\r\nset TEMP=%s\r\nset HOMEPATH=%s\r\nset APPDATA=%s\r\n"%s" a b\r\n' \
    "$1" "$1" "$2" "$3" "$W_BD\\prog dir\\kinefix.exe" >"$bd/run.bat"
  (cd "$bd" && wine_run cmd /c "$W_BD\\run.bat" 2>&1 >/dev/null | tr -d '\r') || true
}
check_candidate() {  # label, expected base (Windows spelling), expected Unix dir, tmp, home, appdata
  local label=$1 expected=$2 dir=$3 err
  rm -rf "$dir"
  err=$(run_with_dirs "$4" "$5" "$6")
  if ! grep -qxF "[Zephra] config dir = $expected" <<<"$err"; then
    fail "base directory $label: expected '$expected'; stderr: $err"
  elif [ "$(tr -d '\r' <"$dir/conf/Admin.conf" 2>/dev/null)" != "$(printf '#Zephra Config (#note)\nlog.level : 2\nlog.stdout : false\nlog.tag : ')" ]; then
    fail "base directory $label: no default Admin.conf in $dir"
  elif ! ls "$dir/log/" 2>/dev/null | grep -qE '^Admin[0-9]{4}-[0-9]{2}-[0-9]{2}\.log$'; then
    fail "base directory $label: no dated log file in $dir/log"
  else
    echo "   $label: $expected"
  fi
}
check_candidate "1 (temporary directory)" "$W_BD\\temp\\Temp\\/../kinefix" "$bd/temp/kinefix" \
  "$W_BD\\temp\\Temp" "$W_BD\\home" "$W_BD\\appdata"
check_candidate "2 (HOMEPATH)" "$W_BD\\home/kinefix" "$bd/home/kinefix" \
  "$W_BD\\blocker\\Temp" "$W_BD\\home" "$W_BD\\appdata"
check_candidate "3 (APPDATA)" "$W_BD\\appdata/kinefix" "$bd/appdata/kinefix" \
  "$W_BD\\blocker\\Temp" "$W_BD\\blocker\\home" "$W_BD\\appdata"
check_candidate "4 (program directory)" "$W_BD\\prog dir\\kinefix" "$bd/prog dir/kinefix" \
  "$W_BD\\blocker\\Temp" "$W_BD\\blocker\\home" "$W_BD\\blocker\\appdata"

# ---- End-to-end repairs -----------------------------------------------------------------------

step "end-to-end repairs: Linux kinefix against kinefix.exe under wine"

# Loses the recording's own index, keeping every media byte where it was.
damage() {
  local file=$1
  case "$file" in
    *.mkv)
      printf '\0\0\0\0' | dd of="$file" bs=1 seek=0 conv=notrunc status=none ;;
    *)
      destroy_moov "$file" ;;
  esac
}
framemd5() { ffmpeg -v error -nostdin -i "$1" -map 0 -c copy -f framemd5 - 2>/dev/null; }
packet_hashes() { framemd5 "$1" | grep -v '^#' | awk -F', *' '{print $5, $6}' | sort; }

linux_env=(env HOME="$work/linux-home" XDG_STATE_HOME="$work/linux-home/state"
  XDG_CONFIG_HOME="$work/linux-home/config" TMPDIR="$work")
mkdir -p "$work/linux-home"
src="$work/src"
windir="$work/Windows dir/视频 vidéo"  # spaces and non-ASCII on the Windows side
mkdir -p "$src" "$windir"

record() {  # name, extra ffmpeg output options...
  local out=$1
  shift
  ffmpeg -v error -nostdin -y -f lavfi -i testsrc=size=320x240:rate=25:duration=2 \
    -f lavfi -i sine=frequency=440:sample_rate=48000:duration=2 "$@" "$out"
}
record "$src/one.mp4" -c:v libx264 -preset ultrafast -bf 2 -g 25 -pix_fmt yuv420p -c:a aac -b:a 64k
record "$src/two.mov" -c:v libx264 -preset ultrafast -bf 0 -g 12 -pix_fmt yuv420p -c:a aac -b:a 96k \
  -movflags +faststart
record "$src/three.mkv" -c:v libx264 -preset ultrafast -bf 2 -g 25 -pix_fmt yuv420p -c:a aac -b:a 64k
record "$src/four.mp4" -map 0:v -c:v libx264 -preset ultrafast -bf 1 -g 10 -pix_fmt yuv420p
record "$src/five.mp4" -c:v libx265 -preset ultrafast -bf 2 -g 25 -pix_fmt yuv420p \
  -x265-params log-level=error -tag:v hvc1 -c:a aac -b:a 64k
record "$src/six.mov" -c:v libx264 -preset ultrafast -bf 2 -g 25 -pix_fmt yuv420p -c:a pcm_s16le

# name  recording   output extension  Windows command-line form
cases=(
  "one   one.mp4   mp4 positional"
  "two   two.mov   mkv clear-text"
  "three three.mkv mov protected-text"
  "four  four.mp4  mp4 positional-mixed"
  "five  five.mp4  mp4 positional"
  "six   six.mov   mov clear-text"
)
repairs=0
for c in "${cases[@]}"; do
  read -r name rec ext form <<<"$c"
  ext_in=${rec##*.}
  t0=$(date +%s)

  # The index comes from the Linux tool; kinefix-index.exe must write the same one.
  "$linux_bin/kinefix-index" "$src/$rec" "$src/$name.idx" >/dev/null
  (cd "$src" && wine_cjk "$win_bin/kinefix-index.exe" "$(winpath "$src/$rec")" "$(winpath "$windir/索引 $name.idx")") \
    >"$work/$name.index-win.out" 2>&1 || fail "$name: kinefix-index.exe failed: $(tr -d '\r' <"$work/$name.index-win.out")"
  if ! cmp -s <(tr -d '\r' <"$src/$name.idx") <(tr -d '\r' <"$windir/索引 $name.idx" 2>/dev/null); then
    fail "$name: kinefix-index.exe wrote a different index"
  fi

  cp "$src/$rec" "$src/$name.broken.$ext_in"
  damage "$src/$name.broken.$ext_in" || { fail "$name: cannot damage $rec"; continue; }
  if ffprobe -v quiet "$src/$name.broken.$ext_in"; then
    fail "$name: damaged copy still opens"
  fi
  cp "$src/$name.broken.$ext_in" "$windir/损坏 $name.$ext_in"
  cp "$src/$name.idx" "$windir/$name index.idx"

  # Linux reference run.
  "${linux_env[@]}" "$linux_bin/kinefix" "$src/$name.broken.$ext_in" "$src/$name.idx" \
    "$src/$name.linux.$ext" >"$work/$name.linux.out" 2>"$work/$name.linux.err" || true

  wb=$(winpath "$windir/损坏 $name.$ext_in")
  wm=$(winpath "$windir/$name index.idx")
  wo=$(winpath "$windir/修复 $name.$ext")
  case $form in
    positional) args=("$wb" "$wm" "$wo") ;;
    positional-mixed) args=("${wb//\\//}" "${wm//\\//}" "$wo") ;;
    clear-text) args=("{\"broken_file\":\"$wb\",\"moov_file\":\"$wm\",\"output_file\":\"$wo\"}") ;;
    protected-text) args=("$("$linux_bin/kinefix-crypt" options "$wb" "$wm" "$wo")") ;;
  esac
  rc=0
  (cd "$work" && wine_cjk "$win_bin/kinefix.exe" "${args[@]}") >"$work/$name.win.out" 2>"$work/$name.win.err" || rc=$?
  win_out="$windir/修复 $name.$ext"

  if [ "$rc" -ne 0 ]; then
    fail "$name ($form): kinefix.exe returned $rc"
  elif [ ! -s "$win_out" ]; then
    fail "$name ($form): kinefix.exe wrote no output; stderr: $(tr -d '\r' <"$work/$name.win.err" | tail -n 5)"
  elif [ ! -s "$src/$name.linux.$ext" ]; then
    fail "$name: the Linux kinefix wrote no output"
  elif ! cmp -s <(framemd5 "$src/$name.linux.$ext") <(framemd5 "$win_out"); then
    fail "$name ($form): packets differ from the Linux repair"
    diff <(framemd5 "$src/$name.linux.$ext") <(framemd5 "$win_out") | head -n 10 >&2 || true
  elif [ -z "$(framemd5 "$win_out" | grep -v '^#')" ]; then
    fail "$name ($form): the repaired file has no packets"
  elif ! cmp -s <(packet_hashes "$src/$rec") <(packet_hashes "$win_out"); then
    fail "$name ($form): the repaired packets are not the recording's"
  elif ! cmp -s <(tr -d '\r' <"$work/$name.linux.out") <(tr -d '\r' <"$work/$name.win.out"); then
    fail "$name ($form): standard output differs from the Linux run"
    diff <(tr -d '\r' <"$work/$name.linux.out") <(tr -d '\r' <"$work/$name.win.out") | head -n 10 >&2 || true
  elif ! ffmpeg -v error -nostdin -i "$win_out" -f null - 2>"$work/$name.decode.err" || [ -s "$work/$name.decode.err" ]; then
    fail "$name ($form): the repaired file does not decode cleanly: $(head -n 3 "$work/$name.decode.err")"
  else
    repairs=$((repairs + 1))
    same="same packets"
    cmp -s "$src/$name.linux.$ext" "$win_out" && same="byte-identical"
    echo "   $name: $rec -> .$ext, $form form, $(framemd5 "$win_out" | grep -vc '^#') packets, $same ($(($(date +%s) - t0)) s)"
  fi
done
# An output that names the damaged file, in the code page's spelling, is refused untouched.
step "refusal: kinefix.exe given its damaged input as the output, in the ANSI code page"
victim="$windir/损坏 one.mp4"
before=$(md5sum <"$victim")
(cd "$work" && wine_cjk "$win_bin/kinefix.exe" "$(winpath "$victim")" "$(winpath "$windir/one index.idx")" \
  "$(winpath "$victim")") >"$work/refusal.out" 2>&1 || true
if [ "$(md5sum <"$victim")" != "$before" ]; then
  fail "refusal: the damaged input was changed"
elif ! tr -d '\r' <"$work/refusal.out" | grep -q '^error:ret=-22,msg=the output file is one of the input files$'; then
  fail "refusal: no refusal line: $(tr -d '\r' <"$work/refusal.out" | tail -n 3)"
else
  echo "   refused, input unchanged"
fi

[ "$repairs" -eq "${#cases[@]}" ] || fail "only $repairs of ${#cases[@]} end-to-end repairs passed"

step "done in $(($(date +%s) - start)) s: $unit_total unit tests, $repairs repairs, $failures failures"
[ "$failures" -eq 0 ]
