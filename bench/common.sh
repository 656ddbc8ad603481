# What the benchmarks share; sourced by them with $here set to this folder.

# The simulator to time, in $sim: the path given, else the one that
# tools/try.sh built, else the one of tools/test.sh.
find_sim() {
  sim=${1:-}
  if [ -z "$sim" ]; then
    for candidate in "$here/../build/linux/vmdctl-sim" "$here/../build/test/vmdctl-sim"; do
      if [ -x "$candidate" ]; then sim=$candidate; break; fi
    done
  fi
  [ -n "$sim" ] && [ -x "$sim" ] || { echo "no simulator at $sim (give its path as the first argument)" >&2; exit 1; }
}

# Times in microseconds, one a line, on standard input: prints
# "median M ms<word> over N runs (min A, max B)", <word> being $1.
median_line() {
  sort -n | awk -v word="${1:-}" '
    { t[NR] = $1 }
    END {
      m = (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2
      printf "median %.1f ms%s over %d runs (min %.1f, max %.1f)", m / 1000, word, NR, t[1] / 1000, t[NR] / 1000
    }'
}
