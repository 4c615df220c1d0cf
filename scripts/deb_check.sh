#!/usr/bin/env bash
# Builds the Debian package with CPack, unpacks it into a scratch folder (as dpkg would
# install it, without touching the system) and repairs a sample with the unpacked programs:
# the console programs by hand, then kinefix-gui, which must find its siblings beside it.
#   scripts/deb_check.sh [BUILD_DIR]      (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/shell_helpers.sh
. scripts/shell_helpers.sh

build=${1:-build}
cmake --build "$build" >/dev/null
(cd "$build" && rm -f kinefix_*.deb && cpack -G DEB >/dev/null 2>&1) || { echo "cpack failed" >&2; exit 1; }
deb=$(ls "$build"/kinefix_*_*.deb)
echo "package: $deb"

work=$(mktemp -d "${TMPDIR:-/tmp}/kinefix-deb.XXXXXX")
trap 'rm -rf "$work"' EXIT
export HOME="$work/home" XDG_STATE_HOME="$work/home/state" XDG_CONFIG_HOME="$work/home/config"
mkdir -p "$HOME"
dpkg-deb -x "$deb" "$work/root"
bin="$work/root/usr/bin"
for f in usr/bin/kinefix usr/bin/kinefix-index usr/bin/kinefix-crypt usr/bin/kinefix-gui \
         usr/share/applications/kinefix-gui.desktop \
         usr/share/icons/hicolor/256x256/apps/kinefix-gui.png; do
  [ -e "$work/root/$f" ] || { echo "missing from the package: /$f" >&2; exit 1; }
done
# The unpacked programs must not reach back into the build tree.
if ldd "$bin"/* | grep -q "$(cd "$build" && pwd)"; then
  echo "an unpacked program links into the build directory" >&2
  exit 1
fi

cd "$work"
ffmpeg -v error -y -nostdin -f lavfi -i "testsrc=size=320x240:rate=25:duration=4" \
  -f lavfi -i "sine=sample_rate=48000:duration=4" -c:v libx264 -preset ultrafast \
  -pix_fmt yuv420p -c:a aac healthy.mp4
"$bin/kinefix-index" healthy.mp4 sample.idx >/dev/null
cut_before_moov healthy.mp4 sample.mp4
framemd5() { ffmpeg -v error -nostdin -i "$1" -map 0 -c copy -f framemd5 - | grep -v '^#' |
  awk -F', *' '{print $1, $6}'; }
framemd5 healthy.mp4 > want.txt

check() {  # OUTPUT WHAT
  framemd5 "$1" > got.txt
  if ! cmp -s want.txt got.txt; then
    echo "$2: the packets of $1 differ from the recording's" >&2
    exit 1
  fi
  echo "$2: $(wc -l < got.txt) packets, MD5 for MD5"
}

text=$("$bin/kinefix-crypt" options sample.mp4 sample.idx by-hand.mp4)
"$bin/kinefix" "$text" > by-hand.out 2> by-hand.err
grep -q '^summary:packets=' by-hand.out
check by-hand.mp4 "kinefix from the package"

# The window, offscreen, pressing its own Repair button on the same file.
KINEFIX_GUI_SCREENSHOTS="$work/shots" QT_QPA_PLATFORM=offscreen \
  timeout 120 "$bin/kinefix-gui" "$work/sample.mp4" > gui.log 2>&1 || { cat gui.log; exit 1; }
[ -s shots/done.png ] || { echo "kinefix-gui did not repair the sample" >&2; cat gui.log; exit 1; }
check sample-repaired.mp4 "kinefix-gui from the package"
