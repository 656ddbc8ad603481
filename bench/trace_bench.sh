#!/usr/bin/env bash
# What the request trace costs: `vmdctl-sim ls` on the machine of
# ls_bench.sh (128 disks, 24 letters in use), whole process, without and with
# --sim-trace, the two taken in turn so that a busy machine slows both alike.
# Prints both medians and their ratio; fails when the trace costs more than
# 10 %.
#
#   bench/trace_bench.sh [path/to/vmdctl-sim] [runs]
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"
find_sim "${1:-}"
runs=${2:-30}

make_work
state=$work/machine.json
trace=$work/trace.txt
ls_machine "$state"

# One run of each to check them and warm the caches.
rows=$("$sim" --sim-state "$state" ls 2>/dev/null | grep -c '^#')
[ "$rows" -eq 128 ] || { echo "expected 128 rows, found $rows" >&2; exit 1; }
"$sim" --sim-state "$state" --sim-trace "$trace" ls >/dev/null 2>&1
lines=$(wc -l <"$trace")
disks=$(grep -c ' code=QueryDiskInfo ' "$trace")
[ "$disks" -eq 128 ] || { echo "expected the trace to ask for 128 disks, found $disks" >&2; exit 1; }

plain=() traced=()
for ((i = 0; i < runs; i++)); do
  plain+=("$(run_time "$sim" --sim-state "$state" ls)")
  traced+=("$(run_time "$sim" --sim-state "$state" --sim-trace "$trace" ls)")
done
median_us() { sort -n | awk '{ t[NR] = $1 } END { print (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2 }'; }
a=$(printf '%s\n' "${plain[@]}" | median_us)
b=$(printf '%s\n' "${traced[@]}" | median_us)
echo "vmdctl-sim ls, 128 disks, 24 letters: $(printf '%s\n' "${plain[@]}" | median_line)"
echo "the same with --sim-trace ($lines lines, $(wc -c <"$trace") bytes): $(printf '%s\n' "${traced[@]}" | median_line)"
awk -v a="$a" -v b="$b" 'BEGIN {
  r = b / a
  printf "trace costs %+.1f %% (ratio %.3f; at most 10 %% allowed)\n", (r - 1) * 100, r
  exit (r > 1.10)
}'
