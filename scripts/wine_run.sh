#!/usr/bin/env bash
# Runs a Windows program under wine in the project's own 64-bit prefix, created on first use.
#
# Usage: scripts/wine_run.sh program.exe [args...]
# WINEPREFIX defaults to $KINEFIX_CACHE/wine64 (KINEFIX_CACHE defaults to ~/.cache/kinefix), so
# the prefix survives between runs; booting a fresh one takes tens of seconds.
set -euo pipefail

export WINEDEBUG="${WINEDEBUG:--all}"
export WINEARCH=win64
export WINEPREFIX="${WINEPREFIX:-${KINEFIX_CACHE:-$HOME/.cache/kinefix}/wine64}"
# No mono/gecko download prompts: console programs need neither.
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
# A Unix TMPDIR would reach the program as a path without a drive; let GetTempPathW decide.
unset TMPDIR

wine_bin=$(command -v wine64 || command -v wine || true)
[ -n "$wine_bin" ] || { echo "wine_run: wine is not installed" >&2; exit 127; }

if [ ! -f "$WINEPREFIX/system.reg" ]; then
  mkdir -p "$(dirname "$WINEPREFIX")"
  # Parallel test runs may all arrive here: only one boots the prefix.
  (
    flock 9
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
      echo "wine_run: creating wine prefix $WINEPREFIX" >&2
      wineboot -i >/dev/null 2>&1 || true
      wineserver -w || true
    fi
  ) 9>"$WINEPREFIX.lock"
fi

exec "$wine_bin" "$@"
