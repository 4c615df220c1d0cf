# shellcheck shell=bash
# Shell helpers shared by the benchmark scripts (sourced, not run).

# Offset of the top-level moov box, found by walking the boxes (32- or 64-bit sizes); nothing
# when there is none.
moov_offset() {
  local file=$1 off=0 total hdr size
  total=$(stat -c %s "$file")
  while [ "$off" -lt "$total" ]; do
    hdr=$(od -An -tx1 -N16 -j "$off" "$file" | tr -d ' \n')
    size=$((16#${hdr:0:8}))
    if [ "${hdr:8:8}" = 6d6f6f76 ]; then
      echo "$off"
      return
    fi
    [ "$size" -eq 1 ] && size=$((16#${hdr:16:16}))
    [ "$size" -ge 8 ] || return
    off=$((off + size))
  done
}

# Median of the numbers given as arguments.
median() {
  printf '%s\n' "$@" | sort -g |
    awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# Largest of the numbers given as arguments.
maximum() {
  printf '%s\n' "$@" | sort -g | tail -1
}
