#!/usr/bin/env bash
# The real kinefix-gui window under Xvfb, saved as PNGs in four states: empty, repairing at
# about half, done and failed (a real repair of a recording made by ffmpeg, then one with an
# index kinefix refuses).
#   scripts/screenshots.sh [BUILD_DIR] [OUT_DIR]     (defaults: build, BUILD_DIR/screenshots)
# Set KINEFIX_GUI_SCALE=2 for the same at 200 % scaling.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/shell_helpers.sh
. scripts/shell_helpers.sh

build=${1:-build}
out=${2:-$build/screenshots}
cmake --build "$build" --target kinefix-gui kinefix kinefix-index kinefix-crypt >/dev/null
bin=$(cd "$build" && pwd)
mkdir -p "$out"
out=$(cd "$out" && pwd)

work=$(mktemp -d /tmp/demo.XXXXXX)
trap 'rm -rf "$work"' EXIT
# The programs' logs and the window's settings stay in the scratch folder.
export HOME="$work" XDG_STATE_HOME="$work/state" XDG_CONFIG_HOME="$work/config"
export QT_QPA_PLATFORM=xcb QT_SCALE_FACTOR="${KINEFIX_GUI_SCALE:-1}"
media="$work/Videos"
mkdir -p "$media"

# 30 s of 640x360 H.264 + AAC; the index kept while healthy; the file cut at its index box.
ffmpeg -v error -y -nostdin -f lavfi -i "testsrc2=size=640x360:rate=30:duration=30" \
  -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=30" \
  -c:v libx264 -preset ultrafast -g 60 -pix_fmt yuv420p -c:a aac -b:a 96k "$work/healthy.mp4"
"$bin/kinefix-index" "$work/healthy.mp4" "$media/GOPR0042.idx"
cut_before_moov "$work/healthy.mp4" "$media/GOPR0042.MP4"
cp "$media/GOPR0042.MP4" "$media/GOPR0043.MP4"
sed '1s/.*/#version=9/' "$media/GOPR0042.idx" > "$media/GOPR0043.idx"

shoot() {  # RUN_NAME FILE
  timeout 120 xvfb-run -a -s "-screen 0 1600x1200x24" \
    env KINEFIX_GUI_SCREENSHOTS="$work/$1" "$bin/kinefix-gui" "$2" >"$work/$1.log" 2>&1 ||
    { cat "$work/$1.log" >&2; echo "kinefix-gui failed under Xvfb ($1)" >&2; exit 1; }
}
shoot good "$media/GOPR0042.MP4"
shoot bad "$media/GOPR0043.MP4"
cp "$work/good/empty.png" "$work/good/repairing.png" "$work/good/done.png" "$out/"
cp "$work/bad/failed.png" "$out/"

for s in empty repairing done failed; do
  [ -s "$out/$s.png" ] || { echo "missing screenshot: $out/$s.png" >&2; exit 1; }
done
if [ "$(md5sum "$out"/{empty,repairing,done,failed}.png | cut -d' ' -f1 | sort -u | wc -l)" -ne 4 ]; then
  echo "screenshots are not all different" >&2
  exit 1
fi
echo "$out: empty.png repairing.png done.png failed.png"
