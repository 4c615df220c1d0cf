# shellcheck shell=bash
# Shell helpers shared by the benchmark scripts (sourced, not run); the box helpers are the
# scripts' own.

# shellcheck source=scripts/shell_helpers.sh
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/shell_helpers.sh"

# Median of the numbers given as arguments.
median() {
  printf '%s\n' "$@" | sort -g |
    awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# Largest of the numbers given as arguments.
maximum() {
  printf '%s\n' "$@" | sort -g | tail -1
}
