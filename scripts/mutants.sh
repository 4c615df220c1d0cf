#!/usr/bin/env bash
# Mutation check: applies each small fault of scripts/mutants.txt to a scratch copy of the tree,
# rebuilds the test executables of the fault's labels and runs `ctest -L` on them (the
# thread-heavy areas under ThreadSanitizer); a fault the tests do not notice is a survivor.
# Slow (about 20 s per fault on two cores, after two scratch builds), so not part of CI.
#   scripts/mutants.sh [--list FILE] [--only N[,N...]] [--check] [--jobs J] [--timeout S]
# --check only tells which snippets are stale or not unique in the working tree.
# The scratch tree (${KINEFIX_MUTANTS_DIR:-$TMPDIR/kinefix-mutants}) is kept between runs, so a
# second run only rebuilds what changed. Faults whose snippet is no longer in their file are
# reported as stale and counted apart: the list needs refreshing there.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

list=scripts/mutants.txt
only=""
check=0
jobs=2
timeout=90
while [ $# -gt 0 ]; do
  case $1 in
    --list) list=$2; shift 2 ;;
    --only) only=$2; shift 2 ;;
    --check) check=1; shift ;;
    --jobs) jobs=$2; shift 2 ;;
    --timeout) timeout=$2; shift 2 ;;
    *) echo "usage: $0 [--list FILE] [--only N[,N...]] [--check] [--jobs J] [--timeout S]" >&2; exit 2 ;;
  esac
done
work="${KINEFIX_MUTANTS_DIR:-${TMPDIR:-/tmp}/kinefix-mutants}"
tree="$work/tree"
build="$work/build"
mkdir -p "$tree"
# A copy: the list may be edited while a run goes on.
cp "$list" "$work/mutants.txt"
list="$work/mutants.txt"
# By content, without times: a file restored after the last fault keeps its newer time and is
# compiled again, and only files that differ from the last run are rebuilt.
python3 - "$root" "$tree" <<'PY'
import filecmp, os, shutil, sys
src, dst = sys.argv[1], sys.argv[2]
skip = lambda rel: rel == ".git" or rel.startswith("build")
seen = set()
for d, dirs, files in os.walk(src):
    rel = os.path.relpath(d, src)
    dirs[:] = [x for x in dirs if not (rel == "." and skip(x))]
    for f in files:
        r = os.path.normpath(os.path.join(rel, f))
        seen.add(r)
        a, b = os.path.join(src, r), os.path.join(dst, r)
        if os.path.islink(a) or not os.path.isfile(a):
            continue
        if not os.path.exists(b) or not filecmp.cmp(a, b, shallow=False):
            os.makedirs(os.path.dirname(b), exist_ok=True)
            shutil.copyfile(a, b)
            shutil.copymode(a, b)
for d, dirs, files in os.walk(dst):
    rel = os.path.relpath(d, dst)
    dirs[:] = [x for x in dirs if not (rel == "." and skip(x))]
    for f in files:
        r = os.path.normpath(os.path.join(rel, f))
        if r not in seen:
            os.remove(os.path.join(dst, r))
PY

# The list as records: number, labels, file, old and new text (with "\n" escapes undone).
tool="$work/mutant.py"
cat >"$tool" <<'PY'
import json, re, sys

def records(path):
    out, desc, head, old = [], "", None, None
    for n, line in enumerate(open(path, encoding="utf-8"), 1):
        line = line.rstrip("\n")
        if not line.strip():
            continue
        if line.startswith("#"):
            desc = line[1:].strip()
        elif line.startswith("- "):
            old = line[2:]
        elif line.startswith("+"):
            if head is None or old is None:
                sys.exit(f"{path}:{n}: '+' line without a header and a '-' line")
            un = lambda t: re.sub(r"\\([\\n])", lambda m: "\n" if m.group(1) == "n" else "\\", t)
            out.append({"id": len(out) + 1, "labels": head[0], "file": head[1],
                        "old": un(old), "new": un(line[2:]), "desc": desc, "line": n})
            head = old = None
        else:
            parts = line.split()
            if len(parts) != 2:
                sys.exit(f"{path}:{n}: expected 'LABELS FILE', got {line!r}")
            head, old = parts, None
    return out

cmd, path = sys.argv[1], sys.argv[2]
recs = records(path)
if cmd == "list":
    for r in recs:
        print(r["id"], r["labels"], r["file"], r["desc"], sep="\t")
elif cmd == "count":
    # How often each snippet occurs in the tree: 1 is usable, 0 stale, more is an error.
    tree = sys.argv[3]
    for r in recs:
        text = open(f"{tree}/{r['file']}", encoding="utf-8").read()
        print(r["id"], text.count(r["old"]), sep="\t")
elif cmd == "apply":
    tree, want = sys.argv[3], int(sys.argv[4])
    r = recs[want - 1]
    p = f"{tree}/{r['file']}"
    text = open(p, encoding="utf-8").read()
    if text.count(r["old"]) != 1:
        sys.exit(f"mutant {want}: snippet found {text.count(r['old'])} times in {r['file']}")
    open(p, "w", encoding="utf-8").write(text.replace(r["old"], r["new"]))
PY

mapfile -t records < <(python3 "$tool" list "$list")
declare -A count
while IFS=$'\t' read -r id n; do count[$id]=$n; done < <(python3 "$tool" count "$list" "$tree")
bad=0
for rec in "${records[@]}"; do
  IFS=$'\t' read -r id labels file desc <<<"$rec"
  if [ "${count[$id]}" -gt 1 ]; then
    echo "mutants.txt: mutant $id ($file): snippet occurs ${count[$id]} times; make it unique" >&2
    bad=1
  fi
done
[ $bad = 0 ] || exit 2
if [ $check = 1 ]; then
  for rec in "${records[@]}"; do
    IFS=$'\t' read -r id labels file desc <<<"$rec"
    [ "${count[$id]}" = 1 ] || echo "stale    [$id] $file: $desc"
  done
  echo "${#records[@]} mutants listed"
  exit 0
fi

# An unoptimised build without debug information: each fault costs a compile and a link.
nice -n 10 cmake -S "$tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DCMAKE_C_FLAGS_DEBUG=-O0 >/dev/null
echo "== building the scratch tree in $build"
nice -n 10 cmake --build "$build" -j "$jobs" >"$work/build.log" 2>&1 ||
  { tail -30 "$work/build.log"; echo "the unmutated tree does not build" >&2; exit 2; }

# The thread-heavy areas are tested under ThreadSanitizer, where a dropped lock is a reported
# race rather than a corruption that an ordinary run may or may not show.
tsan_areas="sync|log|config|runtime"
tsan_build="$work/build-tsan"
export TSAN_OPTIONS="halt_on_error=1:exitcode=66"
need_tsan=0
for rec in "${records[@]}"; do
  IFS=$'\t' read -r id labels file desc <<<"$rec"
  if [ -n "$only" ] && [[ ",$only," != *",$id,"* ]]; then continue; fi
  [[ "$labels" =~ ^($tsan_areas)(,($tsan_areas))*$ ]] && need_tsan=1
done
if [ $need_tsan = 1 ]; then
  nice -n 10 cmake -S "$tree" -B "$tsan_build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS_DEBUG=-O1 -DCMAKE_C_FLAGS_DEBUG=-O1 -DKINEFIX_TSAN=ON >/dev/null
  echo "== building the ThreadSanitizer scratch tree in $tsan_build"
  nice -n 10 cmake --build "$tsan_build" -j "$jobs" --target zp_sync_tests zp_log_tests \
    zp_config_tests zp_runtime_tests >"$work/build.log" 2>&1 ||
    { tail -30 "$work/build.log"; echo "the unmutated tree does not build" >&2; exit 2; }
fi

# The build a fault's labels are tested in.
build_for() {
  if [[ "$1" =~ ^($tsan_areas)(,($tsan_areas))*$ ]]; then echo "$tsan_build"; else echo "$build"; fi
}

# Test executables holding a label's tests, from CTest's own listing.
targets_of() {
  ctest --test-dir "$(build_for "$1")" --show-only=json-v1 -L "^(${1//,/|})\$" | python3 -c '
import json, os, sys
tests = json.load(sys.stdin)["tests"]
print(" ".join(sorted({os.path.basename(t["command"][0]) for t in tests if t.get("command")})))'
}

# Several labels: a test with any of them runs.
run_tests() {
  nice -n 10 ctest --test-dir "$(build_for "$1")" -L "^(${1//,/|})\$" -j "$jobs" \
    --timeout "$timeout" --stop-on-failure >"$work/ctest.log" 2>&1
}

# The unmutated tree must pass every label the list uses, or a survivor means nothing.
declare -A baseline
for rec in "${records[@]}"; do
  IFS=$'\t' read -r id labels file desc <<<"$rec"
  if [ -n "$only" ] && [[ ",$only," != *",$id,"* ]]; then continue; fi
  [ -n "${baseline[$labels]:-}" ] && continue
  if ! run_tests "$labels"; then
    tail -20 "$work/ctest.log"
    echo "the unmutated tree fails 'ctest -L $labels'" >&2
    exit 2
  fi
  baseline[$labels]=ok
done

caught=0 survived=0 stale=0 broken=0
survivors=()
for rec in "${records[@]}"; do
  IFS=$'\t' read -r id labels file desc <<<"$rec"
  if [ -n "$only" ] && [[ ",$only," != *",$id,"* ]]; then continue; fi
  tag="[$id] $file ($labels): $desc"
  if [ "${count[$id]}" = 0 ]; then
    echo "stale    $tag"
    stale=$((stale + 1))
    continue
  fi
  cp -p "$tree/$file" "$work/original"
  trap 'cp "$work/original" "$tree/$file"; touch "$tree/$file"' EXIT
  python3 "$tool" apply "$list" "$tree" "$id"
  read -r -a targets <<<"$(targets_of "$labels")"
  if [ ${#targets[@]} = 0 ]; then
    echo "mutants.txt: no tests carry the label(s) '$labels' of mutant $id" >&2
    exit 2
  fi
  if ! nice -n 10 cmake --build "$(build_for "$labels")" -j "$jobs" --target "${targets[@]}" \
    >"$work/build.log" 2>&1; then
    echo "broken   $tag (does not build)"
    broken=$((broken + 1))
  elif run_tests "$labels"; then
    echo "SURVIVED $tag"
    survived=$((survived + 1))
    survivors+=("$tag")
  else
    echo "caught   $tag"
    caught=$((caught + 1))
  fi
  # A fresh modification time, so that the next build compiles the original again.
  cp "$work/original" "$tree/$file"
  touch "$tree/$file"
  trap - EXIT
done

echo
if [ ${#survivors[@]} -gt 0 ]; then
  echo "Survivors:"
  printf '  %s\n' "${survivors[@]}"
fi
extra=""
[ $stale = 0 ] || extra+=", $stale stale"
[ $broken = 0 ] || extra+=", $broken not building"
echo "$caught caught, $survived survived$extra"
